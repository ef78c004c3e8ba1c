// Checks every own descriptor must pass, whatever its computation.
#pragma once

#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vector>

namespace teste {

// Rows are computed in parallel: one thread and many must give the same bits.
template <class D>
void mesmasLinhasComThreads(const D& d, const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& kps) {
  const int antes = cv::getNumThreads();
  cv::Mat um, varios;
  cv::setNumThreads(1);
  d.compute(img, kps, um);
  cv::setNumThreads(antes);
  d.compute(img, kps, varios);
  ASSERT_EQ(um.size(), varios.size());
  EXPECT_EQ(cv::norm(um, varios, cv::NORM_INF), 0.0);
}

// Tiny, huge and far-away keypoints: one finite row each, no crash.
template <class D>
void linhasFinitasEmKeypointsExtremos(const D& d) {
  const std::vector<cv::KeyPoint> kps = {cv::KeyPoint(32, 32, 1e-20f), cv::KeyPoint(32, 32, 1e30f),
                                         cv::KeyPoint(-1e6f, 5e5f, 10), cv::KeyPoint(63.9f, 0, 0.5f),
                                         cv::KeyPoint(1e9f, -1e9f, 1e-3f)};
  cv::Mat out;
  d.compute(textura(64, 64, 13), kps, out);
  ASSERT_EQ(out.rows, 5);
  EXPECT_TRUE(cv::checkRange(out));
}

// A textured image turned a quarter counter-clockwise, (x, y) -> (y, 200 - x),
// with four keypoints of `size` and where they land; the turned ones get
// angle `anguloGirado`.
struct QuartoDeVolta {
  cv::Mat_<uchar> img, girada;
  std::vector<cv::KeyPoint> k1, k2;
};
inline QuartoDeVolta quartoDeVolta(float size, float anguloGirado = -1) {
  const int lado = 201;
  QuartoDeVolta q;
  q.img = textura(lado, lado, 21);
  cv::rotate(q.img, q.girada, cv::ROTATE_90_COUNTERCLOCKWISE);
  for (const cv::Point& p : {cv::Point(100, 100), cv::Point(70, 120), cv::Point(130, 80), cv::Point(90, 60)}) {
    q.k1.emplace_back(cv::Point2f(p.x, p.y), size);
    q.k2.emplace_back(cv::Point2f(p.y, lado - 1 - p.x), size, anguloGirado);
  }
  return q;
}

}  // namespace teste
