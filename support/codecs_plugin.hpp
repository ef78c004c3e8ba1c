// The image codec plug-in (libquivelar_codecs.so): OpenCV's imgcodecs behind
// two C functions, so that only the tools that read or write images load it.
#pragma once

#include <opencv2/core.hpp>

extern "C" {
// cv::imread into *imagem; false when the file cannot be read as an image.
using LeImagem = bool (*)(const char* arquivo, int modo, cv::Mat* imagem);
// cv::imwrite, format by extension; false when it cannot be written.
using GravaImagem = bool (*)(const char* arquivo, const cv::Mat* imagem);
}

constexpr const char* kPluginCodecs = "libquivelar_codecs.so";
