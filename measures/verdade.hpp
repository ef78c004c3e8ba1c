// What is known about the geometry between the two images of a pair: a
// homography (planar scenes, or a camera that only turns), or two calibrated
// cameras with the relative pose between them, optionally with depth.
// Measures say which kinds they need; a measure on a pair of another kind is
// NA.
//
// Conventions: pixels as OpenCV's (x right, y down, the top-left pixel's
// centre at (0, 0)). Cameras: K maps camera coordinates (x right, y down, z
// forward) to pixels; the pose maps image 0's camera frame to image 1's,
//   X1 = R X0 + t.
// Depth maps give z in image 0's (1's) camera frame per pixel, 0 where unknown.
#pragma once

#include <opencv2/core.hpp>

namespace measures {

enum class TipoVerdade { homografia, cameras };

struct Cameras {
  cv::Matx33d K0, K1;
  cv::Matx33d R = cv::Matx33d::eye();
  cv::Vec3d t;
  cv::Mat_<float> profundidade0, profundidade1;  // empty when not given
};

struct Verdade {
  TipoVerdade tipo = TipoVerdade::homografia;
  cv::Matx33d H = cv::Matx33d::eye(), Hinv = cv::Matx33d::eye();  // image 0 to image 1, and back
  Cameras cameras;
};

}  // namespace measures
