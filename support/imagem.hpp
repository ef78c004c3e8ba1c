// Image files and whole-image conversions.
//
// Images are cv::Mat_<uchar> (grey) or cv::Mat_<cv::Vec3b> (colour, channels
// in blue, green, red order); row 0 is the top, column 0 the left.
#pragma once

#include "support/saida_segura.hpp"

#include <opencv2/core.hpp>

#include <complex>
#include <string>

namespace tvm {

// Read an image file in any format OpenCV reads, converted to the target's
// pixel type. A missing, unreadable or empty image stops the tool with
// "Erro abertura arquivo " and the name. PNG, JPEG and PGM/PPM are decoded
// without loading the codec plug-in (support/decodifica.hpp).
void le(cv::Mat_<uchar>& image, const std::string& file);
void le(cv::Mat_<cv::Vec3b>& image, const std::string& file);

// The size tvm::le would give, read from the header where the format allows
// (support/decodifica.hpp), for tools that need an image's size only.
cv::Size tamanho(const std::string& file);

// Write a colour image; the format follows the extension (PNG is written
// without loading the codec plug-in). The file appears whole or not at all.
void imp(const cv::Mat_<cv::Vec3b>& image, const std::string& file);
// Into `saida`, for the caller to confirm with the run's other outputs.
void imp(const cv::Mat_<cv::Vec3b>& image, SaidaSegura& saida);

// Grey to colour (the grey level in all three channels) and grey to complex
// (grey level as the real part).
void converte(const cv::Mat_<uchar>& in, cv::Mat_<cv::Vec3b>& out);
void converte(const cv::Mat_<uchar>& in, cv::Mat_<std::complex<float>>& out);

// `top` above `bottom`, `gap` rows apart; every pixel neither covers is `fill`.
cv::Mat_<uchar> grudaV(const cv::Mat_<uchar>& top, const cv::Mat_<uchar>& bottom, int gap, uchar fill);

}  // namespace tvm
