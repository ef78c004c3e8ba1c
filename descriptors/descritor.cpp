#include "descriptors/descritor.hpp"

#include "descriptors/patch.hpp"

void Descritor::preparaLinhas(const std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) const {
  for (size_t i = 0; i < keypoints.size(); ++i) validaKeyPoint(keypoints[i], i);
  descriptors.create(static_cast<int>(keypoints.size()), descriptorSize(), CV_32F);
}
