// The match file reader on arbitrary bytes: it must read or reject, never
// crash, hang or allocate by the count line's word.
#include "formats/match_file.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string arquivo = fuzz::escreveEntrada(data, size, ".txt");
  fuzz::aceitaErro([&] {
    std::vector<cv::DMatch> matches;
    std::vector<cv::KeyPoint> k1, k2;
    formats::leMatch(matches, k1, k2, arquivo);
    if (matches.size() != k1.size() || k1.size() != k2.size()) __builtin_trap();
  });
  return 0;
}
