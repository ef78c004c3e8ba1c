#include "matching/vizinhos_l2.hpp"

#include <opencv2/features2d.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace matching {

namespace {

// OpenCV's kernel walks a pair in steps of 16 elements, into four 4-lane
// accumulators: element e of a step goes to accumulator e / 4, lane e % 4.
constexpr int kPasso = 16;
// A tile is 2 query rows by 4 train rows.
constexpr int kTq = 2;
constexpr int kTt = 4;  // one SSE register of distances per query row
// Train rows are visited in blocks of about this many bytes, so that every
// query row of a task finds them in cache.
constexpr int kBytesBloco = 128 * 1024;
constexpr int kQueriesPorTarefa = 32;
constexpr int kMaxK = 2;

// Joins the 16 partial sums of one pair (acc[4 c + l]: accumulator c, lane
// l) as OpenCV does: accumulators ((0 + 1) + 2) + 3, then lanes
// (0 + 2) + (1 + 3).
inline float junta(const float* acc) {
  float s[4];
  for (int l = 0; l < 4; ++l) s[l] = ((acc[l] + acc[4 + l]) + acc[8 + l]) + acc[12 + l];
  return (s[0] + s[2]) + (s[1] + s[3]);
}

// The elements after the last whole step, one by one.
inline float cauda(float s, const float* a, const float* b, int j0, int n) {
  for (int j = j0; j < n; ++j) {
    const float t = a[j] - b[j];
    s += t * t;
  }
  return s;
}

inline int inteiros(int n) { return n / kPasso * kPasso; }

// Distances (square roots taken) of a tile of pairs.
using Tile = void (*)(const float* const q[kTq], const float* const t[kTt], int n, float out[kTq][kTt]);

void tileEscalar(const float* const q[kTq], const float* const t[kTt], int n, float out[kTq][kTt]) {
  for (int a = 0; a < kTq; ++a)
    for (int b = 0; b < kTt; ++b) out[a][b] = std::sqrt(somaQuadrados(q[a], t[b], n));
}

#if defined(__x86_64__)

// junta() on registers: the four accumulators of a pair, then its lanes.
inline float junta(__m128 c0, __m128 c1, __m128 c2, __m128 c3) {
  const __m128 x = _mm_add_ps(_mm_add_ps(_mm_add_ps(c0, c1), c2), c3);
  const __m128 y = _mm_add_ps(x, _mm_movehl_ps(x, x));
  return _mm_cvtss_f32(_mm_add_ss(y, _mm_shuffle_ps(y, y, 1)));
}

// The tail (when the width is not a multiple of 16) and the square roots.
inline void termina(const float* const q[kTq], const float* const t[kTt], int m, int n, float soma[kTq][kTt],
                    float out[kTq][kTt]) {
  for (int a = 0; a < kTq; ++a) {
    if (m != n)
      for (int b = 0; b < kTt; ++b) soma[a][b] = cauda(soma[a][b], q[a], t[b], m, n);
    _mm_storeu_ps(out[a], _mm_sqrt_ps(_mm_loadu_ps(soma[a])));
  }
}

// Each 8-lane register holds two of OpenCV's accumulators: one pass over
// elements 0-7 of every step, one over 8-15. No FMA: a fused multiply-add
// rounds once where OpenCV rounds twice.
__attribute__((target("avx2"))) void tileAvx2(const float* const q[kTq], const float* const t[kTt], int n,
                                              float out[kTq][kTt]) {
  const int m = inteiros(n);
  __m256 metades[2][kTq][kTt];
  for (int h = 0; h < 2; ++h) {
    __m256(&s)[kTq][kTt] = metades[h];
    for (int a = 0; a < kTq; ++a)
      for (int b = 0; b < kTt; ++b) s[a][b] = _mm256_setzero_ps();
    for (int j = 8 * h; j < m; j += kPasso) {
      __m256 x[kTq];
      for (int a = 0; a < kTq; ++a) x[a] = _mm256_loadu_ps(q[a] + j);
      for (int b = 0; b < kTt; ++b) {
        const __m256 y = _mm256_loadu_ps(t[b] + j);
        for (int a = 0; a < kTq; ++a) {
          const __m256 d = _mm256_sub_ps(x[a], y);
          s[a][b] = _mm256_add_ps(s[a][b], _mm256_mul_ps(d, d));
        }
      }
    }
  }
  float soma[kTq][kTt];
  for (int a = 0; a < kTq; ++a)
    for (int b = 0; b < kTt; ++b) {
      const __m256 A = metades[0][a][b], B = metades[1][a][b];
      soma[a][b] = junta(_mm256_castps256_ps128(A), _mm256_extractf128_ps(A, 1), _mm256_castps256_ps128(B),
                         _mm256_extractf128_ps(B, 1));
    }
  termina(q, t, m, n, soma, out);
}

// A 16-lane register holds all four accumulators of a pair.
__attribute__((target("avx512f"))) void tileAvx512(const float* const q[kTq], const float* const t[kTt], int n,
                                                   float out[kTq][kTt]) {
  const int m = inteiros(n);
  __m512 s[kTq][kTt];
  for (int a = 0; a < kTq; ++a)
    for (int b = 0; b < kTt; ++b) s[a][b] = _mm512_setzero_ps();
  for (int j = 0; j < m; j += kPasso) {
    __m512 x[kTq];
    for (int a = 0; a < kTq; ++a) x[a] = _mm512_loadu_ps(q[a] + j);
    for (int b = 0; b < kTt; ++b) {
      const __m512 y = _mm512_loadu_ps(t[b] + j);
      for (int a = 0; a < kTq; ++a) {
        const __m512 d = _mm512_sub_ps(x[a], y);
        s[a][b] = _mm512_add_ps(s[a][b], _mm512_mul_ps(d, d));
      }
    }
  }
  float soma[kTq][kTt];
  // The masked form with every lane selected: GCC 12 warns about the plain
  // one's unused merge operand.
  const __m128 zero = _mm_setzero_ps();
  for (int a = 0; a < kTq; ++a)
    for (int b = 0; b < kTt; ++b)
      soma[a][b] =
          junta(_mm512_mask_extractf32x4_ps(zero, 0xF, s[a][b], 0), _mm512_mask_extractf32x4_ps(zero, 0xF, s[a][b], 1),
                _mm512_mask_extractf32x4_ps(zero, 0xF, s[a][b], 2), _mm512_mask_extractf32x4_ps(zero, 0xF, s[a][b], 3));
  termina(q, t, m, n, soma, out);
}

bool temAvx2() { return __builtin_cpu_supports("avx2"); }
bool temAvx512() { return __builtin_cpu_supports("avx512f"); }

#else

bool temAvx2() { return false; }
bool temAvx512() { return false; }
const Tile tileAvx2 = tileEscalar;
const Tile tileAvx512 = tileEscalar;

#endif

Tile escolheTile(Vetores v) {
  switch (v) {
    case Vetores::escalar:
      return tileEscalar;
    case Vetores::avx2:
      return tileAvx2;
    case Vetores::avx512:
      return tileAvx512;
    case Vetores::melhor:
      break;
  }
  return temAvx512() ? tileAvx512 : temAvx2() ? tileAvx2 : tileEscalar;
}

// Non-negative floats order like their bit patterns; OpenCV's matcher keeps
// its k best as such integers, starting from FLT_MAX, and moves an entry
// only for a strictly smaller one.
inline int bits(float d) {
  int b;
  std::memcpy(&b, &d, sizeof b);
  return b;
}

inline float deBits(int b) {
  float d;
  std::memcpy(&d, &b, sizeof d);
  return d;
}

inline void insere(int* dist, int* idx, int k, int d, int j) {
  if (d >= dist[k - 1]) return;
  int p = k - 2;
  for (; p >= 0 && dist[p] > d; --p) {
    dist[p + 1] = dist[p];
    idx[p + 1] = idx[p];
  }
  dist[p + 1] = d;
  idx[p + 1] = j;
}

// Query rows [q0, q1) against every train row, block by block, in train
// order, so that ties resolve as in OpenCV.
void buscaTarefa(const cv::Mat& query, const cv::Mat& train, int k, int q0, int q1, Tile tile, int* dist, int* idx) {
  const int n = query.cols, nt = train.rows;
  const int porBloco = std::max(kTt, kBytesBloco / std::max(1, n * int(sizeof(float))) / kTt * kTt);
  float d[kTq][kTt];
  for (int t0 = 0; t0 < nt; t0 += porBloco) {
    const int t1 = std::min(nt, t0 + porBloco);
    for (int i = q0; i < q1; i += kTq) {
      // Rows past the end repeat the last one; their results are dropped.
      const float* qs[kTq];
      for (int a = 0; a < kTq; ++a) qs[a] = query.ptr<float>(std::min(i + a, q1 - 1));
      for (int j = t0; j < t1; j += kTt) {
        const float* ts[kTt];
        for (int b = 0; b < kTt; ++b) ts[b] = train.ptr<float>(std::min(j + b, t1 - 1));
        tile(qs, ts, n, d);
        for (int a = 0; a < kTq && i + a < q1; ++a)
          for (int b = 0; b < kTt && j + b < t1; ++b)
            insere(dist + size_t(i + a) * k, idx + size_t(i + a) * k, k, bits(d[a][b]), j + b);
      }
    }
  }
}

}  // namespace

bool disponivel(Vetores v) {
  switch (v) {
    case Vetores::avx2:
      return temAvx2();
    case Vetores::avx512:
      return temAvx512();
    default:
      return true;
  }
}

float somaQuadrados(const float* a, const float* b, int n) {
  float acc[kPasso] = {};
  const int m = inteiros(n);
  for (int j = 0; j < m; j += kPasso)
    for (int e = 0; e < kPasso; ++e) {
      const float t = a[j + e] - b[j + e];
      acc[e] += t * t;
    }
  return cauda(junta(acc), a, b, m, n);
}

std::vector<std::vector<cv::DMatch>> vizinhosL2(const cv::Mat& query, const cv::Mat& train, int k, Vetores v) {
  CV_Assert(query.type() == CV_32FC1 && train.type() == CV_32FC1 && query.cols == train.cols);
  CV_Assert(k >= 1 && k <= kMaxK && disponivel(v));
  const int nq = query.rows;
  std::vector<int> dist(size_t(nq) * k, bits(FLT_MAX)), idx(size_t(nq) * k, -1);
  const Tile tile = escolheTile(v);
  const int tarefas = (nq + kQueriesPorTarefa - 1) / kQueriesPorTarefa;
  cv::parallel_for_(cv::Range(0, tarefas), [&](const cv::Range& r) {
    for (int tarefa = r.start; tarefa < r.end; ++tarefa) {
      const int q0 = tarefa * kQueriesPorTarefa;
      buscaTarefa(query, train, k, q0, std::min(nq, q0 + kQueriesPorTarefa), tile, dist.data(), idx.data());
    }
  });
  std::vector<std::vector<cv::DMatch>> listas(nq);
  for (int i = 0; i < nq; ++i)
    for (int p = 0; p < k && idx[size_t(i) * k + p] >= 0; ++p)
      listas[i].emplace_back(i, idx[size_t(i) * k + p], 0, deBits(dist[size_t(i) * k + p]));
  return listas;
}

}  // namespace matching
