// The HDF5 reader on arbitrary bytes: the file opened, its groups walked and
// every dataset described and read into each matrix type. A tvm::Erro is the
// one way to refuse. A matrix whose size disagrees with the shape info gave,
// or a file descriptor still open once the file is closed (a handle leaked
// on some path, which keeps HDF5's copy of the file open), is a finding.
#include "formats/hdf5.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <filesystem>

namespace {

size_t descritoresAbertos() {
  const std::filesystem::directory_iterator fds("/proc/self/fd");
  return static_cast<size_t>(std::distance(fds, std::filesystem::directory_iterator()));
}

void leTudo(const formats::H5& h, const std::string& caminho) {
  const formats::InfoArranjo info = h.info(caminho);
  const int64_t linhas = info.forma.empty() ? 1 : info.forma[0], colunas = info.forma.size() < 2 ? 1 : info.forma[1];
  for (const int tipo : {CV_8U, CV_32S, CV_32F, CV_64F})
    fuzz::aceitaErro([&] {
      const cv::Mat m = h.le(caminho, tipo);
      if (m.type() != tipo || m.rows != linhas || m.cols != colunas) __builtin_trap();
    });
}

// A group may hold a hard link to its own ancestor: the walk is bounded.
void percorre(const formats::H5& h, const std::string& grupo, int profundidade, int& visitas) {
  for (const std::string& nome : h.filhos(grupo)) {
    if (++visitas > 64) return;
    const std::string caminho = grupo + "/" + nome;
    if (h.temGrupo(caminho) && profundidade < 4)
      fuzz::aceitaErro([&] { percorre(h, caminho, profundidade + 1, visitas); });
    else if (h.tem(caminho))
      fuzz::aceitaErro([&] { leTudo(h, caminho); });
  }
}

}  // namespace

// libhdf5 (not ours, not instrumented) asks malloc for sizes a crafted file
// declares, up to 2^64, and handles NULL as a read error; glibc returns NULL
// there, so the sanitizer must too for the run to mean what it means.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string arquivo = fuzz::escreveEntrada(data, size, ".h5");
  const size_t abertos = descritoresAbertos();
  fuzz::aceitaErro([&] {
    const formats::H5 h(arquivo);
    int visitas = 0;
    percorre(h, "", 0, visitas);
  });
  if (descritoresAbertos() != abertos) __builtin_trap();
  return 0;
}
