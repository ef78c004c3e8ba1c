// Describing fixed keypoints: the 1000 strongest SIFT keypoints of
// data/img1.png, described by the library's SIFT, our SURF, SIMPLE (both
// modes) and RIFF. Only compute() is timed; items are keypoints. The second
// argument is the thread count (0: OpenCV's default).
#include "descriptors/riff.hpp"
#include "descriptors/simple.hpp"
#include "features/surf.hpp"
#include "support/imagem.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/features2d.hpp>

#include <functional>

namespace {

struct Dados {
  cv::Mat_<uchar> imagem;
  std::vector<cv::KeyPoint> keypoints;
};

const Dados& dados() {
  static const Dados d = [] {
    Dados r;
    tvm::le(r.imagem, QUIVELAR_DATA "/img1.png");
    cv::SIFT::create(1000, 3, 0.04, 10.0, 1.6)->detect(r.imagem, r.keypoints);
    cv::KeyPointsFilter::retainBest(r.keypoints, 1000);
    return r;
  }();
  return d;
}

using Descreve = std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)>;

void descreve(benchmark::State& state, const Descreve& f) {
  const Dados& d = dados();
  const int antes = cv::getNumThreads();
  if (state.range(0) > 0) cv::setNumThreads(static_cast<int>(state.range(0)));
  cv::Mat descriptors;
  for (auto _ : state) {
    std::vector<cv::KeyPoint> kps = d.keypoints;
    f(d.imagem, kps, descriptors);
    benchmark::DoNotOptimize(descriptors.data);
  }
  cv::setNumThreads(antes);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(d.keypoints.size()));
  state.counters["keypoints"] = static_cast<double>(d.keypoints.size());
}

void BM_DesSift(benchmark::State& state) {
  const cv::Ptr<cv::SIFT> sift = cv::SIFT::create(0, 3, 0.04, 10.0, 1.6);
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    sift->compute(img, k, d);
  });
}

void BM_DesSurf(benchmark::State& state) {
  const features::SURF surf;
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    surf.compute(img, k, d);
  });
}

void BM_SimpleCopy(benchmark::State& state) {
  const SIMPLE simple('c', 6, 11);
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    simple.compute(img, k, d);
  });
}

void BM_SimpleInplace(benchmark::State& state) {
  const SIMPLE simple('i', 6, 11);
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    simple.compute(img, k, d);
  });
}

void BM_Riff(benchmark::State& state) {
  const RIFF riff(4, 10);
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    riff.compute(img, k, d);
  });
}

}  // namespace

BENCHMARK(BM_DesSift)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DesSurf)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SimpleCopy)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SimpleInplace)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Riff)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
