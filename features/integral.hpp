// Integral images and box sums shared by SURF and STAR.
//
// The sums are kept as 32-bit unsigned integers: a box sum is a difference
// of four entries, and unsigned wrap-around makes it exact as long as the box
// itself sums to less than 2^32 (any box of fewer than 16 million 8-bit
// pixels), whatever the size of the image.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

namespace features {

// (rows + 1) x (cols + 1): entry (y, x) is the sum of img over [0, y) x [0, x).
cv::Mat integralU32(const cv::Mat& img8u);

// Sum over the rows [y0, y1) and columns [x0, x1) of the image behind the
// integral `s`, whose row stride is `step` entries.
inline int boxSum(const uint32_t* s, int step, int x0, int y0, int x1, int y1) {
  const uint32_t* a = s + y0 * step;
  const uint32_t* b = s + y1 * step;
  return int(b[x1] - b[x0] - a[x1] + a[x0]);
}

// Any input (grey or colour, any depth) as one 8-bit grey channel.
cv::Mat cinza8u(const cv::Mat& image);

}  // namespace features
