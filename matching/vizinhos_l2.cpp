#include "matching/vizinhos_l2.hpp"

#include <opencv2/features2d.hpp>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>

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
    case Vetores::produto:
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

// --- Candidates by matrix product -----------------------------------------
//
// The squared distance |q|^2 + |t|^2 - 2 q.t costs one multiply-add per
// element, a third of the difference-square-sum, and runs at the core's
// product rate. It is not OpenCV's sum, so it only chooses:
// - exact data (whole numbers small enough that every partial sum of either
//   form is a whole number below 2^24, as SIFT's are): both forms are exact,
//   the product gives OpenCV's very sum and the selection runs on it;
// - any other data: the product's error and OpenCV's are bounded by
//   c (|q|^2 + |t|^2); train rows whose lower bound cannot reach the k-th
//   smallest upper bound are dropped, the others are summed again with the
//   exact kernel, in train order, and selected by OpenCV's rule.
// Either way the answer is BFMatcher's bit for bit, and no distance matrix
// is held: a tile of 12 queries by 32 train rows lives in registers.

#if defined(__x86_64__)

constexpr int kLarguraPainel = 32;   // train rows per packed panel
constexpr int kLinhasNucleo = 12;    // query rows per tile
constexpr int kPaineisBloco = 32;    // panels per train block (1024 rows)
constexpr int kConsultasTarefa = 96;  // whole tiles of query rows

// Calls f(i0, i1) over blocks of [0, rows) on OpenCV's thread pool: the
// passes over the data before the product are part of what a second thread
// must share, or they cap its gain.
template <typename F>
void porBlocos(int rows, const F& f) {
  constexpr int kBloco = 256;
  cv::parallel_for_(cv::Range(0, (rows + kBloco - 1) / kBloco), [&](const cv::Range& r) {
    f(r.start * kBloco, std::min(rows, r.end * kBloco));
  });
}

// Whole numbers in [lo, hi] with n (hi - lo)^2 and 2 n max(|lo|, |hi|)^2
// below 2^24: every partial sum of squares, products and norms is exact.
bool dadosExatos(const cv::Mat& a, const cv::Mat& b, int n) {
  std::atomic<bool> inteiros{true};
  std::mutex m;
  float lo = FLT_MAX, hi = -FLT_MAX;
  for (const cv::Mat* mat : {&a, &b})
    porBlocos(mat->rows, [&](int i0, int i1) {
      float l = FLT_MAX, h = -FLT_MAX;
      for (int i = i0; i < i1 && inteiros.load(std::memory_order_relaxed); ++i) {
        const float* p = mat->ptr<float>(i);
        for (int j = 0; j < n; ++j) {
          if (p[j] != std::nearbyint(p[j])) {
            inteiros = false;
            return;
          }
          l = std::min(l, p[j]);
          h = std::max(h, p[j]);
        }
      }
      std::lock_guard<std::mutex> trava(m);
      lo = std::min(lo, l);
      hi = std::max(hi, h);
    });
  if (!inteiros || lo > hi) return false;
  const double limite = 16777216.0, amplitude = double(hi) - lo, maior = std::max(std::fabs(lo), std::fabs(hi));
  return n * amplitude * amplitude < limite && 2.0 * n * maior * maior < limite;
}

// |r|^2 of each row, summed in double so the float result is the rounded
// true value.
void normas(const cv::Mat& m, int n, float* destino) {
  porBlocos(m.rows, [&](int i0, int i1) {
    for (int i = i0; i < i1; ++i) {
      const float* r = m.ptr<float>(i);
      double norma = 0;
      for (int k = 0; k < n; ++k) norma += double(r[k]) * r[k];
      destino[i] = float(norma);
    }
  });
}

// Train rows packed by panels: panel p holds, for each element k, the 32
// values t[32 p + l][k]; rows past the end are zeros.
struct TreinoEmPaineis {
  int paineis = 0;
  std::vector<float> valores;
  std::vector<float> normas;  // |t|^2 per row, padded
};

TreinoEmPaineis empacota(const cv::Mat& train, int n) {
  TreinoEmPaineis t;
  t.paineis = (train.rows + kLarguraPainel - 1) / kLarguraPainel;
  t.valores.assign(size_t(t.paineis) * n * kLarguraPainel, 0.f);
  t.normas.assign(size_t(t.paineis) * kLarguraPainel, 0.f);
  porBlocos(train.rows, [&](int i0, int i1) {
    for (int i = i0; i < i1; ++i) {
      const float* r = train.ptr<float>(i);
      float* painel = &t.valores[size_t(i / kLarguraPainel) * n * kLarguraPainel + i % kLarguraPainel];
      for (int k = 0; k < n; ++k) painel[size_t(k) * kLarguraPainel] = r[k];
    }
  });
  normas(train, n, t.normas.data());
  return t;
}

// What one query row keeps while the train rows pass.
struct Selecao {
  // The k best as OpenCV keeps them (distance bits and train index) and, on
  // exact data, their squared distances.
  int dist[kMaxK], idx[kMaxK];
  float quadrado[kMaxK];
  // Other data: the k smallest upper bounds, and the rows whose lower bound
  // did not exceed the k-th of them when they passed, with that bound.
  float tetos[kMaxK];
  std::vector<std::pair<int, float>> candidatos;
};

void reinicia(Selecao& s) {
  for (int i = 0; i < kMaxK; ++i) s.dist[i] = bits(FLT_MAX), s.idx[i] = -1, s.quadrado[i] = FLT_MAX;
}

// OpenCV's rule (insere) with the squared distance carried along.
void insereQuadrado(Selecao& s, int k, float quadrado, int j) {
  const int d = bits(std::sqrt(quadrado));
  if (d >= s.dist[k - 1]) return;
  int p = k - 2;
  for (; p >= 0 && s.dist[p] > d; --p) {
    s.dist[p + 1] = s.dist[p];
    s.idx[p + 1] = s.idx[p];
    s.quadrado[p + 1] = s.quadrado[p];
  }
  s.dist[p + 1] = d;
  s.idx[p + 1] = j;
  s.quadrado[p + 1] = quadrado;
}

struct Produto {
  const cv::Mat& query;
  const cv::Mat& train;
  int n, k;
  bool exato;
  float folga;  // c in the error bound c (|q|^2 + |t|^2)
  TreinoEmPaineis t;
  std::vector<float> normasQuery;
};

// 12 query rows by one panel of 32 train rows: squared distances by
// product, then each row's selection. `q` holds the rows interleaved,
// element e of row r at q[e * 12 + r] (the last row repeated past the end);
// `s` their selections (null past the end).
__attribute__((target("avx512f"))) void tileProduto(const Produto& p, const float* q, const float nq[kLinhasNucleo],
                                                    Selecao* const s[kLinhasNucleo], int painel) {
  const int n = p.n;
  const float* b = &p.t.valores[size_t(painel) * n * kLarguraPainel];
  __m512 acc[kLinhasNucleo][2];
  for (int r = 0; r < kLinhasNucleo; ++r) acc[r][0] = acc[r][1] = _mm512_setzero_ps();
  for (int e = 0; e < n; ++e) {
    const __m512 b0 = _mm512_loadu_ps(b + size_t(e) * kLarguraPainel);
    const __m512 b1 = _mm512_loadu_ps(b + size_t(e) * kLarguraPainel + 16);
    for (int r = 0; r < kLinhasNucleo; ++r) {
      const __m512 a = _mm512_set1_ps(q[size_t(e) * kLinhasNucleo + r]);
      acc[r][0] = _mm512_fmadd_ps(a, b0, acc[r][0]);
      acc[r][1] = _mm512_fmadd_ps(a, b1, acc[r][1]);
    }
  }
  const int j0 = painel * kLarguraPainel;
  const int validas = std::min(kLarguraPainel, p.train.rows - j0);
  const uint32_t mascaraValidas = validas == kLarguraPainel ? 0xffffffffu : (1u << validas) - 1;
  const float* nt = &p.t.normas[j0];
  const __m512 c = _mm512_set1_ps(p.folga);
  for (int r = 0; r < kLinhasNucleo; ++r) {
    Selecao* sel = s[r];
    if (!sel) continue;
    float d[kLarguraPainel];
    for (int h = 0; h < 2; ++h) {
      const __m512 normas = _mm512_add_ps(_mm512_set1_ps(nq[r]), _mm512_loadu_ps(nt + 16 * h));
      _mm512_storeu_ps(d + 16 * h, _mm512_sub_ps(normas, _mm512_add_ps(acc[r][h], acc[r][h])));
    }
    uint32_t m = 0;
    if (p.exato) {
      // A row at or above the k-th squared distance cannot enter: the square
      // root keeps the order, so its distance is not strictly smaller.
      const __m512 limite = _mm512_set1_ps(sel->quadrado[p.k - 1]);
      for (int h = 0; h < 2; ++h)
        m |= uint32_t(_mm512_cmp_ps_mask(_mm512_loadu_ps(d + 16 * h), limite, _CMP_LT_OQ)) << (16 * h);
      for (m &= mascaraValidas; m; m &= m - 1) {
        const int l = __builtin_ctz(m);
        insereQuadrado(*sel, p.k, d[l], j0 + l);
      }
      continue;
    }
    // d - c |t|^2 <= k-th upper bound + c |q|^2: the row's lower bound may
    // reach it (the slack in c covers these few roundings).
    const float cq = p.folga * nq[r];
    const __m512 teto = _mm512_set1_ps(sel->tetos[p.k - 1] + cq);
    for (int h = 0; h < 2; ++h) {
      const __m512 piso = _mm512_sub_ps(_mm512_loadu_ps(d + 16 * h), _mm512_mul_ps(c, _mm512_loadu_ps(nt + 16 * h)));
      m |= uint32_t(_mm512_cmp_ps_mask(piso, teto, _CMP_LE_OQ)) << (16 * h);
    }
    for (m &= mascaraValidas; m; m &= m - 1) {
      const int l = __builtin_ctz(m);
      const float margem = cq + p.folga * nt[l];
      if (d[l] - margem > sel->tetos[p.k - 1]) continue;
      sel->candidatos.emplace_back(j0 + l, d[l] - margem);
      float teto1 = d[l] + margem;
      for (int i = 0; i < p.k; ++i)
        if (teto1 < sel->tetos[i]) std::swap(teto1, sel->tetos[i]);
    }
  }
}

// The candidates of one query that the final k-th upper bound admits, summed
// again exactly in train order and selected by OpenCV's rule.
void resolve(const Produto& p, int i, Selecao& sel) {
  const float* q = p.query.ptr<float>(i);
  for (const auto& [j, piso] : sel.candidatos)
    if (piso <= sel.tetos[p.k - 1])
      insere(sel.dist, sel.idx, p.k, bits(std::sqrt(somaQuadrados(q, p.train.ptr<float>(j), p.n))), j);
  std::vector<std::pair<int, float>>().swap(sel.candidatos);
}

bool temProduto() { return temAvx512(); }

// Nothing when a squared norm reaches 1e30: distances may then overflow,
// which only the tiles treat as OpenCV does.
std::optional<std::vector<std::vector<cv::DMatch>>> vizinhosPorProduto(const cv::Mat& query, const cv::Mat& train,
                                                                       int k) {
  const int n = query.cols, nq = query.rows;
  // OpenCV's sum errs by at most (n/16 + 8) u S, the product by (2n + 8) u
  // (|q|^2 + |t|^2), and S <= 2 (|q|^2 + |t|^2); equal square roots need
  // 4 u S more. c below is about twice their sum.
  Produto p{query, train, n, k, dadosExatos(query, train, n), float((4.0 * n + 128) / 16777216.0), {}, {}};
  p.t = empacota(train, n);
  p.normasQuery.resize(nq);
  normas(query, n, p.normasQuery.data());
  const auto grande = [](float v) { return !(v < 1e30f); };
  if (std::any_of(p.normasQuery.begin(), p.normasQuery.end(), grande) ||
      std::any_of(p.t.normas.begin(), p.t.normas.end(), grande))
    return std::nullopt;
  std::vector<Selecao> sel(nq);
  for (Selecao& s : sel) {
    reinicia(s);
    for (float& t : s.tetos) t = FLT_MAX;
  }
  const int tarefas = (nq + kConsultasTarefa - 1) / kConsultasTarefa;
  cv::parallel_for_(cv::Range(0, tarefas), [&](const cv::Range& faixa) {
    // The task's query rows interleaved by tiles, as tileProduto reads them.
    std::vector<float> intercaladas(size_t(kConsultasTarefa) * n);
    for (int tarefa = faixa.start; tarefa < faixa.end; ++tarefa) {
      const int q0 = tarefa * kConsultasTarefa, q1 = std::min(nq, q0 + kConsultasTarefa);
      for (int i = q0; i < q1; i += kLinhasNucleo)
        for (int r = 0; r < kLinhasNucleo; ++r) {
          const float* linha = query.ptr<float>(std::min(i + r, q1 - 1));
          float* destino = &intercaladas[size_t(i - q0) * n + r];
          for (int e = 0; e < n; ++e) destino[size_t(e) * kLinhasNucleo] = linha[e];
        }
      for (int b0 = 0; b0 < p.t.paineis; b0 += kPaineisBloco) {
        const int b1 = std::min(p.t.paineis, b0 + kPaineisBloco);
        for (int i = q0; i < q1; i += kLinhasNucleo) {
          float nqs[kLinhasNucleo];
          Selecao* ss[kLinhasNucleo];
          for (int r = 0; r < kLinhasNucleo; ++r) {
            nqs[r] = p.normasQuery[std::min(i + r, q1 - 1)];
            ss[r] = i + r < q1 ? &sel[i + r] : nullptr;
          }
          const float* qi = &intercaladas[size_t(i - q0) * n];
          for (int painel = b0; painel < b1; ++painel) tileProduto(p, qi, nqs, ss, painel);
        }
      }
      if (!p.exato)
        for (int i = q0; i < q1; ++i) resolve(p, i, sel[i]);
    }
  });
  std::vector<std::vector<cv::DMatch>> listas(nq);
  porBlocos(nq, [&](int i0, int i1) {
    for (int i = i0; i < i1; ++i)
      for (int e = 0; e < k && sel[i].idx[e] >= 0; ++e)
        listas[i].emplace_back(i, sel[i].idx[e], 0, deBits(sel[i].dist[e]));
  });
  return listas;
}

#else

bool temProduto() { return false; }
std::optional<std::vector<std::vector<cv::DMatch>>> vizinhosPorProduto(const cv::Mat&, const cv::Mat&, int) {
  return std::nullopt;
}

#endif

}  // namespace

bool disponivel(Vetores v) {
  switch (v) {
    case Vetores::avx2:
      return temAvx2();
    case Vetores::avx512:
      return temAvx512();
    case Vetores::produto:
      return temProduto();
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
  if (v == Vetores::produto || (v == Vetores::melhor && temProduto() && nq > 0 && train.rows > 0 && query.cols > 0))
    if (auto listas = vizinhosPorProduto(query, train, k)) return *listas;
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
