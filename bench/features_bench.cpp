// The invariance of our SURF and STAR on data/img1.png (800 x 640), one
// thread: worst repeatability, angle agreement and descriptor nearest-neighbour
// rate over every 15 degrees and three scales of the whole image, reported as
// counters. Their detect and describe stages are timed with the other
// detectors and descriptors (keypoints_bench.cpp, descriptors_bench.cpp).
#include "bench/cena.hpp"
#include "features/star.hpp"
#include "features/surf.hpp"
#include "tests/common/invariancia.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

struct Pior {
  double repeticao = 1, coerente = 1, descritor = 1;
  void junta(const teste::Repeticao& r, double d) {
    repeticao = std::min(repeticao, r.razao());
    coerente = std::min(coerente, r.razaoCoerente());
    descritor = std::min(descritor, d);
  }
};

// Worst value over the 24 angles (and over the three scales) on the full image.
void BM_SurfInvariancia(benchmark::State& st) {
  const cena::Threads um(1);
  const features::SURF surf;
  Pior rot, esc;
  for (auto _ : st) {
    const teste::Invariancia inv(
        [&surf](const cv::Mat& i, const cv::Mat& m, std::vector<cv::KeyPoint>& k) { surf.detect(i, k, m); },
        cena::graf(1));
    for (int graus = 0; graus < 360; graus += 15) rot.junta(inv.rotacao(graus), inv.descritorRotacao(surf, graus));
    for (double f : {1.5, 2.0, 2.5}) esc.junta(inv.escala(f), inv.descritorEscala(surf, f));
  }
  st.counters["rot_repeticao"] = rot.repeticao;
  st.counters["rot_angulo"] = rot.coerente;
  st.counters["rot_descritor"] = rot.descritor;
  st.counters["esc_repeticao"] = esc.repeticao;
  st.counters["esc_tamanho"] = esc.coerente;
  st.counters["esc_descritor"] = esc.descritor;
}
BENCHMARK(BM_SurfInvariancia)->Unit(benchmark::kSecond)->Iterations(1);

void BM_StarInvariancia(benchmark::State& st) {
  const cena::Threads um(1);
  const features::StarDetector star(64, 10, 10, 8, 5);
  double pior = 1;
  for (auto _ : st) {
    const teste::Invariancia inv(
        [&star](const cv::Mat& i, const cv::Mat& m, std::vector<cv::KeyPoint>& k) { star.detect(i, k, m); },
        cena::graf(1));
    for (int graus = 0; graus < 360; graus += 15) pior = std::min(pior, inv.rotacao(graus).razao());
  }
  st.counters["rot_repeticao"] = pior;
}
BENCHMARK(BM_StarInvariancia)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace
