// The keypoint and descriptor store reader on arbitrary bytes. The first byte
// chooses the file name (".xml" or ".yml"; the text's start chooses the
// syntax) and whether the rest is stored gzip-compressed, so the inflating
// reader is reached too.
//
// Every input the direct parser accepts must read to exactly what
// cv::FileStorage gives (same keypoint bits, same matrix header and bytes);
// any difference aborts. Every input the form check lets through reaches
// OpenCV's parser, which must then return: if it ran into the reader's last
// guard, the process would end with that guard's message and status 1, a
// finding (scripts/fuzz prints the input).
#include "formats/leitura_rapida.hpp"
#include "formats/stores.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <zlib.h>

namespace {

// A matrix already holding something: a missing "descriptors" node must
// leave it as cv::read leaves it.
cv::Mat ocupada() { return cv::Mat::ones(2, 3, CV_32F); }

void comparaComFileStorage(const std::string& arquivo) {
  std::vector<cv::KeyPoint> rapidos;
  cv::Mat rapida = ocupada();
  if (formats::leStoreRapido(arquivo, rapidos, &rapida)) {
    std::vector<cv::KeyPoint> lentos;
    cv::Mat lenta = ocupada();
    try {
      formats::leDescritoresFileStorage(arquivo, lentos, lenta);
    } catch (const tvm::Erro&) {
      __builtin_trap();  // accepted here, refused there
    }
    if (!teste::mesmosBits(rapidos, lentos) || !teste::mesmosBits(rapida, lenta)) __builtin_trap();
  }
  if (formats::leStoreRapido(arquivo, rapidos, nullptr)) {
    std::vector<cv::KeyPoint> lentos;
    try {
      lentos = formats::leKeyPointsFileStorage(arquivo);
    } catch (const tvm::Erro&) {
      __builtin_trap();
    }
    if (!teste::mesmosBits(rapidos, lentos)) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const char* extensao = (data[0] & 1) ? ".xml" : ".yml";
  const bool gz = data[0] & 4;
  std::string arquivo = fuzz::escreveEntrada(data + 1, size - 1, extensao);
  if (gz) {
    arquivo += ".gz";
    gzFile f = ::gzopen(arquivo.c_str(), "wb");
    if (f == nullptr) return 0;
    if (size > 1) ::gzwrite(f, data + 1, static_cast<unsigned>(size - 1));
    ::gzclose(f);
  }
  fuzz::aceitaErro([&] {
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat descriptors;
    formats::leDescritores(arquivo, keypoints, descriptors);
  });
  comparaComFileStorage(arquivo);
  return 0;
}
