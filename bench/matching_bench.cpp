// Matching stage by stage on 5000 x 5000 real SIFT descriptors (cena::sift5000:
// images 1 and 3 against images 2 and 4): 1-NN and 2-NN, brute force and
// FLANN; the sort and the ratio selection; and the two tools whole, files
// included. Reading and writing the files alone: formats_bench.cpp.
#include "bench/cena.hpp"
#include "formats/stores.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "matching/tools.hpp"

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

}  // namespace

// Process CPU time: OpenCV's matchers spread the rows over threads.
BENCHMARK(BM_CasaNN)->ArgName("flann")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Casa2NN)->ArgName("flann")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_OrdenaNN)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SelecionaRatio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Ferramenta)->ArgNames({"ratio", "flann"})->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
