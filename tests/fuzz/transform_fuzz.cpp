// The transform file reader and the correctness test on arbitrary bytes.
#include "formats/transform.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string arquivo = fuzz::escreveEntrada(data, size, ".txt");
  fuzz::aceitaErro([&] {
    cv::Mat H;
    formats::leMat33(H, arquivo);
    const cv::Mat Hinv = formats::inversa(H);
    formats::acerto(Hinv, cv::KeyPoint(10, 20, 5), cv::KeyPoint(30, 40, 5), 15.0);
  });
  return 0;
}
