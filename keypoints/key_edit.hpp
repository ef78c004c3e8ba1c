// Editing keypoint stores: resizing every keypoint (KeyCgSize) and keeping the
// n largest that fit inside the image (KeyGrande). Only `size` (a diameter)
// is read or changed; every other field passes through untouched.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace keypoints {

// size = float(double(size) * fator). False, with the list half changed,
// when some size stops being a finite number.
bool mudaTamanho(std::vector<cv::KeyPoint>& keypoints, double fator);

// Largest first. An unstable sort on size alone: keypoints of equal size may
// come out in any order.
void ordenaPorTamanho(std::vector<cv::KeyPoint>& keypoints);

// The keypoints whose circles fit inside a W x H image (intersectaCanvas), in
// their order.
std::vector<cv::KeyPoint> filtraCanvas(const std::vector<cv::KeyPoint>& keypoints, int W, int H);

// Keeps the first n when 0 < n < size; n <= 0 or n >= size keeps them all.
void mantemPrimeiros(std::vector<cv::KeyPoint>& keypoints, int n);

}  // namespace keypoints
