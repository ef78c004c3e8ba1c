// Matching stage by stage on 5000 x 5000 real SIFT descriptors (cena::sift5000:
// images 1 and 3 against images 2 and 4): 1-NN and 2-NN, brute force and
// FLANN; the sort and the ratio selection; and the two tools whole, files
// included. Reading and writing the files alone: formats_bench.cpp. Binary
// rows by Hamming distance: 10,000 x 10,000 random rows, beside the core's
// popcount peak.
#include "bench/cena.hpp"
#include "formats/stores.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "matching/tools.hpp"
#include "matching/vizinhos_hamming.hpp"
#include "matching/vizinhos_l2.hpp"

#include <immintrin.h>
#include <sys/resource.h>

#include <algorithm>
#include <string>

namespace {

struct Stores {
  cena::PastaTemp pasta;
  std::string des1, des2, saida;
  ParDescritores par;
  Stores() : des1(pasta.arquivo("des1.xml")), des2(pasta.arquivo("des2.xml")), saida(pasta.arquivo("match.txt")) {
    const cena::Descritores a = cena::sift5000(1, 3), b = cena::sift5000(2, 4);
    formats::impDescritores(des1, a.keypoints, a.descriptors);
    formats::impDescritores(des2, b.keypoints, b.descriptors);
    par = {a.keypoints, b.keypoints, a.descriptors, b.descriptors};
  }
};

Stores& stores() {
  static Stores s;
  return s;
}

void BM_CasaNN(benchmark::State& state) {
  const Busca modo = static_cast<Busca>(state.range(0));
  const ParDescritores& par = stores().par;
  for (auto _ : state) benchmark::DoNotOptimize(casaNN(par.descritores1, par.descritores2, modo));
}

void BM_Casa2NN(benchmark::State& state) {
  const Busca modo = static_cast<Busca>(state.range(0));
  const ParDescritores& par = stores().par;
  for (auto _ : state) benchmark::DoNotOptimize(casa2NN(par.descritores1, par.descritores2, modo));
}

void BM_OrdenaNN(benchmark::State& state) {
  const std::vector<cv::DMatch> matches = casaNN(stores().par.descritores1, stores().par.descritores2, Busca::brute);
  for (auto _ : state) {
    std::vector<cv::DMatch> m = matches;
    std::sort(m.begin(), m.end());
    benchmark::DoNotOptimize(m.data());
  }
}

void BM_SelecionaRatio(benchmark::State& state) {
  const auto listas = casa2NN(stores().par.descritores1, stores().par.descritores2, Busca::brute);
  const OpcoesRatio opcoes;
  for (auto _ : state) benchmark::DoNotOptimize(selecionaRatio(listas, opcoes));
}

// The tools as the dispatcher calls them: both stores read, the match file
// written.
void BM_Ferramenta(benchmark::State& state) {
  const bool ratio = state.range(0) == 1;
  std::string palavras[] = {ratio ? "MatRatio" : "MatNN", stores().des1, stores().des2, stores().saida,
                            state.range(1) == 0 ? "brute" : "flann"};
  char* argv[] = {palavras[0].data(), palavras[1].data(), palavras[2].data(), palavras[3].data(),
                  palavras[4].data()};
  for (auto _ : state) (ratio ? MatRatio : MatNN)(5, argv);
}

// Brute-force k-NN, 5000 x 5000 x 128, one thread or all: OpenCV's BFMatcher
// (path 0), the tiles summing every pair in its order (1), candidates by
// matrix product (2); threads 1, or -1 for OpenCV's default (all cores).
// GFLOP/s counts the product's 2 n flops per pair.
void BM_ForcaBruta(benchmark::State& state) {
  const ParDescritores& par = stores().par;
  const int caminho = int(state.range(0)), k = int(state.range(1)), antes = cv::getNumThreads();
  cv::setNumThreads(int(state.range(2)));
  for (auto _ : state) {
    std::vector<std::vector<cv::DMatch>> r;
    if (caminho == 0)
      cv::BFMatcher(cv::NORM_L2).knnMatch(par.descritores1, par.descritores2, r, k);
    else
      r = matching::vizinhosL2(par.descritores1, par.descritores2, k,
                               caminho == 1 ? matching::Vetores::avx512 : matching::Vetores::produto);
    benchmark::DoNotOptimize(r.data());
  }
  cv::setNumThreads(antes);
  const double flops = 2.0 * par.descritores1.rows * par.descritores2.rows * par.descritores1.cols;
  state.counters["GFLOP/s"] = benchmark::Counter(flops * 1e-9 * state.iterations(), benchmark::Counter::kIsRate);
}

// 100,000 x 100,000 x 128 whole-number descriptors (SIFT's kind of values), 1-NN
// with all threads; peak memory of the process beside the time. Minutes for
// BFMatcher: run it alone with --benchmark_filter=BM_CemMil.
void BM_CemMil(benchmark::State& state) {
  static const cv::Mat a = [] {
    cv::Mat m(100000, 128, CV_32F);
    cv::RNG(1).fill(m, cv::RNG::UNIFORM, 0, 64);
    m.forEach<float>([](float& v, const int*) { v = std::floor(v); });
    return m;
  }();
  static const cv::Mat b = [] {
    cv::Mat m(100000, 128, CV_32F);
    cv::RNG(2).fill(m, cv::RNG::UNIFORM, 0, 64);
    m.forEach<float>([](float& v, const int*) { v = std::floor(v); });
    return m;
  }();
  for (auto _ : state) {
    std::vector<std::vector<cv::DMatch>> r;
    if (state.range(0) == 0)
      cv::BFMatcher(cv::NORM_L2).knnMatch(a, b, r, 1);
    else
      r = matching::vizinhosL2(a, b, 1, matching::Vetores::produto);
    benchmark::DoNotOptimize(r.data());
  }
  rusage uso{};
  getrusage(RUSAGE_SELF, &uso);
  state.counters["pico_MB"] = double(uso.ru_maxrss) / 1024;
  state.counters["GFLOP/s"] =
      benchmark::Counter(2.0 * a.rows * b.rows * a.cols * 1e-9 * state.iterations(), benchmark::Counter::kIsRate);
}

// The core's peak: independent AVX-512 multiply-adds on registers, enough
// chains to hide their latency. The yardstick for GFLOP/s above.
__attribute__((target("avx512f"))) void BM_PicoFMA(benchmark::State& state) {
  if (!__builtin_cpu_supports("avx512f")) {
    state.SkipWithError("sem AVX-512");
    return;
  }
  constexpr int kCadeias = 16, kVoltas = 1 << 16;
  for (auto _ : state) {
    __m512 acc[kCadeias];
    for (int c = 0; c < kCadeias; ++c) acc[c] = _mm512_set1_ps(float(c));
    const __m512 a = _mm512_set1_ps(0.999f), b = _mm512_set1_ps(1e-3f);
    for (int v = 0; v < kVoltas; ++v)
      for (int c = 0; c < kCadeias; ++c) acc[c] = _mm512_fmadd_ps(acc[c], a, b);
    alignas(64) float v[16];
    for (int c = 1; c < kCadeias; ++c) acc[0] = _mm512_add_ps(acc[0], acc[c]);
    _mm512_store_ps(v, acc[0]);
    benchmark::DoNotOptimize(v[0]);
  }
  state.counters["GFLOP/s"] =
      benchmark::Counter(2.0 * 16 * kCadeias * kVoltas * 1e-9 * state.iterations(), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_PicoFMA)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_ForcaBruta)
    ->ArgNames({"caminho", "k", "threads"})
    ->ArgsProduct({{0, 1, 2}, {1, 2}, {1, -1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_CemMil)->ArgName("produto")->Arg(1)->Arg(0)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

// Process CPU time: OpenCV's matchers spread the rows over threads.
BENCHMARK(BM_CasaNN)->ArgName("flann")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Casa2NN)->ArgName("flann")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_OrdenaNN)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SelecionaRatio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Ferramenta)->ArgNames({"ratio", "flann"})->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// --- Hamming ------------------------------------------------------------------

namespace {

// 10,000 x 10,000 random rows of ORB's width (32 bytes) or BRISK's (64).
struct Binarias {
  cv::Mat query, train;
};

const Binarias& binarias(int bytes) {
  const auto gera = [](int largura) {
    Binarias b{cv::Mat(10000, largura, CV_8U), cv::Mat(10000, largura, CV_8U)};
    cv::RNG(largura).fill(b.query, cv::RNG::UNIFORM, 0, 256);
    cv::RNG(largura + 1).fill(b.train, cv::RNG::UNIFORM, 0, 256);
    return b;
  };
  static const Binarias orb = gera(32), brisk = gera(64);
  return bytes == 32 ? orb : brisk;
}

// BFMatcher(NORM_HAMMING) (path 0) against vizinhosHamming on the fastest
// path (1), on 1 or 2 OpenCV threads. Gpalavras/s: 64-bit words popcounted
// per second, one per word of every pair, to read against BM_PicoPopcnt.
void BM_ForcaBrutaHamming(benchmark::State& state) {
  const Binarias& b = binarias(int(state.range(1)));
  const int k = int(state.range(2)), antes = cv::getNumThreads();
  cv::setNumThreads(int(state.range(3)));
  for (auto _ : state) {
    std::vector<std::vector<cv::DMatch>> r;
    if (state.range(0) == 0)
      cv::BFMatcher(cv::NORM_HAMMING).knnMatch(b.query, b.train, r, k);
    else
      r = matching::vizinhosHamming(b.query, b.train, k);
    benchmark::DoNotOptimize(r.data());
  }
  cv::setNumThreads(antes);
  const double palavras = double(b.query.rows) * b.train.rows * ((b.query.cols + 7) / 8);
  state.counters["Gpalavras/s"] =
      benchmark::Counter(palavras * 1e-9 * state.iterations(), benchmark::Counter::kIsRate);
}

// The core's popcount peak: independent AVX-512 VPOPCNTQ chains on
// registers, enough of them to hide the latency. Gpalavras/s as above.
__attribute__((target("avx512f,avx512vpopcntdq"))) void BM_PicoPopcnt(benchmark::State& state) {
  if (!__builtin_cpu_supports("avx512vpopcntdq")) {
    state.SkipWithError("sem AVX-512 VPOPCNTDQ");
    return;
  }
  constexpr int kCadeias = 16, kVoltas = 1 << 16;
  for (auto _ : state) {
    __m512i x[kCadeias];
    for (int c = 0; c < kCadeias; ++c) x[c] = _mm512_set1_epi64(0x0123456789abcdefLL + c);
    benchmark::DoNotOptimize(x);  // no constant folding of the chains
    for (int v = 0; v < kVoltas; ++v)
      for (int c = 0; c < kCadeias; ++c) x[c] = _mm512_popcnt_epi64(x[c]);
    for (int c = 1; c < kCadeias; ++c) x[0] = _mm512_add_epi64(x[0], x[c]);
    alignas(64) long long v[8];
    _mm512_store_si512(v, x[0]);
    benchmark::DoNotOptimize(v[0]);
  }
  state.counters["Gpalavras/s"] =
      benchmark::Counter(8.0 * kCadeias * kVoltas * 1e-9 * state.iterations(), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_PicoPopcnt)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_ForcaBrutaHamming)
    ->ArgNames({"caminho", "bytes", "k", "threads"})
    ->ArgsProduct({{0, 1}, {32, 64}, {1, 2}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
