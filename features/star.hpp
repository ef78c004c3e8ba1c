// STAR: the CenSurE detector (Agrawal, Konolige, Blas, ECCV 2008) with its
// star-shaped bi-level filter, two overlapping squares (one upright, one
// turned 45 degrees), computed on integral images at a set of filter sizes.
//
// Keypoint fields: whole-number pt, size from the filter-size table, angle -1,
// octave 0, class_id -1, response the filter response.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace features {

class StarDetector {
 public:
  explicit StarDetector(int maxSize = 45, int responseThreshold = 30, int lineThresholdProjected = 10,
                        int lineThresholdBinarized = 8, int suppressNonmaxSize = 5);

  void detect(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, const cv::Mat& mask = cv::Mat()) const;

 private:
  int maxSize_;
  int responseThreshold_;
  int lineThresholdProjected_;
  int lineThresholdBinarized_;
  int suppressNonmaxSize_;
};

}  // namespace features
