// Matching stage by stage on two stores of 5000 random 128-float descriptors:
// read both stores, match (1-NN and 2-NN, brute force and FLANN), sort or
// select, write the match file; and the two tools whole, for comparison.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "matching/tools.hpp"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int kN = 5000, kLargura = 128;

// The stores live in a temporary folder for the whole run.
struct Stores {
  std::string pasta, des1, des2, saida;
  ParDescritores par;
  Stores() {
    char modelo[] = "/tmp/quivelar-bench-XXXXXX";
    pasta = ::mkdtemp(modelo);
    des1 = pasta + "/des1.xml";
    des2 = pasta + "/des2.xml";
    saida = pasta + "/match.txt";
    cv::RNG rng(12345);
    for (const std::string& nome : {des1, des2}) {
      std::vector<cv::KeyPoint> kps;
      for (int i = 0; i < kN; ++i)
        kps.emplace_back(rng.uniform(0.0f, 800.0f), rng.uniform(0.0f, 600.0f), rng.uniform(2.0f, 40.0f),
                         rng.uniform(0.0f, 360.0f));
      // Whole numbers 0..255 as floats, as SIFT quantises them: the text of a
      // store, and so its reading time, is like that of a real SIFT store.
      cv::Mat inteiros(kN, kLargura, CV_32S), d;
      rng.fill(inteiros, cv::RNG::UNIFORM, 0, 256);
      inteiros.convertTo(d, CV_32F);
      formats::impDescritores(nome, kps, d);
    }
    par = leParDescritores(des1, des2);
  }
  ~Stores() {
    for (const std::string& f : {des1, des2, saida}) std::remove(f.c_str());
    ::rmdir(pasta.c_str());
  }
};

Stores& stores() {
  static Stores s;
  return s;
}

void BM_Le(benchmark::State& state) {
  const Stores& s = stores();
  for (auto _ : state) benchmark::DoNotOptimize(leParDescritores(s.des1, s.des2));
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
  OpcoesRatio opcoes;
  opcoes.ratio = 0.95;  // random data: keep a good share of the matches
  for (auto _ : state) benchmark::DoNotOptimize(selecionaRatio(listas, opcoes));
}

void BM_Grava(benchmark::State& state) {
  const Stores& s = stores();
  std::vector<cv::DMatch> matches = casaNN(s.par.descritores1, s.par.descritores2, Busca::brute);
  std::sort(matches.begin(), matches.end());
  for (auto _ : state) formats::impMatch(matches, s.par.keypoints1, s.par.keypoints2, s.saida);
}

// The tools as the dispatcher calls them, files included.
void BM_Ferramenta(benchmark::State& state) {
  const bool ratio = state.range(0) == 1;
  std::string palavras[] = {ratio ? "MatRatio" : "MatNN", stores().des1, stores().des2, stores().saida,
                            state.range(1) == 0 ? "brute" : "flann"};
  char* argv[] = {palavras[0].data(), palavras[1].data(), palavras[2].data(), palavras[3].data(),
                  palavras[4].data()};
  for (auto _ : state) (ratio ? MatRatio : MatNN)(5, argv);
}

}  // namespace

BENCHMARK(BM_Le)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_CasaNN)->ArgName("flann")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_Casa2NN)->ArgName("flann")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_OrdenaNN)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_SelecionaRatio)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_Grava)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_Ferramenta)->ArgNames({"ratio", "flann"})->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
