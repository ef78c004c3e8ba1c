// What OpenCV's SIFT descriptor needs of keypoints it did not detect, for
// every tool that hands it given keypoints (DesSift, DesRootSift).
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace descriptors {

// Stops, naming the file, on a keypoint whose size, packed octave or angle
// would make OpenCV's SIFT write out of its buffers or index a pyramid level
// that does not exist; also on an image too small for SIFT.
void verificaParaSift(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                      const std::string& arquivoImagem, const std::string& arquivoKeys);

// The keypoints with every angle brought into [0, 360), the only range in
// which OpenCV's SIFT bins an angle right.
std::vector<cv::KeyPoint> angulosEm0a360(std::vector<cv::KeyPoint> keypoints);

}  // namespace descriptors
