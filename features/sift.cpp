#include "features/sift.hpp"

namespace features {

cv::Ptr<cv::SIFT> criaSift(int nfeatures, int nOctaveLayers) {
  return cv::SIFT::create(nfeatures, nOctaveLayers, 0.04, 10.0, 1.6);
}

std::vector<cv::KeyPoint> detectaSift(const cv::Mat_<uchar>& img, int nfeatures, int nOctaveLayers) {
  std::vector<cv::KeyPoint> keypoints;
  criaSift(nfeatures, nOctaveLayers)->detect(img, keypoints, cv::noArray());
  return keypoints;
}

}  // namespace features
