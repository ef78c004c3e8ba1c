#include "features/surf.hpp"

#include "features/integral.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace features {

namespace {

// Scale space: layer k of octave o has a filter side of (9 + 6k) * 2^o and is
// sampled every 2^o pixels (9 is the smallest side that gives three lobes of
// an odd width; sigma = 1.2 * side / 9).
constexpr int kLadoBase = 9;
constexpr int kLadoPasso = 6;
// Relative weight of Dxy in the determinant, (0.9)^2: it makes the box
// approximation of the Hessian match the Gaussian one.
constexpr float kPesoDxy = 0.81f;

// Orientation: Haar responses of side 4s at the points of a grid of step s
// within 6s of the keypoint, Gaussian-weighted, summed in a sliding window of
// 60 degrees that moves in steps of 5 degrees.
constexpr int kRaioOri = 6;
constexpr float kSigmaOri = 2.5f;
constexpr int kBinsOri = 72;
constexpr int kJanelaOri = 12;

// Descriptor: a square of 20s turned to the orientation, resampled to 21 x 21
// points of step s; 2 x 2 Haar responses between neighbouring points give a
// 20 x 20 field that is Gaussian-weighted and summed in 4 x 4 blocks of 5 x 5.
constexpr int kPatch = 20;
constexpr int kBloco = 5;
constexpr float kSigmaDesc = 3.3f;

// Keypoint angle: the direction of the descriptor's x axis in degrees
// [0, 360), measured from +x towards +y (y down). Upright SURF reports 270
// and samples the descriptor unturned.
constexpr float kAnguloUpright = 270.0f;

// Offsets (from the integral entry of the centre pixel) of the four corners
// of a box, so that a box sum costs four loads and no index arithmetic.
struct Caixa {
  int a, b, c, d;
  Caixa(int st, int x0, int y0, int x1, int y1)
      : a(y0 * st + x0), b(y0 * st + x1), c(y1 * st + x0), d(y1 * st + x1) {}
  int soma(const uint32_t* p) const { return int(p[d] - p[b] - p[c] + p[a]); }
};

struct Camada {
  int lado = 0;
  cv::Mat_<float> det;
  cv::Mat_<schar> sinal;  // sign of the trace Dxx + Dyy
};

struct Integral {
  cv::Mat mat;
  const uint32_t* s = nullptr;
  int st = 0;
  int W = 0, H = 0;
  explicit Integral(const cv::Mat& gray) : mat(integralU32(gray)) {
    s = reinterpret_cast<const uint32_t*>(mat.data);
    st = int(mat.step1());
    W = gray.cols;
    H = gray.rows;
  }
  int box(int x0, int y0, int x1, int y1) const { return boxSum(s, st, x0, y0, x1, y1); }
};

// The 9 x 9 filters as boxes [x0, x1) x [y0, y1) with their weights; a
// larger filter scales the corners by side / 9 and rounds them, and weighs
// each box by its weight over its area, so every filter answers in grey
// levels whatever its size.
struct BoxBase {
  int x0, y0, x1, y1, peso;
};
constexpr BoxBase kDxx[3] = {{0, 2, 3, 7, 1}, {3, 2, 6, 7, -2}, {6, 2, 9, 7, 1}};
constexpr BoxBase kDyy[3] = {{2, 0, 7, 3, 1}, {2, 3, 7, 6, -2}, {2, 6, 7, 9, 1}};
constexpr BoxBase kDxy[4] = {{1, 1, 4, 4, 1}, {5, 1, 8, 4, -1}, {1, 5, 4, 8, -1}, {5, 5, 8, 8, 1}};

struct CaixaPesada {
  Caixa c;
  float peso;
};

CaixaPesada escalaCaixa(const BoxBase& b, int lado, int st) {
  const double f = lado / 9.0;
  const int x0 = cvRound(b.x0 * f), y0 = cvRound(b.y0 * f), x1 = cvRound(b.x1 * f), y1 = cvRound(b.y1 * f);
  return {Caixa(st, x0, y0, x1, y1), float(b.peso) / float((x1 - x0) * (y1 - y0))};
}

// Determinant of the box-filter Hessian at every cell of the octave grid
// whose filter fits in the image; 0 elsewhere. Cell i stands for the pixel
// coordinate i * passo + (passo - 1) / 2, the centre of the filter placed
// with its corner at (i - (lado / passo - 1) / 2) * passo.
void calculaCamada(const Integral& I, int passo, Camada& c) {
  const int mw = I.W / passo, mh = I.H / passo;
  c.det.create(mh, mw);
  c.det.setTo(0.0f);
  c.sinal.create(mh, mw);
  c.sinal.setTo(0);
  const int L = c.lado, recuo = (L / passo - 1) / 2;
  const int i0 = recuo, i1 = (I.W - L) / passo + recuo;
  const int j0 = recuo, j1 = (I.H - L) / passo + recuo;
  if (i0 > i1 || j0 > j1 || mw == 0 || mh == 0) return;
  const int st = I.st;
  // Side 3k makes the three lobes of Dxx and Dyy equal, so each is the
  // whole strip minus three times its middle lobe, both weighted alike.
  const CaixaPesada xTudo = escalaCaixa({kDxx[0].x0, kDxx[0].y0, kDxx[2].x1, kDxx[2].y1, 1}, L, st),
                    xMeio = escalaCaixa(kDxx[1], L, st);
  const CaixaPesada yTudo = escalaCaixa({kDyy[0].x0, kDyy[0].y0, kDyy[2].x1, kDyy[2].y1, 1}, L, st),
                    yMeio = escalaCaixa(kDyy[1], L, st);
  const float px = -xMeio.peso * 0.5f, py = -yMeio.peso * 0.5f;
  const CaixaPesada q1 = escalaCaixa(kDxy[0], L, st), q2 = escalaCaixa(kDxy[1], L, st),
                    q3 = escalaCaixa(kDxy[2], L, st), q4 = escalaCaixa(kDxy[3], L, st);
  const float pq = q1.peso;
  for (int j = j0; j <= std::min(j1, mh - 1); ++j) {
    float* dl = c.det[j];
    schar* sl = c.sinal[j];
    const uint32_t* p = I.s + ((j - recuo) * passo) * st + (i0 - recuo) * passo;
    for (int i = i0; i <= std::min(i1, mw - 1); ++i, p += passo) {
      const float dxx = px * float(xTudo.c.soma(p) - 3 * xMeio.c.soma(p));
      const float dyy = py * float(yTudo.c.soma(p) - 3 * yMeio.c.soma(p));
      const float dxy = pq * float(q1.c.soma(p) + q4.c.soma(p) - q2.c.soma(p) - q3.c.soma(p));
      dl[i] = dxx * dyy - kPesoDxy * dxy * dxy;
      sl[i] = (dxx + dyy) >= 0 ? 1 : -1;
    }
  }
}

bool maximoLocal(const Camada* cs, int k, int j, int i, float v) {
  for (int dk = -1; dk <= 1; ++dk) {
    const cv::Mat_<float>& d = cs[k + dk].det;
    for (int dj = -1; dj <= 1; ++dj) {
      const float* r = d[j + dj];
      for (int di = -1; di <= 1; ++di) {
        if (dk == 0 && dj == 0 && di == 0) continue;
        if (r[i + di] >= v) return false;
      }
    }
  }
  return true;
}

// Fits a quadratic to the 3 x 3 x 3 neighbourhood; false when the extremum
// lies more than one sample away or the fit is degenerate.
bool interpola(const Camada* cs, int k, int j, int i, cv::Vec3f& desvio) {
  auto D = [&](int dk, int dj, int di) { return cs[k + dk].det(j + dj, i + di); };
  const float v = D(0, 0, 0);
  const cv::Vec3f g((D(0, 0, 1) - D(0, 0, -1)) * 0.5f, (D(0, 1, 0) - D(0, -1, 0)) * 0.5f,
                    (D(1, 0, 0) - D(-1, 0, 0)) * 0.5f);
  const float xx = D(0, 0, 1) + D(0, 0, -1) - 2 * v;
  const float yy = D(0, 1, 0) + D(0, -1, 0) - 2 * v;
  const float ss = D(1, 0, 0) + D(-1, 0, 0) - 2 * v;
  const float xy = (D(0, 1, 1) - D(0, 1, -1) - D(0, -1, 1) + D(0, -1, -1)) * 0.25f;
  const float xs = (D(1, 0, 1) - D(1, 0, -1) - D(-1, 0, 1) + D(-1, 0, -1)) * 0.25f;
  const float ys = (D(1, 1, 0) - D(1, -1, 0) - D(-1, 1, 0) + D(-1, -1, 0)) * 0.25f;
  const cv::Matx33f Hs(xx, xy, xs, xy, yy, ys, xs, ys, ss);
  cv::Vec3f x;
  if (!cv::solve(Hs, -g, x, cv::DECOMP_LU)) return false;
  for (int q = 0; q < 3; ++q)
    if (!std::isfinite(x[q]) || std::fabs(x[q]) > 1.0f) return false;
  desvio = x;
  return true;
}

// Tables that depend on nothing but the constants: built once per process.
struct Tabelas {
  struct Amostra {
    int i, j;
    float peso;
  };
  std::vector<Amostra> ori;
  std::array<float, kPatch * kPatch> pesoDesc{};
  Tabelas() {
    for (int j = -kRaioOri; j <= kRaioOri; ++j)
      for (int i = -kRaioOri; i <= kRaioOri; ++i)
        if (i * i + j * j <= kRaioOri * kRaioOri)
          ori.push_back({i, j, std::exp(-float(i * i + j * j) / (2 * kSigmaOri * kSigmaOri))});
    const float c = (kPatch - 1) * 0.5f;
    for (int v = 0; v < kPatch; ++v)
      for (int u = 0; u < kPatch; ++u) {
        const float du = u - c, dv = v - c;
        pesoDesc[v * kPatch + u] = std::exp(-(du * du + dv * dv) / (2 * kSigmaDesc * kSigmaDesc));
      }
  }
};

const Tabelas& tabelas() {
  static const Tabelas t;
  return t;
}

inline float escalaDoTamanho(float size) { return size * 1.2f / 9.0f; }

// Dominant orientation (direction of the descriptor x axis, degrees [0, 360)
// from +x towards +y); false when no Haar wavelet fits in the image.
bool orientacao(const Integral& I, float x, float y, float escala, float& graus) {
  const int w = 2 * cvRound(2 * escala), h = w / 2;
  if (w <= 0) return false;
  float bx[kBinsOri] = {}, by[kBinsOri] = {};
  bool alguma = false;
  for (const Tabelas::Amostra& a : tabelas().ori) {
    // Pixel centres are whole numbers, so the edge between the two halves of
    // a wavelet centred at x lies on the integral-image column x + 0.5.
    const int cx = cvRound(x + a.i * escala + 0.5f), cy = cvRound(y + a.j * escala + 0.5f);
    const int x0 = cx - h, y0 = cy - h;
    if (x0 < 0 || y0 < 0 || x0 + w > I.W || y0 + w > I.H) continue;
    const float dx = float(I.box(cx, y0, x0 + w, y0 + w) - I.box(x0, y0, cx, y0 + w)) * a.peso;
    const float dy = float(I.box(x0, cy, x0 + w, y0 + w) - I.box(x0, y0, x0 + w, cy)) * a.peso;
    if (dx == 0.0f && dy == 0.0f) {
      alguma = true;
      continue;
    }
    const int bin = std::min(kBinsOri - 1, int(cv::fastAtan2(dy, dx) * (kBinsOri / 360.0f)));
    bx[bin] += dx;
    by[bin] += dy;
    alguma = true;
  }
  if (!alguma) return false;
  float sx = 0, sy = 0;
  for (int b = 0; b < kJanelaOri; ++b) sx += bx[b], sy += by[b];
  float melhor = sx * sx + sy * sy, mx = sx, my = sy;
  for (int a = 1; a < kBinsOri; ++a) {
    const int sai = a - 1, entra = (a + kJanelaOri - 1) % kBinsOri;
    sx += bx[entra] - bx[sai];
    sy += by[entra] - by[sai];
    const float m = sx * sx + sy * sy;
    if (m > melhor) melhor = m, mx = sx, my = sy;
  }
  graus = (mx == 0.0f && my == 0.0f) ? 0.0f : cv::fastAtan2(my, mx);
  return true;
}

// Mean grey level of the axis-aligned square of side `lado` centred at pixel
// coordinates (x, y), with fractional bounds: the integral image is read
// between its entries (bilinearly), which weighs the border pixels by the
// part of them that the square covers. A square that leaves the image is
// pushed back inside (border replicated in effect).
inline float mediaCaixa(const Integral& I, double x, double y, double lado) {
  const double lx = std::min(lado, double(I.W)), ly = std::min(lado, double(I.H));
  const double x0 = std::clamp(x + 0.5 - lx * 0.5, 0.0, I.W - lx);
  const double y0 = std::clamp(y + 0.5 - ly * 0.5, 0.0, I.H - ly);
  const double x1 = x0 + lx, y1 = y0 + ly;
  const int ix0 = std::min(int(x0), I.W - 1), iy0 = std::min(int(y0), I.H - 1);
  const int ix1 = std::min(int(x1), I.W - 1), iy1 = std::min(int(y1), I.H - 1);
  const double fx0 = x0 - ix0, fy0 = y0 - iy0, fx1 = x1 - ix1, fy1 = y1 - iy1;
  // Each row pair gives the strip between the two columns, interpolated.
  auto faixa = [&](const uint32_t* r) {
    const double esquerda = (1 - fx0) * double(r[ix0]) + fx0 * double(r[ix0 + 1]);
    const double direita = (1 - fx1) * double(r[ix1]) + fx1 * double(r[ix1 + 1]);
    return direita - esquerda;
  };
  const uint32_t* r0 = I.s + iy0 * I.st;
  const uint32_t* r1 = I.s + iy1 * I.st;
  const double baixo = (1 - fy1) * faixa(r1) + fy1 * faixa(r1 + I.st);
  const double cima = (1 - fy0) * faixa(r0) + fy0 * faixa(r0 + I.st);
  return float((baixo - cima) / (lx * ly));
}

void descritor(const Integral& I, const cv::KeyPoint& kp, bool upright, bool extended, float* out) {
  const Tabelas& t = tabelas();
  const float escala = escalaDoTamanho(kp.size);
  const double th = upright ? 0.0 : kp.angle * CV_PI / 180.0;
  const double c = std::cos(th) * escala, s = std::sin(th) * escala;
  const double lado = std::max(1.0, double(escala));
  constexpr int N = kPatch + 1;
  float P[N][N];
  const double meio = kPatch * 0.5;
  for (int v = 0; v < N; ++v) {
    const double b = v - meio;
    for (int u = 0; u < N; ++u) {
      const double a = u - meio;
      P[v][u] = mediaCaixa(I, kp.pt.x + a * c - b * s, kp.pt.y + a * s + b * c, lado);
    }
  }
  const int nv = extended ? 8 : 4;
  std::fill(out, out + 16 * nv, 0.0f);
  for (int v = 0; v < kPatch; ++v) {
    for (int u = 0; u < kPatch; ++u) {
      const float g = t.pesoDesc[v * kPatch + u];
      const float dx = g * (P[v][u + 1] + P[v + 1][u + 1] - P[v][u] - P[v + 1][u]);
      const float dy = g * (P[v + 1][u] + P[v + 1][u + 1] - P[v][u] - P[v][u + 1]);
      float* o = out + ((v / kBloco) * 4 + u / kBloco) * nv;
      if (!extended) {
        o[0] += dx;
        o[1] += dy;
        o[2] += std::fabs(dx);
        o[3] += std::fabs(dy);
      } else {
        float* ox = o + (dy < 0 ? 0 : 2);
        ox[0] += dx;
        ox[1] += std::fabs(dx);
        float* oy = o + (dx < 0 ? 4 : 6);
        oy[0] += dy;
        oy[1] += std::fabs(dy);
      }
    }
  }
  double n2 = 0;
  for (int q = 0; q < 16 * nv; ++q) n2 += double(out[q]) * out[q];
  if (n2 > 0) {
    const float inv = float(1.0 / std::sqrt(n2));
    for (int q = 0; q < 16 * nv; ++q) out[q] *= inv;
  }
}

}  // namespace

SURF::SURF(double hessianThreshold, int nOctaves, int nOctaveLayers, bool extended, bool upright)
    : hessianThreshold_(hessianThreshold),
      nOctaves_(nOctaves),
      nOctaveLayers_(nOctaveLayers),
      extended_(extended),
      upright_(upright) {}

void SURF::detect(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, const cv::Mat& mask) const {
  keypoints.clear();
  if (image.empty() || nOctaveLayers_ < 1) return;
  const cv::Mat gray = cinza8u(image);
  CV_Assert(mask.empty() || (mask.type() == CV_8UC1 && mask.size() == gray.size()));
  const Integral I(gray);
  const float limiar = float(hessianThreshold_);
  std::vector<Camada> cs;
  for (int o = 0; o < nOctaves_ && o < 30; ++o) {
    const int passo = 1 << o;
    // Only the layers whose upper neighbour fits in the image can hold
    // keypoints; none left ends the search.
    const int kMax = std::min(nOctaveLayers_, (std::min(I.W, I.H) / passo - kLadoBase) / kLadoPasso - 1);
    if (kMax < 1) break;
    cs.resize(kMax + 2);
    for (int k = 0; k < kMax + 2; ++k) {
      cs[k].lado = (kLadoBase + kLadoPasso * k) * passo;
      calculaCamada(I, passo, cs[k]);
    }
    const int mw = cs[0].det.cols, mh = cs[0].det.rows;
    for (int k = 1; k <= kMax; ++k) {
      // The neighbours of a candidate must lie where the next layer fits.
      const int L = cs[k + 1].lado, recuo = (L / passo - 1) / 2;
      const int i0 = recuo + 1, i1 = (I.W - L) / passo + recuo - 1;
      const int j0 = recuo + 1, j1 = (I.H - L) / passo + recuo - 1;
      for (int j = std::max(j0, 1); j <= std::min(j1, mh - 2); ++j) {
        const float* linha = cs[k].det[j];
        for (int i = std::max(i0, 1); i <= std::min(i1, mw - 2); ++i) {
          const float v = linha[i];
          if (!(v > limiar) || !maximoLocal(cs.data(), k, j, i, v)) continue;
          const float centro = (passo - 1) * 0.5f;
          if (!mask.empty() && !mask.at<uchar>(j * passo + passo / 2, i * passo + passo / 2)) continue;
          cv::Vec3f d;
          if (!interpola(cs.data(), k, j, i, d)) continue;
          const float lado = cs[k].lado + d[2] * (kLadoPasso * passo);
          cv::KeyPoint kp((i + d[0]) * passo + centro, (j + d[1]) * passo + centro, float(cvRound(lado)), 0.0f, v, o,
                          cs[k].sinal(j, i));
          if (upright_ || !orientacao(I, kp.pt.x, kp.pt.y, escalaDoTamanho(kp.size), kp.angle))
            kp.angle = kAnguloUpright;
          keypoints.push_back(kp);
        }
      }
    }
  }
  std::stable_sort(keypoints.begin(), keypoints.end(),
                   [](const cv::KeyPoint& a, const cv::KeyPoint& b) { return a.response > b.response; });
}

void SURF::compute(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) const {
  const int nd = descriptorSize();
  if (image.empty()) {
    keypoints.clear();
    descriptors.create(0, nd, CV_32F);
    return;
  }
  const cv::Mat gray = cinza8u(image);
  const Integral I(gray);
  // Visiting the keypoints in raster order keeps the integral-image rows they
  // read in cache; the output keeps the input order.
  std::vector<int> ordem(keypoints.size());
  for (size_t q = 0; q < ordem.size(); ++q) ordem[q] = int(q);
  std::sort(ordem.begin(), ordem.end(), [&](int a, int b) {
    return std::make_pair(keypoints[a].pt.y, keypoints[a].pt.x) < std::make_pair(keypoints[b].pt.y, keypoints[b].pt.x);
  });
  std::vector<char> fica(keypoints.size(), 0);
  for (int q : ordem) {
    cv::KeyPoint& kp = keypoints[q];
    if (!std::isfinite(kp.pt.x) || !std::isfinite(kp.pt.y) || !std::isfinite(kp.size) || !(kp.size > 0)) continue;
    if (kp.pt.x < -0.5f || kp.pt.y < -0.5f || kp.pt.x >= I.W - 0.5f || kp.pt.y >= I.H - 0.5f) continue;
    const float escala = escalaDoTamanho(kp.size);
    // Too big for the image anyway; rounding it to int would overflow.
    if (2.0f * escala > static_cast<float>(std::max(I.W, I.H))) continue;
    const int w = 2 * cvRound(2 * escala);
    if (w > I.W || w > I.H) continue;
    if (upright_) kp.angle = kAnguloUpright;
    else if (!orientacao(I, kp.pt.x, kp.pt.y, escala, kp.angle)) continue;
    fica[q] = 1;
  }
  std::vector<int> linha(keypoints.size(), -1);
  std::vector<cv::KeyPoint> mantidos;
  mantidos.reserve(keypoints.size());
  for (size_t q = 0; q < keypoints.size(); ++q)
    if (fica[q]) {
      linha[q] = int(mantidos.size());
      mantidos.push_back(keypoints[q]);
    }
  descriptors.create(int(mantidos.size()), nd, CV_32F);
  for (int q : ordem)
    if (linha[q] >= 0) descritor(I, keypoints[q], upright_, extended_, descriptors.ptr<float>(linha[q]));
  keypoints.swap(mantidos);
}

}  // namespace features
