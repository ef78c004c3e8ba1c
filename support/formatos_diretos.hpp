// The per-format halves of support/decodifica.cpp. Each reads an open file
// from its first byte; `cor` asks for BGR, otherwise grey.
#pragma once

#include <opencv2/core.hpp>

#include <cstdio>

namespace tvm {

bool lePng(FILE* f, bool cor, cv::Mat& out);
bool leJpeg(FILE* f, bool cor, cv::Mat& out);
bool lePxm(FILE* f, bool cor, cv::Mat& out);

// imread's limits: at most 2^20 pixels a side and 2^30 in all.
inline bool tamanhoAceito(unsigned long largura, unsigned long altura) {
  constexpr unsigned long lado = 1ul << 20;
  return largura > 0 && altura > 0 && largura <= lado && altura <= lado && largura * altura <= (1ul << 30);
}

}  // namespace tvm
