// extraiPatch computes cv::warpAffine itself: it must give the library's
// pixels exactly, near and beyond the image edges too.
#include "descriptors/patch.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace {

void esperaAsDaBiblioteca(const cv::Mat_<uchar>& img, cv::Point2f centro, double escala, double theta, int lado) {
  const cv::Matx23d mapa = mapaPatch(centro, escala, theta, lado / 2);
  cv::Mat_<uchar> nosso, delas;
  extraiPatch(img, mapa, escala, lado, nosso);
  cv::warpAffine(img, delas, cv::Mat(mapa), cv::Size(lado, lado), escala < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR,
                 cv::BORDER_REPLICATE);
  ASSERT_EQ(cv::norm(nosso, delas, cv::NORM_INF), 0.0) << img.size() << centro << escala << " " << theta << " " << lado;
}

TEST(Patch, WarpIsOpenCVsPixelForPixel) {
  cv::RNG rng(0x9a7c);
  // Centres inside, on the edge and far outside; shrinking and enlarging;
  // any rotation; sides below and above one vector.
  for (const cv::Mat_<uchar>& img : {teste::textura(97, 131, 3), teste::textura(1, 40, 4), teste::textura(30, 1, 5),
                                     teste::textura(5, 6, 7), teste::uniforme(1, 1, 77)})
    for (int caso = 0; caso < 300; ++caso) {
      const cv::Point2f centro(rng.uniform(-60.f, img.cols + 60.f), rng.uniform(-60.f, img.rows + 60.f));
      const double escala = std::exp(rng.uniform(-2.5, 2.5)), theta = caso % 3 ? rng.uniform(0.0, 2 * CV_PI) : 0.0;
      esperaAsDaBiblioteca(img, centro, escala, theta, rng.uniform(1, 90));
    }
  // Positions beyond what 16-bit coordinates, then 32-bit fixed point, hold.
  for (const cv::Point2f longe : {cv::Point2f(5e4f, -7e4f), cv::Point2f(-3e7f, 4e6f)})
    esperaAsDaBiblioteca(teste::textura(64, 64, 6), longe, 1.0, 0.3, 41);
}

}  // namespace
