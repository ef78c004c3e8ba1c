// Image decoding of the first graf view (800 x 640) as PNG, JPEG and PGM:
// the direct path of tvm::le against cv::imread on the same file, so that
// skipping the codec plug-in is seen to cost nothing per image. The saving is
// the plug-in's load, a whole-process cost (hyperfine on KeySift).
#include "bench/cena.hpp"
#include "support/decodifica.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/imgcodecs.hpp>

namespace {

const char* const kExtensoes[] = {".png", ".jpg", ".pgm"};

void BM_Decodifica(benchmark::State& state) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo(std::string("img1") + kExtensoes[state.range(0)]);
  cv::imwrite(arquivo, cv::imread(std::string(QUIVELAR_DATA) + "/img1.png", cv::IMREAD_GRAYSCALE));
  const bool direto = state.range(1) == 1;
  cv::Mat imagem;
  for (auto _ : state) {
    if (direto)
      tvm::decodificaDireto(arquivo, cv::IMREAD_GRAYSCALE, imagem);
    else
      imagem = cv::imread(arquivo, cv::IMREAD_GRAYSCALE);
    benchmark::DoNotOptimize(imagem.data);
  }
  if (imagem.empty()) state.SkipWithError("imagem nao lida");
  state.SetLabel(std::string(kExtensoes[state.range(0)] + 1) + (direto ? " direto" : " imread"));
}

}  // namespace

BENCHMARK(BM_Decodifica)->ArgNames({"formato", "direto"})->ArgsProduct({{0, 1, 2}, {0, 1}})->Unit(benchmark::kMillisecond);
