// The same 5000 x 5000 x 128 product as the matcher's candidates, by
// OpenBLAS's sgemm (Debian's libopenblas-dev), one thread: the yardstick the
// own 12 x 32 AVX-512 tile is measured against (matching_bench.cpp,
// BM_ForcaBruta/caminho:2). Built only where OpenBLAS is installed; installing
// it also makes it the system's BLAS, which OpenCV then loads, so the test
// machines go without it.
#include "bench/cena.hpp"

#include <cblas.h>

namespace {

void BM_SgemmOpenBLAS(benchmark::State& state) {
  openblas_set_num_threads(int(state.range(0)));
  cv::Mat a(5000, 128, CV_32F), b(5000, 128, CV_32F), c(5000, 5000, CV_32F);
  cv::randu(a, 0, 255);
  cv::randu(b, 0, 255);
  for (auto _ : state) {
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, a.rows, b.rows, a.cols, 1.f, a.ptr<float>(), a.cols,
                b.ptr<float>(), b.cols, 0.f, c.ptr<float>(), c.cols);
    benchmark::DoNotOptimize(c.data);
  }
  state.counters["GFLOP/s"] =
      benchmark::Counter(2.0 * a.rows * b.rows * a.cols * 1e-9 * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SgemmOpenBLAS)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
