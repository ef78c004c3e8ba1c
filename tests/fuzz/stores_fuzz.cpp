// The keypoint and descriptor store reader on arbitrary bytes. The first byte
// chooses the format, so both the XML and the YAML parser are reached.
//
// OpenCV's YAML parser loops forever on some malformed text; the reader's
// time bound then ends the process in a real run. Here the bound jumps back
// instead, so the fuzzer goes on looking for faults of our own.
#include "formats/stores.hpp"
#include "support/vigia.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <csetjmp>

namespace {

sigjmp_buf retorno;

void abandona(const char*) { siglongjmp(retorno, 1); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const char* extensao = (data[0] & 1) ? ".xml" : ".yml";
  const std::string arquivo = fuzz::escreveEntrada(data + 1, size - 1, extensao);
  tvm::aoEstourar = abandona;
  if (sigsetjmp(retorno, 1) != 0) {
    tvm::desarmaVigia();
    return 0;
  }
  fuzz::aceitaErro([&] {
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat descriptors;
    formats::leDescritores(arquivo, keypoints, descriptors);
  });
  return 0;
}
