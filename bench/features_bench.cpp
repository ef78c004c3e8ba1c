// The invariance of our SURF and STAR on data/img1.png (800 x 640), one
// thread: worst repeatability, angle agreement and descriptor nearest-neighbour
// rate over every 15 degrees and three scales of the whole image, reported as
// counters. Their detect and describe stages are timed with the other
// detectors and descriptors (keypoints_bench.cpp, descriptors_bench.cpp).
#include "bench/cena.hpp"
#include "features/invariancia.hpp"
#include "features/star.hpp"
#include "features/surf.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

using features::rotacao;

struct Pior {
  double repeticao = 1, angulo = 1, descritor = 1;
  void junta(const features::Repeticao& r, double d) {
    repeticao = std::min(repeticao, r.razao());
    angulo = std::min(angulo, r.razaoAngulo());
    descritor = std::min(descritor, d);
  }
};

// Worst value over the 24 angles (and over the three scales) on the full image.
void BM_SurfInvariancia(benchmark::State& st) {
  const cena::Threads um(1);
  const cv::Mat img = cena::graf(1);
  const features::SURF surf;
  Pior rot, esc;
  for (auto _ : st) {
    std::vector<cv::KeyPoint> k1;
    surf.detect(img, k1);
    for (int graus = 0; graus < 360; graus += 15) {
      const cv::Matx33d H = rotacao(img.size(), graus);
      cv::Mat out;
      cv::warpAffine(img, out, cv::Mat(H).rowRange(0, 2), img.size());
      std::vector<cv::KeyPoint> k2;
      surf.detect(out, k2);
      rot.junta(features::repeticao(k1, img.size(), k2, out.size(), H, true),
                features::acertoDescritorMapeado(surf, k1, img, out, H));
    }
    for (double f : {1.5, 2.0, 2.5}) {
      const cv::Matx33d H(f, 0, 0, 0, f, 0, 0, 0, 1);
      cv::Mat out;
      cv::warpAffine(img, out, cv::Mat(H).rowRange(0, 2), cv::Size(cvRound(img.cols * f), cvRound(img.rows * f)));
      std::vector<cv::KeyPoint> k2;
      surf.detect(out, k2);
      esc.junta(features::repeticao(k1, img.size(), k2, out.size(), H, true),
                features::acertoDescritorMapeado(surf, k1, img, out, H));
    }
  }
  st.counters["rot_repeticao"] = rot.repeticao;
  st.counters["rot_angulo"] = rot.angulo;
  st.counters["rot_descritor"] = rot.descritor;
  st.counters["esc_repeticao"] = esc.repeticao;
  st.counters["esc_angulo"] = esc.angulo;
  st.counters["esc_descritor"] = esc.descritor;
}
BENCHMARK(BM_SurfInvariancia)->Unit(benchmark::kSecond)->Iterations(1);

void BM_StarInvariancia(benchmark::State& st) {
  const cena::Threads um(1);
  const cv::Mat img = cena::graf(1);
  const features::StarDetector star(64, 10, 10, 8, 5);
  double pior = 1;
  for (auto _ : st) {
    std::vector<cv::KeyPoint> k1;
    star.detect(img, k1);
    for (int graus = 0; graus < 360; graus += 15) {
      const cv::Matx33d H = rotacao(img.size(), graus);
      cv::Mat out;
      cv::warpAffine(img, out, cv::Mat(H).rowRange(0, 2), img.size());
      std::vector<cv::KeyPoint> k2;
      star.detect(out, k2);
      pior = std::min(pior, features::repeticao(k1, img.size(), k2, out.size(), H, false).razao());
    }
  }
  st.counters["rot_repeticao"] = pior;
}
BENCHMARK(BM_StarInvariancia)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace
