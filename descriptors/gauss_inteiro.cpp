#include "descriptors/gauss_inteiro.hpp"

#include "support/erro.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>
#include <string>

GaussInteiro::GaussInteiro(int lado) : lado_(lado), meio_(lado / 2) {
  if (lado < 1 || lado % 2 == 0) tvm::erro("Erro: lado do filtro gaussiano deve ser impar e positivo: ", std::to_string(lado));
  // A row-only blur of an impulse of 255: the weight k comes back as
  // round(255 k / 256), which is k itself for every k up to 128. Only the
  // centre weight can exceed 128, so it is taken as what the sum leaves.
  cv::Mat_<uchar> impulso(1, 2 * lado + 1, uchar(0)), resposta;
  impulso(0, lado) = 255;
  cv::GaussianBlur(impulso, resposta, cv::Size(lado, 1), 0.0, 0.0, cv::BORDER_CONSTANT);
  pesos_.resize(lado);
  int soma = 0;
  for (int i = 0; i < lado; ++i) {
    pesos_[i] = resposta(0, lado + meio_ - i);
    if (i != meio_) soma += pesos_[i];
  }
  pesos_[meio_] = 256 - soma;
  bool simetrico = pesos_[meio_] >= 0;
  for (int i = 0; i < meio_; ++i) simetrico = simetrico && pesos_[i] == pesos_[lado - 1 - i];
  pesos16_.assign(pesos_.begin(), pesos_.end());
  exato_ = simetrico && confere();
}

// Noise and hard black/white patterns, some narrower than the kernel, so that
// sums at their extremes and the replicated borders are all exercised.
bool GaussInteiro::confere() const {
  cv::RNG rng(0x51a7);
  const int base = std::min(lado_, 48);
  const cv::Size tamanhos[] = {{base + 13, base + 9}, {base / 2 + 3, base / 3 + 2}, {1, 5}, {7, 1}};
  Rascunho r;
  for (int t = 0; t < 8; ++t) {
    cv::Mat_<uchar> src(tamanhos[t % 4]), esperado, obtido;
    rng.fill(src, cv::RNG::UNIFORM, 0, 256);
    if (t >= 4) src.forEach([](uchar& v, const int*) { v = v < 128 ? 0 : 255; });
    cv::GaussianBlur(src, esperado, cv::Size(lado_, lado_), 0.0, 0.0, cv::BORDER_REPLICATE);
    inteiro(src, cv::Rect(0, 0, src.cols, src.rows), obtido, r);
    if (cv::norm(esperado, obtido, cv::NORM_INF) != 0.0) return false;
  }
  return true;
}

void GaussInteiro::suaviza(const cv::Mat_<uchar>& src, cv::Rect regiao, cv::Mat_<uchar>& dst, Rascunho& r) const {
  CV_Assert(src.data != dst.data || src.empty());
  if (!exato_) {
    cv::GaussianBlur(src, dst, cv::Size(lado_, lado_), 0.0, 0.0, cv::BORDER_REPLICATE);
    return;
  }
  inteiro(src, regiao, dst, r);
}

namespace {

// The two passes are built for AVX2 as well as for the baseline, the better
// one chosen when the program starts: integer sums are the same either way.
#define QUIVELAR_CLONES __attribute__((target_clones("avx2", "default")))

// Row pass over one source row padded by m on each side: exact in 16 bits,
// since the weights sum to 256.
QUIVELAR_CLONES void somaLinha(const uint8_t* p, int w, int m, const uint16_t* k, uint16_t* h, float* f) {
  const uint16_t kc = k[m];
  for (int x = 0; x < w; ++x) h[x] = static_cast<uint16_t>(kc * p[x + m]);
  for (int i = 0; i < m; ++i) {
    const uint16_t ki = k[i];
    if (ki == 0) continue;
    const uint8_t* a = p + i;
    const uint8_t* b = p + 2 * m - i;
    for (int x = 0; x < w; ++x) h[x] = static_cast<uint16_t>(h[x] + ki * static_cast<uint16_t>(a[x] + b[x]));
  }
  for (int x = 0; x < w; ++x) f[x] = h[x];
}

// Column pass for one output row; linhas[i] is the row-pass row at offset
// i - m, then the single rounding.
QUIVELAR_CLONES void somaColuna(const float* const* linhas, int w, int m, const uint16_t* k, float* acc, uchar* d) {
  const float kc = k[m];
  const float* c = linhas[m];
  for (int x = 0; x < w; ++x) acc[x] = kc * c[x];
  for (int i = 0; i < m; ++i) {
    if (k[i] == 0) continue;
    const float ki = k[i];
    const float* a = linhas[i];
    const float* b = linhas[2 * m - i];
    for (int x = 0; x < w; ++x) acc[x] += ki * (a[x] + b[x]);
  }
  for (int x = 0; x < w; ++x) d[x] = static_cast<uchar>((static_cast<uint32_t>(acc[x]) + 32768u) >> 16);
}

}  // namespace

void GaussInteiro::inteiro(const cv::Mat_<uchar>& src, cv::Rect regiao, cv::Mat_<uchar>& dst, Rascunho& r) const {
  dst.create(src.rows, src.cols);
  regiao &= cv::Rect(0, 0, src.cols, src.rows);
  if (regiao.empty()) return;
  const int m = meio_, w = regiao.width;
  // Rows of the image that the column pass reads (replicated rows repeat
  // the edge row, so each is computed once).
  const int l0 = std::max(0, regiao.y - m), l1 = std::min(src.rows, regiao.y + regiao.height + m);
  r.linha.resize(static_cast<size_t>(w + 2 * m));
  r.somaLinha.resize(static_cast<size_t>(w));
  r.horizontal.resize(static_cast<size_t>(l1 - l0) * w);
  r.soma.resize(static_cast<size_t>(w));
  r.linhas.resize(static_cast<size_t>(2 * m + 1));

  for (int l = l0; l < l1; ++l) {
    const uchar* s = src[l];
    uint8_t* p = r.linha.data();
    // The row with m pixels of margin each side, edges replicated.
    const int x0 = regiao.x - m, dentro0 = std::max(0, -x0), dentro1 = std::min(w + 2 * m, src.cols - x0);
    std::fill(p, p + dentro0, s[0]);
    std::memcpy(p + dentro0, s + x0 + dentro0, static_cast<size_t>(dentro1 - dentro0));
    std::fill(p + dentro1, p + w + 2 * m, s[src.cols - 1]);
    somaLinha(p, w, m, pesos16_.data(), r.somaLinha.data(), &r.horizontal[static_cast<size_t>(l - l0) * w]);
  }
  for (int y = regiao.y; y < regiao.y + regiao.height; ++y) {
    for (int i = 0; i <= 2 * m; ++i)
      r.linhas[i] = &r.horizontal[static_cast<size_t>(std::clamp(y - m + i, 0, src.rows - 1) - l0) * w];
    somaColuna(r.linhas.data(), w, m, pesos16_.data(), r.soma.data(), dst[y] + regiao.x);
  }
}
