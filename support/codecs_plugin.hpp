// The image codec plug-in (libquivelar_codecs.so): OpenCV's imgcodecs behind
// two C functions, so that only the tools that read or write images load it.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

extern "C" {
// cv::imread into *imagem; false when the file cannot be read as an image.
using LeImagem = bool (*)(const char* arquivo, int modo, cv::Mat* imagem);
// cv::imencode, format by the extension (".jpg", ".ppm"); false when there is
// no encoder for it or the image does not suit it.
using CodificaImagem = bool (*)(const char* extensao, const cv::Mat* imagem, std::vector<uchar>* bytes);
}

constexpr const char* kPluginCodecs = "libquivelar_codecs.so";
