// extraiPatch computes cv::warpAffine itself: it must give the library's
// pixels exactly, near and beyond the image edges too.
#include "descriptors/patch.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace {

cv::Mat_<uchar> daBiblioteca(const cv::Mat_<uchar>& img, const cv::Matx23d& mapa, double escala, int lado) {
  cv::Mat_<uchar> p;
  cv::warpAffine(img, p, cv::Mat(mapa), cv::Size(lado, lado), escala < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR,
                 cv::BORDER_REPLICATE);
  return p;
}

TEST(Patch, WarpIsOpenCVsPixelForPixel) {
  cv::RNG rng(0x9a7c);
  const cv::Mat_<uchar> imagens[] = {teste::textura(97, 131, 3), teste::textura(1, 40, 4), teste::textura(30, 1, 5),
                                     teste::textura(5, 6, 7), teste::uniforme(1, 1, 77)};
  for (const cv::Mat_<uchar>& img : imagens) {
    for (int caso = 0; caso < 300; ++caso) {
      // Centres inside, on the edge and far outside; shrinking and
      // enlarging; any rotation; sides below and above one vector.
      const cv::Point2f centro(rng.uniform(-60.f, img.cols + 60.f), rng.uniform(-60.f, img.rows + 60.f));
      const double escala = std::exp(rng.uniform(-2.5, 2.5));
      const double theta = caso % 3 ? rng.uniform(0.0, 2 * CV_PI) : 0.0;
      const int lado = rng.uniform(1, 90);
      const cv::Matx23d mapa = mapaPatch(centro, escala, theta, lado / 2);
      cv::Mat_<uchar> nosso;
      extraiPatch(img, mapa, escala, lado, nosso);
      ASSERT_EQ(cv::norm(nosso, daBiblioteca(img, mapa, escala, lado), cv::NORM_INF), 0.0)
          << img.size() << " caso " << caso;
    }
  }
  // Positions beyond what 16-bit coordinates, then 32-bit fixed point, hold.
  const cv::Mat_<uchar> img = teste::textura(64, 64, 6);
  for (const cv::Point2f longe : {cv::Point2f(5e4f, -7e4f), cv::Point2f(-3e7f, 4e6f)}) {
    const cv::Matx23d mapa = mapaPatch(longe, 1.0, 0.3, 20);
    cv::Mat_<uchar> nosso;
    extraiPatch(img, mapa, 1.0, 41, nosso);
    EXPECT_EQ(cv::norm(nosso, daBiblioteca(img, mapa, 1.0, 41), cv::NORM_INF), 0.0) << longe;
  }
}

}  // namespace
