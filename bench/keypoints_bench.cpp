// Keypoint stage: each detector (SIFT, SURF, FAST, STAR) as the Key* tools
// configure it, on graf images 1 and 3; the synthetic pair generator; the
// KeyGrande selection.
#include "bench/cena.hpp"
#include "formats/transform.hpp"
#include "keypoints/key_detect.hpp"
#include "keypoints/key_edit.hpp"
#include "keypoints/key_rand.hpp"

#include <string>

namespace {

using cena::graf;

void contaKeypoints(benchmark::State& state, size_t n) { state.counters["keypoints"] = static_cast<double>(n); }

void BM_DetectaSift(benchmark::State& state) {
  const cv::Mat_<uchar>& img = graf(static_cast<int>(state.range(0)));
  size_t n = 0;
  for (auto _ : state) n = features::detectaSift(img).size();
  contaKeypoints(state, n);
}
BENCHMARK(BM_DetectaSift)->ArgName("img")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

void BM_DetectaFast(benchmark::State& state) {
  const cv::Mat_<uchar>& img = graf(static_cast<int>(state.range(0)));
  size_t n = 0;
  for (auto _ : state) n = keypoints::detectaFast(img).size();
  contaKeypoints(state, n);
}
BENCHMARK(BM_DetectaFast)->ArgName("img")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

void BM_DetectaSurf(benchmark::State& state) {
  const cv::Mat_<uchar>& img = graf(static_cast<int>(state.range(0)));
  const features::SURF surf = keypoints::surfDoKeySurf(std::nullopt);
  std::vector<cv::KeyPoint> k;
  for (auto _ : state) surf.detect(img, k);
  contaKeypoints(state, k.size());
}
BENCHMARK(BM_DetectaSurf)->ArgName("img")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

void BM_DetectaStar(benchmark::State& state) {
  const cv::Mat_<uchar>& img = graf(static_cast<int>(state.range(0)));
  const features::StarDetector star = keypoints::starDoKeyStar();
  std::vector<cv::KeyPoint> k;
  for (auto _ : state) star.detect(img, k);
  contaKeypoints(state, k.size());
}
BENCHMARK(BM_DetectaStar)->ArgName("img")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

// Pairs under graf's 1-to-3 homography; many partners fall outside.
void BM_GeraPares(benchmark::State& state) {
  cv::Mat H;
  formats::leMat33(H, std::string(QUIVELAR_DATA) + "/H1to3p");
  const int n = static_cast<int>(state.range(0));
  std::vector<cv::KeyPoint> a, b;
  for (auto _ : state) keypoints::geraPares(graf(1).size(), cv::Matx33d(H), n, {}, a, b);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_GeraPares)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Sort, filter and cut, as KeyGrande does, on SIFT's keypoints of img1.
void BM_SelecionaGrandes(benchmark::State& state) {
  const cv::Mat_<uchar>& img = graf(1);
  const std::vector<cv::KeyPoint> detectados = features::detectaSift(img);
  for (auto _ : state) {
    std::vector<cv::KeyPoint> k = detectados;
    keypoints::ordenaPorTamanho(k);
    k = keypoints::filtraCanvas(k, img.cols, img.rows);
    keypoints::mantemPrimeiros(k, 500);
    benchmark::DoNotOptimize(k.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(detectados.size()));
}
BENCHMARK(BM_SelecionaGrandes)->Unit(benchmark::kMicrosecond);

}  // namespace
