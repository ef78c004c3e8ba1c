#include "descriptors/patch.hpp"

#include "support/erro.hpp"

#include <opencv2/imgproc.hpp>

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <string>

cv::Matx23d mapaPatch(cv::Point2f centro, double escala, double theta, int metade) {
  const double c = std::cos(theta), s = std::sin(theta);
  const double a11 = escala * c, a12 = -escala * s, a21 = escala * s, a22 = escala * c;
  return cv::Matx23d(a11, a12, metade - (a11 * centro.x + a12 * centro.y),  //
                     a21, a22, metade - (a21 * centro.x + a22 * centro.y));
}

namespace {

// cv::warpAffine with linear interpolation (area interpolation is linear
// there too) and replicated borders, computed as the library computes it for
// 8-bit pixels, but straight into the patch and eight pixels at a time: the
// library's map blocks and remap calls cost more than the arithmetic. The
// map is inverted in double precision; every destination pixel gets its
// source position in fixed point with 10 fractional bits, cut to 5; its four
// neighbours weigh (32 - f) or f per axis for the 5-bit fraction f, 2^15 in
// all, and the sum is rounded once. A neighbour outside the image takes the
// nearest edge pixel.
constexpr int kBitsAB = 10;
constexpr int kBitsFracao = 5;
constexpr int kUm = 1 << kBitsFracao;
constexpr int kMeioPeso = 1 << 14;

// Integer sums wrap around as the library's vector code lets them (a far
// away keypoint saturates its coordinates first).
inline int somaCircular(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b)); }

void inverte(const cv::Matx23d& mapa, double M[6]) {
  for (int i = 0; i < 6; ++i) M[i] = mapa.val[i];
  double D = M[0] * M[4] - M[1] * M[3];
  D = D != 0 ? 1. / D : 0;
  const double A11 = M[4] * D, A22 = M[0] * D;
  M[0] = A11;
  M[1] *= -D;
  M[3] *= -D;
  M[4] = A22;
  const double b1 = -M[0] * M[2] - M[1] * M[5], b2 = -M[3] * M[2] - M[4] * M[5];
  M[2] = b1;
  M[5] = b2;
}

// One pixel, anywhere: X and Y are source positions with 5 fractional bits.
inline uchar bilinear(const cv::Mat_<uchar>& img, int X, int Y) {
  const int sx = cv::saturate_cast<short>(X >> kBitsFracao), sy = cv::saturate_cast<short>(Y >> kBitsFracao);
  const int fx = X & (kUm - 1), fy = Y & (kUm - 1);
  const int x0 = std::clamp(sx, 0, img.cols - 1), x1 = std::clamp(sx + 1, 0, img.cols - 1);
  const uchar* l0 = img[std::clamp(sy, 0, img.rows - 1)];
  const uchar* l1 = img[std::clamp(sy + 1, 0, img.rows - 1)];
  const int a = (kUm - fx) * l0[x0] + fx * l0[x1], b = (kUm - fx) * l1[x0] + fx * l1[x1];
  return static_cast<uchar>((((kUm - fy) * a + fy * b) * kUm + kMeioPeso) >> 15);
}

// One patch row. Eight pixels whose neighbours all lie inside the image (with
// two columns to spare, so that each 4-byte gather stays inside its row) are
// computed together; the others one by one.
__attribute__((target("avx2"))) void linhaAvx2(const cv::Mat_<uchar>& img, int X0, int Y0, const int* adelta,
                                                const int* bdelta, int lado, uchar* d) {
  const __m256i vX0 = _mm256_set1_epi32(X0), vY0 = _mm256_set1_epi32(Y0);
  const __m256i zero = _mm256_setzero_si256(), um = _mm256_set1_epi32(kUm), fracao = _mm256_set1_epi32(kUm - 1);
  const __m256i byte = _mm256_set1_epi32(0xFF), meio = _mm256_set1_epi32(kMeioPeso);
  const __m256i limX = _mm256_set1_epi32(img.cols - 4), limY = _mm256_set1_epi32(img.rows - 2);
  const __m256i passo = _mm256_set1_epi32(static_cast<int>(img.step));
  const int* base0 = reinterpret_cast<const int*>(img.data);
  const int* base1 = reinterpret_cast<const int*>(img.data + img.step);
  constexpr int desloca = kBitsAB - kBitsFracao;
  int x = 0;
  for (; x + 8 <= lado; x += 8) {
    const __m256i X = _mm256_srai_epi32(
        _mm256_add_epi32(vX0, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(adelta + x))), desloca);
    const __m256i Y = _mm256_srai_epi32(
        _mm256_add_epi32(vY0, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bdelta + x))), desloca);
    const __m256i sx = _mm256_srai_epi32(X, kBitsFracao), sy = _mm256_srai_epi32(Y, kBitsFracao);
    const __m256i fora = _mm256_or_si256(
        _mm256_or_si256(_mm256_cmpgt_epi32(zero, sx), _mm256_cmpgt_epi32(sx, limX)),
        _mm256_or_si256(_mm256_cmpgt_epi32(zero, sy), _mm256_cmpgt_epi32(sy, limY)));
    if (!_mm256_testz_si256(fora, fora)) {
      alignas(32) int xs[8], ys[8];
      _mm256_store_si256(reinterpret_cast<__m256i*>(xs), X);
      _mm256_store_si256(reinterpret_cast<__m256i*>(ys), Y);
      for (int k = 0; k < 8; ++k) d[x + k] = bilinear(img, xs[k], ys[k]);
      continue;
    }
    const __m256i idx = _mm256_add_epi32(_mm256_mullo_epi32(sy, passo), sx);
    const __m256i g0 = _mm256_i32gather_epi32(base0, idx, 1), g1 = _mm256_i32gather_epi32(base1, idx, 1);
    const __m256i fx = _mm256_and_si256(X, fracao), fy = _mm256_and_si256(Y, fracao);
    const __m256i gx = _mm256_sub_epi32(um, fx), gy = _mm256_sub_epi32(um, fy);
    const __m256i a = _mm256_add_epi32(_mm256_mullo_epi32(gx, _mm256_and_si256(g0, byte)),
                                       _mm256_mullo_epi32(fx, _mm256_and_si256(_mm256_srli_epi32(g0, 8), byte)));
    const __m256i b = _mm256_add_epi32(_mm256_mullo_epi32(gx, _mm256_and_si256(g1, byte)),
                                       _mm256_mullo_epi32(fx, _mm256_and_si256(_mm256_srli_epi32(g1, 8), byte)));
    const __m256i s = _mm256_slli_epi32(_mm256_add_epi32(_mm256_mullo_epi32(gy, a), _mm256_mullo_epi32(fy, b)),
                                        kBitsFracao);
    const __m256i r = _mm256_srli_epi32(_mm256_add_epi32(s, meio), 15);
    const __m128i p16 = _mm_packus_epi32(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + x), _mm_packus_epi16(p16, p16));
  }
  for (; x < lado; ++x)
    d[x] = bilinear(img, somaCircular(X0, adelta[x]) >> desloca, somaCircular(Y0, bdelta[x]) >> desloca);
}

}  // namespace

void extraiPatch(const cv::Mat_<uchar>& image, const cv::Matx23d& mapa, double escala, int lado,
                 cv::Mat_<uchar>& patch) {
  static const bool avx2 = __builtin_cpu_supports("avx2");
  if (!avx2 || image.empty()) {
    const int interpolacao = escala < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR;
    cv::warpAffine(image, patch, cv::Mat(mapa), cv::Size(lado, lado), interpolacao, cv::BORDER_REPLICATE,
                   cv::Scalar(0));
    return;
  }
  double M[6];
  inverte(mapa, M);
  constexpr double escalaAB = 1 << kBitsAB;
  constexpr int meioTab = (1 << kBitsAB) / kUm / 2;
  cv::AutoBuffer<int, 1024> deltas(2 * static_cast<size_t>(lado));
  int* adelta = deltas.data();
  int* bdelta = adelta + lado;
  for (int x = 0; x < lado; ++x) {
    adelta[x] = cv::saturate_cast<int>(M[0] * x * escalaAB);
    bdelta[x] = cv::saturate_cast<int>(M[3] * x * escalaAB);
  }
  patch.create(lado, lado);
  for (int y = 0; y < lado; ++y) {
    const int X0 = somaCircular(cv::saturate_cast<int>((M[1] * y + M[2]) * escalaAB), meioTab);
    const int Y0 = somaCircular(cv::saturate_cast<int>((M[4] * y + M[5]) * escalaAB), meioTab);
    linhaAvx2(image, X0, Y0, adelta, bdelta, lado, patch[y]);
  }
}

void validaKeyPoint(const cv::KeyPoint& k, size_t indice) {
  if (!(std::isfinite(k.size) && k.size > 0.0f && std::isfinite(k.pt.x) && std::isfinite(k.pt.y)))
    tvm::erro("Erro: keypoint ", std::to_string(indice), " com tamanho ou posicao invalida");
}
