// RIHOG, RUHOG and Forapro on fixed keypoints: whole compute() in keypoints
// per second beside OpenCV's SIFT on the same keypoints, and the per-keypoint
// stages of the ring histogram (warp, blur, gradients and histogram pass).
//
// Arg: OpenCV thread count (0 = OpenCV's default).
#include "descriptors/forapro.hpp"
#include "descriptors/frame.hpp"
#include "descriptors/patch.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "support/imagem.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include <string>
#include <vector>

namespace {

struct Cena {
  cv::Mat_<uchar> imagem;
  std::vector<cv::KeyPoint> keypoints;  // the 1000 strongest SIFT keypoints of img1
};

const Cena& cena() {
  static const Cena c = [] {
    Cena r;
    tvm::le(r.imagem, std::string(QUIVELAR_DATA) + "/img1.png");
    r.keypoints = detectaSift(r.imagem);
    cv::KeyPointsFilter::retainBest(r.keypoints, 1000);
    r.keypoints.resize(std::min<size_t>(r.keypoints.size(), 1000));
    return r;
  }();
  return c;
}

// Runs `corpo` with the thread count of the benchmark's argument and reports
// keypoints per second.
template <typename Corpo>
void porKeypoints(benchmark::State& state, const Corpo& corpo) {
  const int antes = cv::getNumThreads();
  if (state.range(0) > 0) cv::setNumThreads(static_cast<int>(state.range(0)));
  const Cena& c = cena();
  cv::Mat d;
  for (auto _ : state) {
    corpo(c, d);
    benchmark::DoNotOptimize(d.data);
  }
  cv::setNumThreads(antes);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.keypoints.size()));
}

void BM_Des2_Rihog(benchmark::State& state) {
  const RIHOG rihog;
  porKeypoints(state, [&](const Cena& c, cv::Mat& d) { rihog.compute(c.imagem, c.keypoints, d); });
}

void BM_Des2_Ruhog(benchmark::State& state) {
  const RUHOG ruhog;
  porKeypoints(state, [&](const Cena& c, cv::Mat& d) { ruhog.compute(c.imagem, c.keypoints, d); });
}

void BM_Des2_Forapro(benchmark::State& state) {
  const Forapro forapro;
  porKeypoints(state, [&](const Cena& c, cv::Mat& d) { forapro.compute(c.imagem, c.keypoints, d); });
}

void BM_Des2_SiftReferencia(benchmark::State& state) {
  const cv::Ptr<cv::SIFT> sift = cv::SIFT::create(0, 3, 0.04, 10.0, 1.6);
  porKeypoints(state, [&](const Cena& c, cv::Mat& d) {
    std::vector<cv::KeyPoint> k = c.keypoints;
    sift->compute(c.imagem, k, d);
  });
}

BENCHMARK(BM_Des2_Rihog)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Des2_Ruhog)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Des2_Forapro)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Des2_SiftReferencia)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// Stages of one RIHOG keypoint with the default options (117-pixel patch).
void BM_Des2_RihogEtapas(benchmark::State& state) {
  const RIHOG rihog;
  const Cena& c = cena();
  const cv::KeyPoint& k = c.keypoints[c.keypoints.size() / 2];
  const int lado = rihog.ladoPatch();
  const double escala = lado / (k.size * (1.0 / rihog.fracNucleo()));
  const cv::Matx23d mapa = mapaPatch(k.pt, escala, 0.0, lado / 2);
  cv::Mat_<uchar> bruto, patch;
  cv::Mat_<float> hist;
  extraiPatch(c.imagem, mapa, escala, lado, bruto);
  cv::GaussianBlur(bruto, patch, cv::Size(37, 37), 0, 0, cv::BORDER_REPLICATE);
  const int etapa = static_cast<int>(state.range(0));
  for (auto _ : state) {
    if (etapa == 0) extraiPatch(c.imagem, mapa, escala, lado, bruto);
    if (etapa == 1) cv::GaussianBlur(bruto, patch, cv::Size(37, 37), 0, 0, cv::BORDER_REPLICATE);
    if (etapa == 2) rihog.rihog(patch, hist);
    benchmark::ClobberMemory();
  }
  state.SetLabel(etapa == 0 ? "warp" : etapa == 1 ? "blur" : "gradientes+histograma");
}
BENCHMARK(BM_Des2_RihogEtapas)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

}  // namespace
