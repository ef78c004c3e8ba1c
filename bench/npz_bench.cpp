// Reading a 1,000,000 x 128 float32 array ("descriptors") from the .npz that
// np.savez (stored) and np.savez_compressed (deflated) write: the bar is
// numpy.load(f)["descriptors"] on the same files, timed by
// bench/anchors/npz_load.py in the same run. The files (about 1 GB) live in
// QUIVELAR_NPZ_BENCH or /tmp/quivelar-npz and are kept between runs; the
// anchor writes them when they are missing. Items are rows; the file size is
// a counter.
#include "formats/npz.hpp"
#include "support/processo.hpp"

#include <benchmark/benchmark.h>

#include <sys/stat.h>

#include <cstdlib>
#include <string>

namespace {

const char* const kArquivos[] = {"guardado.npz", "comprimido.npz"};

std::string pasta() {
  const char* p = std::getenv("QUIVELAR_NPZ_BENCH");
  return p ? p : "/tmp/quivelar-npz";
}

// The anchor sits beside data/ in the source tree.
bool escreveArquivos() {
  const std::string ancora = std::string(QUIVELAR_DATA) + "/../bench/anchors/npz_load.py";
  return std::system(("/usr/bin/python3 " + tvm::aspasShell(ancora) + " --escreve " + tvm::aspasShell(pasta())).c_str()) == 0;
}

void BM_LeNpz(benchmark::State& state) {
  static const bool escritos = escreveArquivos();
  const std::string arquivo = pasta() + "/" + kArquivos[state.range(0)];
  state.SetLabel(kArquivos[state.range(0)]);
  if (!escritos) return state.SkipWithError("python3 com numpy nao escreveu os arquivos");
  const formats::Npz z(arquivo);
  cv::Mat d;
  for (auto _ : state) {
    d.release();  // each read allocates, as a tool's does
    d = z.le("descriptors", CV_32F);
  }
  if (d.rows != 1000000 || d.cols != 128 || d.at<float>(999999, 127) < 0 || d.at<float>(999999, 127) >= 1)
    state.SkipWithError("a leitura nao devolveu o arranjo gravado");
  state.SetItemsProcessed(state.iterations() * d.rows);
  struct stat st {};
  state.counters["bytes"] = ::stat(arquivo.c_str(), &st) == 0 ? static_cast<double>(st.st_size) : 0.0;
}

}  // namespace

// One read per repetition and the median of seven, as the anchor reports.
BENCHMARK(BM_LeNpz)
    ->ArgName("arquivo")
    ->DenseRange(0, 1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);
