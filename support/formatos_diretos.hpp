// The per-format halves of support/decodifica.cpp. Each reads an open file
// from its first byte; `cor` asks for BGR, otherwise grey.
#pragma once

#include <opencv2/core.hpp>

#include <cstdio>

namespace tvm {

// The size a file's header declares, kept by its decoder before it decides,
// so that an image over the program's limit is named in the message.
struct Dimensoes {
  unsigned long largura = 0, altura = 0;
};

bool lePng(FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas);
bool leJpeg(FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas);
bool lePxm(FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas);

// Records the size, then applies imread's limits (at most 2^20 pixels a side
// and 2^30 in all) and the program's (tvm::limitePixels): nothing is
// allocated for an image refused here.
bool tamanhoAceito(unsigned long largura, unsigned long altura, Dimensoes& declaradas);

}  // namespace tvm
