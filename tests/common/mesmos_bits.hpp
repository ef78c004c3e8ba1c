// Bit-for-bit equality of what the readers return: two readers that must
// agree exactly (the direct parser and cv::FileStorage, or the word-by-word
// match reader) are compared with these, in the unit tests and the fuzzers.
#pragma once

#include <opencv2/core.hpp>

#include <cstring>
#include <vector>

namespace teste {

inline bool mesmosBits(const std::vector<cv::KeyPoint>& a, const std::vector<cv::KeyPoint>& b) {
  static_assert(sizeof(cv::KeyPoint) == 7 * 4, "KeyPoint without padding");
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

inline bool mesmosBits(const std::vector<cv::DMatch>& a, const std::vector<cv::DMatch>& b) {
  static_assert(sizeof(cv::DMatch) == 4 * 4, "DMatch without padding");
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

// Same header (flags carry type and continuity), same shape, same bytes.
inline bool mesmosBits(const cv::Mat& a, const cv::Mat& b) {
  if (a.flags != b.flags || a.dims != b.dims) return false;
  for (int i = 0; i < a.dims; ++i)
    if (a.size[i] != b.size[i]) return false;
  if (a.rows != b.rows || a.cols != b.cols) return false;
  const size_t bytes = a.total() * a.elemSize();
  if (bytes == 0) return true;
  return a.isContinuous() && b.isContinuous() && std::memcmp(a.data, b.data, bytes) == 0;
}

}  // namespace teste
