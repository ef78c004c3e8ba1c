#include "support/texto.hpp"

#include "support/erro.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace tvm {

namespace {

constexpr int kFonte = cv::FONT_HERSHEY_PLAIN;
// At 0.8 the plain font gives 7-pixel digits that fit the 24-pixel slots the
// graph labels are placed in.
constexpr double kEscalaFonte = 0.8;
constexpr int kMargem = 1;

}  // namespace

void putTxt(cv::Mat_<cv::Vec3b>& img, int row, int col, const std::string& text, cv::Vec3b colour, int scale,
            bool boxed, cv::Vec3b boxColour) {
  if (scale < 1) erro("Erro putTxt: escala invalida");
  if (text.empty() || img.empty()) return;
  const double escala = kEscalaFonte * scale;
  int base = 0;
  const cv::Size tamanho = cv::getTextSize(text, kFonte, escala, scale, &base);
  // The glyphs are drawn into a mask of the box's size, then copied with
  // clipping; cv::putText itself would not let the box start off the image.
  const int margem = kMargem * scale;
  cv::Mat_<uchar> mascara(tamanho.height + base + 2 * margem, tamanho.width + 2 * margem, uchar(0));
  cv::putText(mascara, text, cv::Point(margem, margem + tamanho.height), kFonte, escala, cv::Scalar(255), scale,
              cv::LINE_8);
  const int r0 = std::max(0, -row), r1 = std::min(mascara.rows, img.rows - row);
  const int c0 = std::max(0, -col), c1 = std::min(mascara.cols, img.cols - col);
  for (int r = r0; r < r1; ++r)
    for (int c = c0; c < c1; ++c) {
      if (mascara(r, c))
        img(row + r, col + c) = colour;
      else if (boxed)
        img(row + r, col + c) = boxColour;
    }
}

}  // namespace tvm
