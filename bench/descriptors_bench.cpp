// Describing fixed keypoints: the same 1000 SIFT keypoints of data/img1.png
// (cena::mil) described by every descriptor, as its tool configures it by
// default. Only compute() is timed; items are keypoints. Argument: OpenCV's
// thread count (0: the machine's default). Real time, since the work is
// spread over threads.
#include "bench/cena.hpp"
#include "descriptors/forapro.hpp"
#include "descriptors/gauss_inteiro.hpp"
#include "descriptors/patch.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "features/surf.hpp"

#include <opencv2/imgproc.hpp>

namespace {

// Times `descreve(keypoints, descriptors)` on a fresh copy of the keypoints
// (SIFT and SURF rewrite them).
template <typename Descreve>
void descreve(benchmark::State& state, const Descreve& f) {
  const cena::Threads threads(state.range(0));
  const cv::Mat_<uchar>& imagem = cena::graf(1);
  const std::vector<cv::KeyPoint>& mil = cena::mil();
  cv::Mat descriptors;
  for (auto _ : state) {
    std::vector<cv::KeyPoint> kps = mil;
    f(imagem, kps, descriptors);
    benchmark::DoNotOptimize(descriptors.data);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(mil.size()));
  state.counters["linhas"] = descriptors.rows;
}

void BM_Descreve_Sift(benchmark::State& state) {
  const cv::Ptr<cv::SIFT> sift = features::criaSift();
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    sift->compute(img, k, d);
  });
}

void BM_Descreve_Surf(benchmark::State& state) {
  const features::SURF surf;
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    surf.compute(img, k, d);
  });
}

void BM_Descreve_SimpleCopy(benchmark::State& state) {
  const SIMPLE simple('c', 6, 11);
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    simple.compute(img, k, d);
  });
}

void BM_Descreve_SimpleInplace(benchmark::State& state) {
  const SIMPLE simple('i', 6, 11);
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    simple.compute(img, k, d);
  });
}

void BM_Descreve_Riff(benchmark::State& state) {
  const RIFF riff;
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    riff.compute(img, k, d);
  });
}

void BM_Descreve_Rihog(benchmark::State& state) {
  const RIHOG rihog;
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    rihog.compute(img, k, d);
  });
}

void BM_Descreve_Ruhog(benchmark::State& state) {
  const RUHOG ruhog;
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    ruhog.compute(img, k, d);
  });
}

void BM_Descreve_Forapro(benchmark::State& state) {
  const Forapro forapro;
  descreve(state, [&](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
    forapro.compute(img, k, d);
  });
}

#define DESCREVE(bm) BENCHMARK(bm)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime()
DESCREVE(BM_Descreve_Sift);
DESCREVE(BM_Descreve_Surf);
DESCREVE(BM_Descreve_SimpleCopy);
DESCREVE(BM_Descreve_SimpleInplace);
DESCREVE(BM_Descreve_Riff);
DESCREVE(BM_Descreve_Rihog);
DESCREVE(BM_Descreve_Ruhog);
DESCREVE(BM_Descreve_Forapro);
#undef DESCREVE

// Stages of one RIHOG keypoint with the default options: where a row's time
// goes (warp into the patch, blur of the disc that is read, gradients and
// histogram; stage 3 is the library's whole-patch blur that stage 1 replaces).
void BM_RihogEtapas(benchmark::State& state) {
  const RIHOG rihog;
  const cv::KeyPoint& k = cena::mil()[cena::mil().size() / 2];
  const int lado = rihog.ladoPatch();
  const double escala = lado / (k.size * (1.0 / rihog.fracNucleo()));
  const cv::Matx23d mapa = mapaPatch(k.pt, escala, 0.0, lado / 2);
  cv::Mat_<uchar> bruto, patch;
  cv::Mat_<float> hist;
  const GaussInteiro gauss(37);
  GaussInteiro::Rascunho rascunho;
  const cv::Rect disco((lado - 83) / 2, (lado - 83) / 2, 83, 83);  // radius 40 and one pixel around
  extraiPatch(cena::graf(1), mapa, escala, lado, bruto);
  cv::GaussianBlur(bruto, patch, cv::Size(37, 37), 0, 0, cv::BORDER_REPLICATE);
  const int etapa = static_cast<int>(state.range(0));
  for (auto _ : state) {
    if (etapa == 0) extraiPatch(cena::graf(1), mapa, escala, lado, bruto);
    if (etapa == 1) gauss.suaviza(bruto, disco, patch, rascunho);
    if (etapa == 2) rihog.rihog(patch, hist);
    if (etapa == 3) cv::GaussianBlur(bruto, patch, cv::Size(37, 37), 0, 0, cv::BORDER_REPLICATE);
    benchmark::ClobberMemory();
  }
  state.SetLabel(etapa == 0 ? "warp" : etapa == 1 ? "blur do disco" : etapa == 2 ? "gradientes+histograma" : "blur OpenCV");
}
BENCHMARK(BM_RihogEtapas)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

}  // namespace
