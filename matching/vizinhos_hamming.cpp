#include "matching/vizinhos_hamming.hpp"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace matching {

namespace {

constexpr int kLinhasPainel = 8;  // train rows per panel: one 64-bit lane each of a 512-bit register
constexpr int kMaxK = 2;
// Train rows are visited in blocks of about this many bytes, half the L1
// data cache, so that a block stays there while every query row of a task
// passes over it.
constexpr int kBytesBloco = 24 * 1024;
constexpr int kConsultasTarefa = 64;

// The k best of one query row so far, as OpenCV keeps them.
struct Melhores {
  int dist[kMaxK];
  int idx[kMaxK];
};

// OpenCV's rule: strictly below the k-th slot, then behind every equal one.
inline void insere(Melhores& m, int k, int d, int j) {
  if (d >= m.dist[k - 1]) return;
  int p = k - 2;
  for (; p >= 0 && m.dist[p] > d; --p) {
    m.dist[p + 1] = m.dist[p];
    m.idx[p + 1] = m.idx[p];
  }
  m.dist[p + 1] = d;
  m.idx[p + 1] = j;
}

inline int palavrasDe(int bytes) { return (bytes + 7) / 8; }

// A row's bytes as w words, the last one zero-padded.
inline void copiaLinha(const uchar* linha, int bytes, uint64_t* destino, int w) {
  destino[w - 1] = 0;
  std::memcpy(destino, linha, bytes);
}

// Lanes (bit l: train row j0 + l) that hold a train row, `resto` = nt - j0.
inline uint32_t validas(int resto) { return resto >= 32 ? ~0u : (1u << resto) - 1; }

// One query tile against one block of train panels: `grupos` groups of P
// panels from `t`, whose first train row is j0, into the k best of the Q
// query rows q (m[r] null for a repeated row whose result is dropped).
template <int Q>
using Bloco = void (*)(const uint64_t* const q[Q], Melhores* const m[Q], const uint64_t* t, int grupos, int w,
                       int j0, int nt, int k);

// --- Scalar: 2 query rows by one panel ---------------------------------------

constexpr int kQEscalar = 2;

void blocoEscalar(const uint64_t* const q[kQEscalar], Melhores* const m[kQEscalar], const uint64_t* t, int grupos,
                  int w, int j0, int nt, int k) {
  for (int g = 0; g < grupos; ++g, t += size_t(w) * kLinhasPainel, j0 += kLinhasPainel) {
    int d[kQEscalar][kLinhasPainel] = {};
    for (int p = 0; p < w; ++p)
      for (int l = 0; l < kLinhasPainel; ++l) {
        const uint64_t palavra = t[p * kLinhasPainel + l];
        for (int r = 0; r < kQEscalar; ++r) d[r][l] += __builtin_popcountll(q[r][p] ^ palavra);
      }
    const int linhas = std::min(kLinhasPainel, nt - j0);
    for (int r = 0; r < kQEscalar; ++r)
      if (m[r])
        for (int l = 0; l < linhas; ++l) insere(*m[r], k, d[r][l], j0 + l);
  }
}

#if defined(__x86_64__)

// --- AVX2: 4 query rows by one panel (two registers) -------------------------
//
// No vector popcount: each nibble's count comes from a 16-entry table by
// vpshufb. A byte's count (at most 8 per word) is summed over up to 31 words
// before it could pass 255, then vpsadbw folds 8 bytes into one lane: the
// lane of train row l.

constexpr int kQAvx2 = 4;
constexpr int kPalavrasPorByte = 31;

// Each byte's bit count.
__attribute__((target("avx2"))) inline __m256i contaBytes(__m256i x, __m256i tabela, __m256i nibble) {
  return _mm256_add_epi8(_mm256_shuffle_epi8(tabela, _mm256_and_si256(x, nibble)),
                         _mm256_shuffle_epi8(tabela, _mm256_and_si256(_mm256_srli_epi16(x, 4), nibble)));
}

__attribute__((target("avx2"))) void blocoAvx2(const uint64_t* const q[kQAvx2], Melhores* const m[kQAvx2],
                                               const uint64_t* t, int grupos, int w, int j0, int nt, int k) {
  const __m256i tabela = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4, 0, 1, 1, 2, 1, 2, 2, 3, 1, 2,
                                          2, 3, 2, 3, 3, 4);
  const __m256i nibble = _mm256_set1_epi8(0x0f), zero = _mm256_setzero_si256();
  for (int g = 0; g < grupos; ++g, t += size_t(w) * kLinhasPainel, j0 += kLinhasPainel) {
    __m256i soma[kQAvx2][2];
    for (auto& s : soma) s[0] = s[1] = zero;
    for (int p0 = 0; p0 < w; p0 += kPalavrasPorByte) {
      __m256i bytes[kQAvx2][2];
      for (auto& b : bytes) b[0] = b[1] = zero;
      for (int p = p0; p < std::min(w, p0 + kPalavrasPorByte); ++p) {
        const __m256i t0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + p * kLinhasPainel));
        const __m256i t1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + p * kLinhasPainel + 4));
        for (int r = 0; r < kQAvx2; ++r) {
          const __m256i b = _mm256_set1_epi64x(static_cast<long long>(q[r][p]));
          bytes[r][0] = _mm256_add_epi8(bytes[r][0], contaBytes(_mm256_xor_si256(t0, b), tabela, nibble));
          bytes[r][1] = _mm256_add_epi8(bytes[r][1], contaBytes(_mm256_xor_si256(t1, b), tabela, nibble));
        }
      }
      for (int r = 0; r < kQAvx2; ++r)
        for (int h = 0; h < 2; ++h) soma[r][h] = _mm256_add_epi64(soma[r][h], _mm256_sad_epu8(bytes[r][h], zero));
    }
    const uint32_t dentro = validas(nt - j0);
    for (int r = 0; r < kQAvx2; ++r) {
      if (!m[r]) continue;
      const __m256i limite = _mm256_set1_epi64x(m[r]->dist[k - 1]);
      uint32_t abaixo = 0;
      for (int h = 0; h < 2; ++h)
        abaixo |= uint32_t(_mm256_movemask_pd(_mm256_castsi256_pd(_mm256_cmpgt_epi64(limite, soma[r][h])))) << (4 * h);
      abaixo &= dentro;
      if (!abaixo) continue;
      alignas(32) int64_t d[kLinhasPainel];
      for (int h = 0; h < 2; ++h) _mm256_store_si256(reinterpret_cast<__m256i*>(d + 4 * h), soma[r][h]);
      for (; abaixo; abaixo &= abaixo - 1) {
        const int l = __builtin_ctz(abaixo);
        insere(*m[r], k, int(d[l]), j0 + l);
      }
    }
  }
}

// --- AVX-512 VPOPCNTDQ: 4 query rows by 4 panels ------------------------------
//
// 16 accumulators of 8 distances, 4 train registers and one broadcast query
// word: each loaded train word serves 4 query rows, each query word 32 train
// rows. Per popcount one xor and one add, no horizontal sum.

constexpr int kQAvx512 = 4;
constexpr int kPAvx512 = 4;

#define QUIVELAR_AVX512 __attribute__((target("avx512f,avx512vpopcntdq")))

// Word p of the tile's pairs into the accumulators; the first word sets them.
template <bool kPrimeira>
QUIVELAR_AVX512 __attribute__((always_inline)) inline void somaPalavra(__m512i (&acc)[kQAvx512][kPAvx512],
                                                                      const uint64_t* const q[kQAvx512],
                                                                      const uint64_t* t, size_t passoPainel, int p) {
  __m512i tp[kPAvx512];
  for (int c = 0; c < kPAvx512; ++c) tp[c] = _mm512_load_si512(t + c * passoPainel + p * kLinhasPainel);
  for (int r = 0; r < kQAvx512; ++r) {
    const __m512i b = _mm512_set1_epi64(static_cast<long long>(q[r][p]));
    for (int c = 0; c < kPAvx512; ++c) {
      const __m512i n = _mm512_popcnt_epi64(_mm512_xor_si512(tp[c], b));
      acc[r][c] = kPrimeira ? n : _mm512_add_epi64(acc[r][c], n);
    }
  }
}

// kPalavras > 0: the width known when compiling (ORB's 4 words, BRISK's 8),
// so that the word loop unrolls; 0: any width, w.
template <int kPalavras>
QUIVELAR_AVX512 void blocoAvx512(const uint64_t* const q[kQAvx512], Melhores* const m[kQAvx512], const uint64_t* t,
                                 int grupos, int w, int j0, int nt, int k) {
  if (kPalavras > 0) w = kPalavras;
  const size_t passoPainel = size_t(w) * kLinhasPainel;
  for (int g = 0; g < grupos; ++g, t += kPAvx512 * passoPainel, j0 += kPAvx512 * kLinhasPainel) {
    __m512i acc[kQAvx512][kPAvx512];
    somaPalavra<true>(acc, q, t, passoPainel, 0);
    for (int p = 1; p < w; ++p) somaPalavra<false>(acc, q, t, passoPainel, p);
    // Most groups change nothing: one test on the lane minimum first.
    const uint32_t dentro = validas(nt - j0);
#pragma GCC unroll 4
    for (int r = 0; r < kQAvx512; ++r) {
      if (!m[r]) continue;
      const __m512i limite = _mm512_set1_epi64(m[r]->dist[k - 1]);
      // The zero-masked form with every lane selected: GCC 12 warns about the
      // plain one's undefined merge operand.
      __m512i menor = acc[r][0];
      for (int c = 1; c < kPAvx512; ++c) menor = _mm512_maskz_min_epu64(0xFF, menor, acc[r][c]);
      if (!_mm512_cmplt_epu64_mask(menor, limite)) continue;
      uint32_t abaixo = 0;
      for (int c = 0; c < kPAvx512; ++c)
        abaixo |= uint32_t(_mm512_cmplt_epi64_mask(acc[r][c], limite)) << (kLinhasPainel * c);
      abaixo &= dentro;
      if (!abaixo) continue;
      alignas(64) int64_t d[kPAvx512 * kLinhasPainel];
      for (int c = 0; c < kPAvx512; ++c) _mm512_store_si512(d + kLinhasPainel * c, acc[r][c]);
      for (; abaixo; abaixo &= abaixo - 1) {
        const int l = __builtin_ctz(abaixo);
        insere(*m[r], k, int(d[l]), j0 + l);
      }
    }
  }
}

bool temAvx2() { return __builtin_cpu_supports("avx2"); }
bool temAvx512() { return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vpopcntdq"); }

#else

bool temAvx2() { return false; }
bool temAvx512() { return false; }

#endif

// A 64-byte aligned buffer of zeroed words (aligned panel loads).
class Alinhadas {
 public:
  explicit Alinhadas(size_t n) : dados_(n + 8, 0) {
    const size_t resto = reinterpret_cast<uintptr_t>(dados_.data()) % 64;
    inicio_ = dados_.data() + (64 - resto) % 64 / sizeof(uint64_t);
  }
  Alinhadas(const Alinhadas&) = delete;
  Alinhadas& operator=(const Alinhadas&) = delete;
  uint64_t* data() { return inicio_; }

 private:
  std::vector<uint64_t> dados_;
  uint64_t* inicio_;
};

// Train rows into panels (vizinhos_hamming.hpp): row i, word p at
// panel i / 8, offset p * 8 + i % 8. Rows past the end stay zero and are
// masked at selection.
void empacota(const cv::Mat& train, int w, uint64_t* destino) {
  std::vector<uint64_t> linha(w);
  for (int i = 0; i < train.rows; ++i) {
    copiaLinha(train.ptr(i), train.cols, linha.data(), w);
    uint64_t* painel = destino + size_t(i / kLinhasPainel) * w * kLinhasPainel + i % kLinhasPainel;
    for (int p = 0; p < w; ++p) painel[p * kLinhasPainel] = linha[p];
  }
}

// Query rows in tasks of kConsultasTarefa over OpenCV's threads; in each, the
// train blocks in order, every query tile over each block.
template <int Q, int P, Bloco<Q> bloco>
void busca(const cv::Mat& query, const cv::Mat& train, int k, Melhores* melhores) {
  static_assert(P * kLinhasPainel <= 32, "one bit per lane of a group");
  const int bytes = query.cols, w = palavrasDe(bytes), nq = query.rows, nt = train.rows;
  const int grupos = (nt + P * kLinhasPainel - 1) / (P * kLinhasPainel);
  const size_t palavrasGrupo = size_t(P) * w * kLinhasPainel;
  Alinhadas paineis(grupos * palavrasGrupo);
  empacota(train, w, paineis.data());
  const int gruposBloco = std::max<int>(1, kBytesBloco / (palavrasGrupo * sizeof(uint64_t)));
  const int tarefas = (nq + kConsultasTarefa - 1) / kConsultasTarefa;
  cv::parallel_for_(cv::Range(0, tarefas), [&](const cv::Range& faixa) {
    std::vector<uint64_t> consultas(size_t(kConsultasTarefa) * w);
    for (int tarefa = faixa.start; tarefa < faixa.end; ++tarefa) {
      const int q0 = tarefa * kConsultasTarefa, q1 = std::min(nq, q0 + kConsultasTarefa);
      for (int i = q0; i < q1; ++i) copiaLinha(query.ptr(i), bytes, &consultas[size_t(i - q0) * w], w);
      for (int g0 = 0; g0 < grupos; g0 += gruposBloco) {
        const int g1 = std::min(grupos, g0 + gruposBloco);
        for (int i = q0; i < q1; i += Q) {
          // Rows past the end repeat the last one; their results are dropped.
          const uint64_t* qs[Q];
          Melhores* ms[Q];
          for (int a = 0; a < Q; ++a) {
            qs[a] = &consultas[size_t(std::min(i + a, q1 - 1) - q0) * w];
            ms[a] = i + a < q1 ? &melhores[i + a] : nullptr;
          }
          bloco(qs, ms, paineis.data() + g0 * palavrasGrupo, g1 - g0, w, g0 * P * kLinhasPainel, nt, k);
        }
      }
    }
  });
}

VetoresHamming escolhe(VetoresHamming v) {
  if (v != VetoresHamming::melhor) return v;
  return temAvx512() ? VetoresHamming::avx512 : temAvx2() ? VetoresHamming::avx2 : VetoresHamming::escalar;
}

}  // namespace

bool disponivel(VetoresHamming v) {
  switch (v) {
    case VetoresHamming::avx2:
      return temAvx2();
    case VetoresHamming::avx512:
      return temAvx512();
    default:
      return true;
  }
}

std::vector<std::vector<cv::DMatch>> vizinhosHamming(const cv::Mat& query, const cv::Mat& train, int k,
                                                     VetoresHamming v) {
  CV_Assert(query.type() == CV_8UC1 && train.type() == CV_8UC1);
  CV_Assert(k >= 1 && k <= kMaxK && disponivel(v));
  std::vector<std::vector<cv::DMatch>> listas;
  if (query.empty()) return listas;
  CV_Assert(query.dims == 2 && train.dims == 2 && query.cols == train.cols);
  const int nq = query.rows;
  std::vector<Melhores> melhores(nq, Melhores{{INT_MAX, INT_MAX}, {-1, -1}});
  if (train.rows > 0) switch (escolhe(v)) {
#if defined(__x86_64__)
      case VetoresHamming::avx512:
        if (palavrasDe(query.cols) == 4)
          busca<kQAvx512, kPAvx512, blocoAvx512<4>>(query, train, k, melhores.data());
        else if (palavrasDe(query.cols) == 8)
          busca<kQAvx512, kPAvx512, blocoAvx512<8>>(query, train, k, melhores.data());
        else
          busca<kQAvx512, kPAvx512, blocoAvx512<0>>(query, train, k, melhores.data());
        break;
      case VetoresHamming::avx2:
        busca<kQAvx2, 1, blocoAvx2>(query, train, k, melhores.data());
        break;
#endif
      default:
        busca<kQEscalar, 1, blocoEscalar>(query, train, k, melhores.data());
    }
  // The lists allocate: built on every thread, or they would cap the gain of
  // a second one.
  listas.resize(nq);
  constexpr int kLinhasFaixa = 256;
  cv::parallel_for_(cv::Range(0, (nq + kLinhasFaixa - 1) / kLinhasFaixa), [&](const cv::Range& faixa) {
    for (int i = faixa.start * kLinhasFaixa; i < std::min(nq, faixa.end * kLinhasFaixa); ++i)
      for (int e = 0; e < k && melhores[i].idx[e] >= 0; ++e)
        listas[i].emplace_back(i, melhores[i].idx[e], 0, float(melhores[i].dist[e]));
  });
  return listas;
}

}  // namespace matching
