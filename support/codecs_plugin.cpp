// Built as libquivelar_codecs.so; loaded by support/imagem.cpp on first use.
#include "support/codecs_plugin.hpp"

#include <opencv2/imgcodecs.hpp>

#include <iostream>

namespace {

// imread reports a damaged file on std::cerr as well as by returning an
// empty image; the program has its own message for that.
class SilencioEmCerr {
 public:
  SilencioEmCerr() : anterior_(std::cerr.rdbuf(nullptr)) {}
  ~SilencioEmCerr() {
    std::cerr.rdbuf(anterior_);
    std::cerr.clear();
  }

 private:
  std::streambuf* anterior_;
};

}  // namespace

// No exception may cross the C boundary: a codec that throws on a damaged
// file simply fails.
extern "C" bool quivelarLeImagem(const char* arquivo, int modo, cv::Mat* imagem) {
  const SilencioEmCerr silencio;
  try {
    *imagem = cv::imread(arquivo, modo);
    return !imagem->empty();
  } catch (...) {
    return false;
  }
}

extern "C" bool quivelarCodificaImagem(const char* extensao, const cv::Mat* imagem, std::vector<uchar>* bytes) {
  try {
    return cv::imencode(extensao, *imagem, *bytes);
  } catch (...) {
    return false;
  }
}
