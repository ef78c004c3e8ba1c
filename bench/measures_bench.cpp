// Overlap repeatability against cv::evaluateFeatureDetector on the same
// regions: about 3,000 x 3,500 SIFT keypoints of graf 1 and 2. Argument: the
// thread count (1, or -1 for OpenCV's default: all of the machine's).
#include "bench/cena.hpp"
#include "formats/transform.hpp"
#include "measures/repetibilidade.hpp"

#include <opencv2/features2d.hpp>

namespace {

struct Par {
  std::vector<cv::KeyPoint> k1, k2;
  cv::Matx33d H, Hinv;
};

const Par& par() {
  static const Par p = [] {
    Par r;
    const cv::Ptr<cv::SIFT> sift = cv::SIFT::create(0, 3, 0.02);
    sift->detect(cena::graf(1), r.k1);
    sift->detect(cena::graf(2), r.k2);
    cv::KeyPointsFilter::retainBest(r.k1, 3000);
    cv::KeyPointsFilter::retainBest(r.k2, 3500);
    r.k1.resize(std::min<size_t>(r.k1.size(), 3000));
    r.k2.resize(std::min<size_t>(r.k2.size(), 3500));
    cv::Mat H;
    formats::leMat33(H, std::string(QUIVELAR_DATA) + "/H1to2p");
    r.H = cv::Matx33d(H);
    r.Hinv = cv::Matx33d(cv::Mat(H.inv(cv::DECOMP_LU)));
    return r;
  }();
  return p;
}

void BM_RepeticaoSobreposicao(benchmark::State& state) {
  const Par& p = par();
  const int antes = cv::getNumThreads();
  cv::setNumThreads(int(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(measures::repeticaoSobreposicao(p.k1, p.k2, p.H, p.Hinv, cena::graf(1).size(),
                                                             cena::graf(2).size(), 0.4, measures::ParteComum::opencv));
  cv::setNumThreads(antes);
  state.counters["keypoints1"] = double(p.k1.size());
  state.counters["keypoints2"] = double(p.k2.size());
}
BENCHMARK(BM_RepeticaoSobreposicao)->Arg(1)->Arg(-1)->Unit(benchmark::kMillisecond);

void BM_EvaluateFeatureDetector(benchmark::State& state) {
  const Par& p = par();
  const int antes = cv::getNumThreads();
  cv::setNumThreads(int(state.range(0)));
  for (auto _ : state) {
    std::vector<cv::KeyPoint> a = p.k1, b = p.k2;
    float rep = 0;
    int n = 0;
    cv::evaluateFeatureDetector(cena::graf(1), cena::graf(2), cv::Mat(p.H), &a, &b, rep, n);
    benchmark::DoNotOptimize(rep);
  }
  cv::setNumThreads(antes);
}
BENCHMARK(BM_EvaluateFeatureDetector)->Arg(1)->Arg(-1)->Unit(benchmark::kMillisecond);

}  // namespace
