// The detectors behind KeySurf, KeyFast and KeyStar, configured as the tools
// configure them (KeySift's SIFT is features/sift.hpp).
//
// The tools' optional numbers do not mean what their usage lines announce,
// and scripts depend on what they do mean:
//   KeySift's two numbers ("thresh edgethresh") are truncated and become
//     nfeatures and nOctaveLayers; contrast 0.04, edge 10 and sigma 1.6 stay.
//   KeySurf's threshold also drops the layers per octave from 3 to 2 and
//     turns on the extended descriptor flag.
#pragma once

#include "features/star.hpp"
#include "features/surf.hpp"

#include <opencv2/core.hpp>

#include <optional>
#include <vector>

namespace keypoints {

// OpenCV's FAST (9 of 16) with non-maximum suppression.
std::vector<cv::KeyPoint> detectaFast(const cv::Mat_<uchar>& img, int threshold = 10);

// No threshold: SURF(100, 4, 3, false, false). A threshold t:
// SURF(t, 4, 2, true, false).
features::SURF surfDoKeySurf(std::optional<double> limiar);

// STAR(64, 10, 10, 8, 5).
features::StarDetector starDoKeyStar();

}  // namespace keypoints
