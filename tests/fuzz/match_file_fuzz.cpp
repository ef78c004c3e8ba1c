// The match file reader on arbitrary bytes: it must read or reject, never
// crash, hang or allocate by the count line's word. Every file the direct
// parser accepts must read to exactly what the word-by-word reader gives.
#include "formats/leitura_rapida.hpp"
#include "formats/match_file.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string arquivo = fuzz::escreveEntrada(data, size, ".txt");
  fuzz::aceitaErro([&] {
    std::vector<cv::DMatch> matches;
    std::vector<cv::KeyPoint> k1, k2;
    formats::leMatch(matches, k1, k2, arquivo);
    if (matches.size() != k1.size() || k1.size() != k2.size()) __builtin_trap();
  });
  std::vector<cv::DMatch> m;
  std::vector<cv::KeyPoint> k1, k2;
  if (formats::leMatchRapido(arquivo, m, k1, k2)) {
    std::vector<cv::DMatch> mLento;
    std::vector<cv::KeyPoint> k1Lento, k2Lento;
    try {
      formats::leMatchFscanf(mLento, k1Lento, k2Lento, arquivo);
    } catch (const tvm::Erro&) {
      __builtin_trap();  // accepted here, refused there
    }
    if (!teste::mesmosBits(m, mLento) || !teste::mesmosBits(k1, k1Lento) || !teste::mesmosBits(k2, k2Lento))
      __builtin_trap();
  }
  return 0;
}
