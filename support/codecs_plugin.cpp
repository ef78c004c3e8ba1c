// Built as libquivelar_codecs.so; loaded by support/imagem.cpp on first use.
#include "support/codecs_plugin.hpp"

#include <opencv2/imgcodecs.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace {

// imread reports a damaged file on std::cerr, and the codec libraries print
// lines of their own ("libpng error: ...") on the stderr descriptor, as well
// as returning an empty image; the program has its own one message for that.
class SilencioNoStderr {
 public:
  SilencioNoStderr() : anteriorCerr_(std::cerr.rdbuf(nullptr)) {
    std::fflush(stderr);
    const int nulo = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nulo >= 0) {
      anterior_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
      if (anterior_ >= 0) ::dup2(nulo, STDERR_FILENO);
      ::close(nulo);
    }
  }
  ~SilencioNoStderr() {
    std::fflush(stderr);
    if (anterior_ >= 0) {
      ::dup2(anterior_, STDERR_FILENO);
      ::close(anterior_);
    }
    std::cerr.rdbuf(anteriorCerr_);
    std::cerr.clear();
  }
  SilencioNoStderr(const SilencioNoStderr&) = delete;
  SilencioNoStderr& operator=(const SilencioNoStderr&) = delete;

 private:
  std::streambuf* anteriorCerr_;
  int anterior_ = -1;
};

}  // namespace

// No exception may cross the C boundary: a codec that throws on a damaged
// file simply fails.
extern "C" bool quivelarLeImagem(const char* arquivo, int modo, cv::Mat* imagem) {
  const SilencioNoStderr silencio;
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
