// Evaluation stages: ROC counts, the two curve images and the overlay, on a
// synthetic ranking whose precision falls from 1 to 0 along the file.
#include "evaluation/curvas.hpp"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

std::vector<bool> ranking(int n) {
  cv::RNG rng(7);
  std::vector<bool> certos(n);
  for (int i = 0; i < n; ++i) certos[i] = rng.uniform(0.0, 1.0) < 1.0 - double(i) / n;
  return certos;
}

void BM_PontosROC(benchmark::State& state) {
  const std::vector<bool> certos = ranking(int(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(evaluation::pontosROC(evaluation::confusoes(certos)));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_PontosROC)->Arg(1000)->Arg(100000);

void BM_CurvaROC(benchmark::State& state) {
  const auto pontos = evaluation::pontosROC(evaluation::confusoes(ranking(int(state.range(0)))));
  cv::Mat_<cv::Vec3b> img;
  for (auto _ : state) {
    evaluation::curvaROC(pontos, img, 8, cv::Vec3b(0, 0, 255));
    benchmark::DoNotOptimize(img.data);
  }
}
BENCHMARK(BM_CurvaROC)->Arg(1000)->Arg(100000);

void BM_CurvaAccRej(benchmark::State& state) {
  const auto taxas = evaluation::taxasAcerto(ranking(int(state.range(0))));
  cv::Mat_<cv::Vec3b> img;
  for (auto _ : state) {
    evaluation::curvaAccRej(taxas, img, 4, cv::Vec3b(0, 0, 255), 'r');
    benchmark::DoNotOptimize(img.data);
  }
}
BENCHMARK(BM_CurvaAccRej)->Arg(1000)->Arg(100000);

void BM_Sobrepoe(benchmark::State& state) {
  cv::Mat_<cv::Vec3b> a, b;
  evaluation::curvaROC(evaluation::pontosROC(evaluation::confusoes(ranking(5000))), a, 8, cv::Vec3b(0, 0, 255));
  evaluation::curvaAccRej(evaluation::taxasAcerto(ranking(5000)), b, 4, cv::Vec3b(255, 0, 0), 'a');
  for (auto _ : state) {
    cv::Mat_<cv::Vec3b> tela = a.clone();
    evaluation::sobrepoe(tela, b);
    benchmark::DoNotOptimize(tela.data);
  }
}
BENCHMARK(BM_Sobrepoe);

}  // namespace
