#include "support/aviso.hpp"

#include <cstdio>

namespace tvm {

void aviso(const std::string& texto) {
  std::fflush(stdout);  // in a terminal, the warning follows what it is about
  std::fprintf(stderr, "Aviso: %s\n", texto.c_str());
}

void avisaSeVazio(size_t keypoints, const std::string& arquivo) {
  if (keypoints == 0) aviso("nenhum keypoint em " + arquivo);
}

}  // namespace tvm
