// STAR: the CenSurE detector (Agrawal, Konolige, Blas, ECCV 2008) with its
// star-shaped bi-level filter, two overlapping squares (one upright, one
// turned 45 degrees), computed on integral images at a set of filter sizes.
//
// The filters pair an outer star with an inner one of about half its size;
// those whose outer star is at most maxSize are used, and a keypoint is a
// pixel whose strongest filter is not the smallest or the largest, whose
// response passes responseThreshold and is the extremum of its
// suppressNonmaxSize window, and that does not lie on a line (Harris measure
// of the response, and of the "same filter" indicator, against the two line
// thresholds). Pixels closer to the border than the largest star are skipped.
//
// Keypoint fields: whole-number pt, size the outer star's size, angle -1,
// octave 0, class_id -1, response the magnitude of the filter response in
// grey levels (bright and dark blobs alike).
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
