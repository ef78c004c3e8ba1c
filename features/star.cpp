#include "features/star.hpp"

#include "features/integral.hpp"

#include <algorithm>
#include <cmath>

namespace features {

namespace {

// Star radii: an upright square of half-side n joined to a square turned 45
// degrees of half-diagonal n + n/2. The radii grow by about sqrt(2) per step;
// each filter pairs an outer star with an inner one of about half its radius
// (kPares holds indices into kRaios: outer, inner), and the outer radius is
// the keypoint size.
constexpr int kRaios[] = {1, 2, 3, 4, 6, 8, 11, 12, 16, 22, 23, 32, 45, 46, 64, 90, 128};
constexpr int kNRaios = int(sizeof(kRaios) / sizeof(kRaios[0]));
constexpr int kPares[][2] = {{1, 0},  {3, 1},   {4, 2},   {5, 3},   {7, 4},   {8, 5},
                             {9, 6},  {11, 8},  {13, 10}, {14, 11}, {15, 12}, {16, 14}};
constexpr int kNPares = int(sizeof(kPares) / sizeof(kPares[0]));

inline int raioInclinado(int n) { return n + n / 2; }

// Integral images for upright squares and 45-degree squares (diamonds).
//
// A diamond |dx| + |dy| <= t is summed row by row from the row prefix sums R;
// its right and left edges are two diagonal segments each, so cumulative sums
// of R along both diagonals give it in eight look-ups:
//   A(x, y) = R(x, y) + A(x + 1, y - 1)   (up and to the right)
//   B(x, y) = R(x, y) + B(x - 1, y - 1)   (up and to the left)
// with R(x, y) = 0 left of the image and the whole row right of it.
// Unsigned wrap-around keeps every sum exact (see integral.hpp).
class Integrais {
 public:
  explicit Integrais(const cv::Mat& g) : W_(g.cols), H_(g.rows) {
    reto_ = integralU32(g);
    s_ = reinterpret_cast<const uint32_t*>(reto_.data);
    st_ = int(reto_.step1());
    // Columns -2 .. W, rows -1 .. H-1; column -2 only pads B.
    stD_ = W_ + 3;
    A_.assign(size_t(stD_) * (H_ + 1), 0u);
    B_.assign(size_t(stD_) * (H_ + 1), 0u);
    std::vector<uint32_t> R(W_);
    uint32_t linhasAcum = 0;
    for (int y = 0; y < H_; ++y) {
      const uchar* p = g.ptr<uchar>(y);
      uint32_t acc = 0;
      for (int x = 0; x < W_; ++x) R[x] = acc += p[x];
      linhasAcum += acc;
      uint32_t* a = &A_[indice(0, y)];
      const uint32_t* aAcima = a - stD_;
      a[W_] = linhasAcum;
      for (int x = W_ - 1; x >= -1; --x) a[x] = (x >= 0 ? R[x] : 0u) + aAcima[x + 1];
      uint32_t* b = &B_[indice(0, y)];
      const uint32_t* bAcima = b - stD_;
      for (int x = 0; x < W_; ++x) b[x] = R[x] + bAcima[x - 1];
    }
  }

  // Offsets, from the entries of the centre pixel, of the look-ups that sum
  // the upright square of half-side n and the diamond of radius t.
  struct Estrela {
    int q[4];      // integral: +q0 - q1 - q2 + q3
    int d[8];      // A/B: +A0 -A1 +B2 -B3  -B4 +B5 -A6 +A7
  };
  Estrela estrela(int n, int t) const {
    Estrela e;
    e.q[0] = (n + 1) * st_ + n + 1;
    e.q[1] = (n + 1) * st_ - n;
    e.q[2] = -n * st_ + n + 1;
    e.q[3] = -n * st_ - n;
    auto o = [&](int dx, int dy) { return dy * stD_ + dx; };
    e.d[0] = o(0, t);
    e.d[1] = o(t + 1, -1);
    e.d[2] = o(t - 1, -1);
    e.d[3] = o(-1, -t - 1);
    e.d[4] = o(-1, t);
    e.d[5] = o(-t - 2, -1);
    e.d[6] = o(-t, -1);
    e.d[7] = o(0, -t - 1);
    return e;
  }
  const uint32_t* reto(int x, int y) const { return s_ + y * st_ + x; }
  const uint32_t* diagA(int x, int y) const { return &A_[indice(x, y)]; }
  const uint32_t* diagB(int x, int y) const { return &B_[indice(x, y)]; }

  // Square plus diamond, both inside the image, from the centre's pointers.
  static uint32_t soma(const Estrela& e, const uint32_t* s, const uint32_t* a, const uint32_t* b) {
    const uint32_t quadrado = s[e.q[0]] - s[e.q[1]] - s[e.q[2]] + s[e.q[3]];
    const uint32_t direita = a[e.d[0]] - a[e.d[1]] + b[e.d[2]] - b[e.d[3]];
    const uint32_t esquerda = b[e.d[4]] - b[e.d[5]] + a[e.d[6]] - a[e.d[7]];
    return quadrado + direita - esquerda;
  }

 private:
  size_t indice(int x, int y) const { return size_t(y + 1) * stD_ + x + 2; }

  int W_, H_;
  cv::Mat reto_;
  const uint32_t* s_ = nullptr;
  int st_ = 0;
  int stD_ = 0;
  std::vector<uint32_t> A_, B_;
};

// CenSurE's line test: the Harris measure of the response (or of the
// "same scale" indicator) on a 9 x 9 grid whose step grows with the scale;
// elongated structures have trace^2 / det large.
bool pareceLinha(const cv::Mat_<float>& resp, const cv::Mat_<uchar>& escala, int x, int y, int tamanho,
                 int limiarProjetado, int limiarBinarizado) {
  const int passo = std::max(1, tamanho / 4), raio = passo * 4;
  const uchar s0 = escala(y, x);
  double xx = 0, yy = 0, xy = 0;
  int bxx = 0, byy = 0, bxy = 0;
  for (int v = y - raio; v <= y + raio; v += passo) {
    const float* r = resp[v];
    const float* rc = resp[v - 1];
    const float* rb = resp[v + 1];
    const uchar* e = escala[v];
    const uchar* ec = escala[v - 1];
    const uchar* eb = escala[v + 1];
    for (int u = x - raio; u <= x + raio; u += passo) {
      const double lx = double(r[u + 1]) - r[u - 1], ly = double(rb[u]) - rc[u];
      xx += lx * lx;
      yy += ly * ly;
      xy += lx * ly;
      const int bx = int(e[u + 1] == s0) - int(e[u - 1] == s0), by = int(eb[u] == s0) - int(ec[u] == s0);
      bxx += bx * bx;
      byy += by * by;
      bxy += bx * by;
    }
  }
  if ((xx + yy) * (xx + yy) >= limiarProjetado * (xx * yy - xy * xy)) return true;
  return double(bxx + byy) * (bxx + byy) >= double(limiarBinarizado) * (double(bxx) * byy - double(bxy) * bxy);
}

}  // namespace

StarDetector::StarDetector(int maxSize, int responseThreshold, int lineThresholdProjected, int lineThresholdBinarized,
                           int suppressNonmaxSize)
    : maxSize_(maxSize),
      responseThreshold_(responseThreshold),
      lineThresholdProjected_(lineThresholdProjected),
      lineThresholdBinarized_(lineThresholdBinarized),
      suppressNonmaxSize_(suppressNonmaxSize) {}

void StarDetector::detect(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, const cv::Mat& mask) const {
  keypoints.clear();
  if (image.empty()) return;
  // Filters whose outer star fits within maxSize; the first and the last
  // only bound the scale search, so at least three are needed.
  int nPares = 0;
  while (nPares < kNPares && kRaios[kPares[nPares][0]] <= maxSize_) ++nPares;
  if (nPares < 3) return;
  const int maiorRaio = kRaios[kPares[nPares - 1][0]];
  const int borda = raioInclinado(maiorRaio);
  const cv::Mat gray = cinza8u(image);
  CV_Assert(mask.empty() || (mask.type() == CV_8UC1 && mask.size() == gray.size()));
  const int W = gray.cols, H = gray.rows;
  if (W <= 2 * borda + 2 || H <= 2 * borda + 2) return;
  const Integrais I(gray);

  // Star sums and areas per radius index, for the radii that the filters use.
  int usados[kNRaios];
  int nUsados = 0;
  for (int r = 0; r < kNRaios; ++r)
    for (int p = 0; p < nPares; ++p)
      if (kPares[p][0] == r || kPares[p][1] == r) {
        usados[nUsados++] = r;
        break;
      }
  double area[kNRaios] = {};
  for (int q = 0; q < nUsados; ++q) {
    const int n = kRaios[usados[q]], t = raioInclinado(n);
    area[usados[q]] = double(2 * n + 1) * (2 * n + 1) + double(t) * t + double(t + 1) * (t + 1);
  }
  float pesoDentro[kNPares], pesoAnel[kNPares];
  for (int p = 0; p < nPares; ++p) {
    pesoDentro[p] = float(1.0 / area[kPares[p][1]]);
    pesoAnel[p] = float(1.0 / (area[kPares[p][0]] - area[kPares[p][1]]));
  }

  // Per pixel: the response of largest magnitude over the filters and the
  // filter that gave it.
  cv::Mat_<float> resp(H, W, 0.0f);
  cv::Mat_<uchar> escala(H, W, uchar(0));
  Integrais::Estrela estrelas[kNRaios];
  for (int q = 0; q < nUsados; ++q) {
    const int n = kRaios[usados[q]];
    estrelas[q] = I.estrela(n, raioInclinado(n));
  }
  float soma[kNRaios];
  for (int y = borda; y < H - borda; ++y) {
    float* rl = resp[y];
    uchar* el = escala[y];
    const uint32_t* ps = I.reto(borda, y);
    const uint32_t* pa = I.diagA(borda, y);
    const uint32_t* pb = I.diagB(borda, y);
    for (int x = borda; x < W - borda; ++x, ++ps, ++pa, ++pb) {
      for (int q = 0; q < nUsados; ++q) soma[usados[q]] = float(Integrais::soma(estrelas[q], ps, pa, pb));
      float melhor = 0.0f;
      int qual = 0;
      for (int p = 0; p < nPares; ++p) {
        const float dentro = soma[kPares[p][1]], fora = soma[kPares[p][0]];
        const float v = dentro * pesoDentro[p] - (fora - dentro) * pesoAnel[p];
        if (std::fabs(v) > std::fabs(melhor)) melhor = v, qual = p;
      }
      rl[x] = melhor;
      el[x] = uchar(qual);
    }
  }

  // Extrema over a (2d+1)^2 window, at a filter strictly inside the range,
  // above the threshold and not on a line.
  const int d = std::max(1, suppressNonmaxSize_ / 2);
  const float limiar = float(responseThreshold_);
  // The window and the line test's grid (radius 4 * (size / 4) plus one)
  // must stay inside the maps.
  const int margem = std::max(borda, std::max(d, maiorRaio + 1));
  for (int y = margem; y < H - margem; ++y) {
    const float* rl = resp[y];
    for (int x = margem; x < W - margem; ++x) {
      const float v = rl[x];
      if (!(std::fabs(v) > limiar)) continue;
      const int p = escala(y, x);
      if (p == 0 || p == nPares - 1) continue;
      if (!mask.empty() && !mask.at<uchar>(y, x)) continue;
      bool extremo = true;
      for (int v2 = y - d; v2 <= y + d && extremo; ++v2) {
        const float* r2 = resp[v2];
        for (int u = x - d; u <= x + d; ++u) {
          if (u == x && v2 == y) continue;
          // Ties go to the first pixel in raster order.
          const bool antes = v2 < y || (v2 == y && u < x);
          const bool bate = v > 0 ? (antes ? r2[u] >= v : r2[u] > v) : (antes ? r2[u] <= v : r2[u] < v);
          if (bate) {
            extremo = false;
            break;
          }
        }
      }
      if (!extremo) continue;
      const int tamanho = kRaios[kPares[p][0]];
      if (pareceLinha(resp, escala, x, y, tamanho, lineThresholdProjected_, lineThresholdBinarized_)) continue;
      keypoints.emplace_back(float(x), float(y), float(tamanho), -1.0f, std::fabs(v), 0, -1);
    }
  }
}

}  // namespace features
