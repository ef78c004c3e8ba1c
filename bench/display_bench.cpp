// Drawing keypoints and matches: our own rasterisation (keyMyShow, matMyShow)
// beside OpenCV's drawKeypoints / drawMatches on the same 1000 SIFT keypoints
// of img1 and img2, and one MatVis frame (canvas copy and two clocks).
#include "display/desenhos.hpp"
#include "features/sift.hpp"
#include "support/desenho.hpp"
#include "support/imagem.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/features2d.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace {

struct Cena {
  cv::Mat_<uchar> img1, img2;
  std::vector<cv::KeyPoint> k1, k2;
  std::vector<cv::DMatch> matches;  // k1[i] with k2[i]
};

std::vector<cv::KeyPoint> melhores(const cv::Mat_<uchar>& img, size_t n) {
  std::vector<cv::KeyPoint> k = features::detectaSift(img);
  cv::KeyPointsFilter::retainBest(k, static_cast<int>(n));
  k.resize(std::min(k.size(), n));
  return k;
}

const Cena& cena() {
  static const Cena c = [] {
    Cena r;
    tvm::le(r.img1, std::string(QUIVELAR_DATA) + "/img1.png");
    tvm::le(r.img2, std::string(QUIVELAR_DATA) + "/img2.png");
    r.k1 = melhores(r.img1, 1000);
    r.k2 = melhores(r.img2, 1000);
    const size_t n = std::min(r.k1.size(), r.k2.size());
    r.k1.resize(n);
    r.k2.resize(n);
    for (size_t i = 0; i < n; ++i) r.matches.emplace_back(static_cast<int>(i), static_cast<int>(i), 0.0f);
    return r;
  }();
  return c;
}

void porKeyPoint(benchmark::State& state, size_t n) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_KeyMyShow(benchmark::State& state) {
  const Cena& c = cena();
  for (auto _ : state) benchmark::DoNotOptimize(display::keyMyShow(c.img1, c.k1, 'R', 1.0));
  porKeyPoint(state, c.k1.size());
}
BENCHMARK(BM_KeyMyShow)->Unit(benchmark::kMillisecond);

void BM_KeyShowOpenCV(benchmark::State& state) {
  const Cena& c = cena();
  for (auto _ : state) benchmark::DoNotOptimize(display::desenhaKeyShow(c.img1, c.k1, 'R'));
  porKeyPoint(state, c.k1.size());
}
BENCHMARK(BM_KeyShowOpenCV)->Unit(benchmark::kMillisecond);

void BM_MatMyShow(benchmark::State& state) {
  const Cena& c = cena();
  for (auto _ : state) benchmark::DoNotOptimize(display::matMyShow(c.img1, c.img2, c.matches, c.k1, c.k2, 'R', 4.0));
  porKeyPoint(state, c.matches.size());
}
BENCHMARK(BM_MatMyShow)->Unit(benchmark::kMillisecond);

void BM_MatShowOpenCV(benchmark::State& state) {
  const Cena& c = cena();
  for (auto _ : state) benchmark::DoNotOptimize(display::desenhaMatShow(c.img1, c.k1, c.img2, c.k2, c.matches));
  porKeyPoint(state, c.matches.size());
}
BENCHMARK(BM_MatShowOpenCV)->Unit(benchmark::kMillisecond);

void BM_QuadroMatVis(benchmark::State& state) {
  const Cena& c = cena();
  const cv::Mat_<cv::Vec3b> tela = display::telaVis(c.img1, c.img2);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(display::quadroVis(tela, c.img1.rows, c.k1[i], c.k2[i], (i & 1) == 0));
    i = (i + 1) % c.k1.size();
  }
}
BENCHMARK(BM_QuadroMatVis)->Unit(benchmark::kMicrosecond);

}  // namespace
