// The .npy and .npz readers on arbitrary bytes, the same file taken both
// ways and read as every matrix type: each read returns the shape its header
// gives, or stops with a tvm::Erro. Arrays are capped at 16 MB here so that
// a header asking for the default 512 MB costs no run its time.
#include "formats/npz.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <cstdlib>

namespace {

const int kTipos[] = {CV_32F, CV_64F, CV_32S, CV_8U};

void confereForma(const cv::Mat& m, const formats::InfoArranjo& info) {
  const int64_t linhas = info.forma.empty() ? 1 : info.forma[0];
  const int64_t colunas = info.forma.size() < 2 ? 1 : info.forma[1];
  if (m.rows != linhas || m.cols != colunas) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ::setenv("QUIVELAR_MAX_STORE_MB", "16", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string arquivo = fuzz::escreveEntrada(data, size, ".npz");
  fuzz::aceitaErro([&] {
    const formats::InfoArranjo info = formats::infoNpy(arquivo);
    for (const int tipo : kTipos) fuzz::aceitaErro([&] { confereForma(formats::leNpy(arquivo, tipo), info); });
  });
  fuzz::aceitaErro([&] {
    const formats::Npz z(arquivo);
    for (const std::string& nome : z.nomes()) {
      if (!z.tem(nome)) __builtin_trap();
      fuzz::aceitaErro([&] {
        const formats::InfoArranjo info = z.info(nome);
        for (const int tipo : kTipos) fuzz::aceitaErro([&] { confereForma(z.le(nome, tipo), info); });
      });
    }
  });
  return 0;
}
