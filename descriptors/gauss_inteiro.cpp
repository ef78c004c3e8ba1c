#include "descriptors/gauss_inteiro.hpp"

#include "support/erro.hpp"

#include <opencv2/imgproc.hpp>

#include <immintrin.h>

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

// Row pass over one source row padded by m on each side: exact in 16 bits,
// since the weights sum to 256.
void somaLinha(const uint8_t* p, int w, int m, const uint16_t* k, uint16_t* h, float* f) {
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
// i - m, then the single rounding. Every float here is an exact integer
// below 2^24, so the order of the sums does not matter.
float somaColunaEm(const float* const* linhas, int x, int m, const uint16_t* k) {
  float s = k[m] * linhas[m][x];
  for (int i = 0; i < m; ++i)
    if (k[i] != 0) s += k[i] * (linhas[i][x] + linhas[2 * m - i][x]);
  return s;
}

inline uchar arredonda(float soma) { return static_cast<uchar>((static_cast<uint32_t>(soma) + 32768u) >> 16); }

void somaColuna(const float* const* linhas, int w, int m, const uint16_t* k, float* acc, uchar* d) {
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
  for (int x = 0; x < w; ++x) d[x] = arredonda(acc[x]);
}

// The same passes with the sums of 16 outputs held in registers across all
// the taps, instead of read and written back once per tap. The last few
// columns are summed one at a time: the whole-row loops above cost a fixed
// overhead per tap that dwarfs a tail of under 16 columns.
__attribute__((target("avx2"))) inline __m256i dezesseisBytes(const uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

__attribute__((target("avx2"))) void somaLinhaAvx2(const uint8_t* p, int w, int m, const uint16_t* k, float* f) {
  int x = 0;
  for (; x + 16 <= w; x += 16) {
    __m256i s = _mm256_mullo_epi16(_mm256_set1_epi16(static_cast<short>(k[m])), dezesseisBytes(p + x + m));
    for (int i = 0; i < m; ++i) {
      if (k[i] == 0) continue;
      const __m256i par = _mm256_add_epi16(dezesseisBytes(p + x + i), dezesseisBytes(p + x + 2 * m - i));
      s = _mm256_add_epi16(s, _mm256_mullo_epi16(_mm256_set1_epi16(static_cast<short>(k[i])), par));
    }
    _mm256_storeu_ps(f + x, _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(s))));
    _mm256_storeu_ps(f + x + 8, _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(s, 1))));
  }
  for (; x < w; ++x) {
    uint16_t s = static_cast<uint16_t>(k[m] * p[x + m]);
    for (int i = 0; i < m; ++i) s = static_cast<uint16_t>(s + k[i] * static_cast<uint16_t>(p[x + i] + p[x + 2 * m - i]));
    f[x] = s;
  }
}

__attribute__((target("avx2"))) void somaColunaAvx2(const float* const* linhas, int w, int m, const uint16_t* k,
                                                     uchar* d) {
  int x = 0;
  const __m256i meio = _mm256_set1_epi32(32768);
  for (; x + 16 <= w; x += 16) {
    const __m256 kc = _mm256_set1_ps(k[m]);
    __m256 s0 = _mm256_mul_ps(kc, _mm256_loadu_ps(linhas[m] + x));
    __m256 s1 = _mm256_mul_ps(kc, _mm256_loadu_ps(linhas[m] + x + 8));
    for (int i = 0; i < m; ++i) {
      if (k[i] == 0) continue;
      const __m256 ki = _mm256_set1_ps(k[i]);
      const float* a = linhas[i] + x;
      const float* b = linhas[2 * m - i] + x;
      s0 = _mm256_add_ps(s0, _mm256_mul_ps(ki, _mm256_add_ps(_mm256_loadu_ps(a), _mm256_loadu_ps(b))));
      s1 = _mm256_add_ps(s1, _mm256_mul_ps(ki, _mm256_add_ps(_mm256_loadu_ps(a + 8), _mm256_loadu_ps(b + 8))));
    }
    const __m256i r0 = _mm256_srli_epi32(_mm256_add_epi32(_mm256_cvttps_epi32(s0), meio), 16);
    const __m256i r1 = _mm256_srli_epi32(_mm256_add_epi32(_mm256_cvttps_epi32(s1), meio), 16);
    // packus works within 128-bit halves: put the four quarters back in order.
    const __m256i p16 = _mm256_permute4x64_epi64(_mm256_packus_epi32(r0, r1), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + x),
                     _mm_packus_epi16(_mm256_castsi256_si128(p16), _mm256_extracti128_si256(p16, 1)));
  }
  for (; x < w; ++x) d[x] = arredonda(somaColunaEm(linhas, x, m, k));
}

}  // namespace

void GaussInteiro::inteiro(const cv::Mat_<uchar>& src, cv::Rect regiao, cv::Mat_<uchar>& dst, Rascunho& r) const {
  dst.create(src.rows, src.cols);
  regiao &= cv::Rect(0, 0, src.cols, src.rows);
  if (regiao.empty()) return;
  static const bool avx2 = __builtin_cpu_supports("avx2");
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
    float* f = &r.horizontal[static_cast<size_t>(l - l0) * w];
    if (avx2) somaLinhaAvx2(p, w, m, pesos16_.data(), f);
    else somaLinha(p, w, m, pesos16_.data(), r.somaLinha.data(), f);
  }
  for (int y = regiao.y; y < regiao.y + regiao.height; ++y) {
    for (int i = 0; i <= 2 * m; ++i)
      r.linhas[i] = &r.horizontal[static_cast<size_t>(std::clamp(y - m + i, 0, src.rows - 1) - l0) * w];
    if (avx2) somaColunaAvx2(r.linhas.data(), w, m, pesos16_.data(), dst[y] + regiao.x);
    else somaColuna(r.linhas.data(), w, m, pesos16_.data(), r.soma.data(), dst[y] + regiao.x);
  }
}
