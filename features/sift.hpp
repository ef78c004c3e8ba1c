// OpenCV's SIFT as every tool here configures it. Only the feature count and
// the layers per octave vary (KeySift's two numbers); contrast threshold
// 0.04, edge threshold 10 and sigma 1.6 are OpenCV's defaults and stay, so
// that stores written by DesSift and KeySift agree with each other.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <vector>

namespace features {

// nfeatures 0 keeps every feature.
cv::Ptr<cv::SIFT> criaSift(int nfeatures = 0, int nOctaveLayers = 3);

// The keypoints criaSift(nfeatures, nOctaveLayers) detects on the whole image.
std::vector<cv::KeyPoint> detectaSift(const cv::Mat_<uchar>& img, int nfeatures = 0, int nOctaveLayers = 3);

}  // namespace features
