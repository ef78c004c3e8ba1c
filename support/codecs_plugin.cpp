// Built as libquivelar_codecs.so; loaded by support/imagem.cpp on first use.
#include "support/codecs_plugin.hpp"

#include <opencv2/imgcodecs.hpp>

// No exception may cross the C boundary: a codec that throws on a damaged
// file simply fails.
extern "C" bool quivelarLeImagem(const char* arquivo, int modo, cv::Mat* imagem) {
  try {
    *imagem = cv::imread(arquivo, modo);
    return !imagem->empty();
  } catch (...) {
    return false;
  }
}

extern "C" bool quivelarGravaImagem(const char* arquivo, const cv::Mat* imagem) {
  try {
    return cv::imwrite(arquivo, *imagem);
  } catch (...) {
    return false;
  }
}
