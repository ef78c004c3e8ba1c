#include "features/integral.hpp"

#include <opencv2/imgproc.hpp>

namespace features {

cv::Mat integralU32(const cv::Mat& img8u) {
  CV_Assert(img8u.type() == CV_8UC1);
  cv::Mat s(img8u.rows + 1, img8u.cols + 1, CV_32SC1, cv::Scalar(0));
  const int step = int(s.step1());
  uint32_t* base = reinterpret_cast<uint32_t*>(s.data);
  for (int y = 0; y < img8u.rows; ++y) {
    const uchar* p = img8u.ptr<uchar>(y);
    const uint32_t* acima = base + y * step;
    uint32_t* linha = base + (y + 1) * step;
    uint32_t acc = 0;
    for (int x = 0; x < img8u.cols; ++x) {
      acc += p[x];
      linha[x + 1] = acima[x + 1] + acc;
    }
  }
  return s;
}

cv::Mat cinza8u(const cv::Mat& image) {
  cv::Mat g = image;
  if (g.channels() == 3) cv::cvtColor(g, g, cv::COLOR_BGR2GRAY);
  else if (g.channels() == 4) cv::cvtColor(g, g, cv::COLOR_BGRA2GRAY);
  else if (g.channels() != 1) cv::extractChannel(g, g, 0);
  if (g.depth() != CV_8U) {
    // 16-bit images keep their top byte; real-valued ones are taken as [0, 1].
    const double escala = g.depth() == CV_16U ? 1.0 / 256 : (g.depth() == CV_32F || g.depth() == CV_64F ? 255.0 : 1.0);
    g.convertTo(g, CV_8U, escala);
  }
  return g;
}

}  // namespace features
