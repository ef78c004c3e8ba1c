// SURF: Speeded-Up Robust Features (Bay, Ess, Tuytelaars, Van Gool, CVIU 2008).
//
// Detector: determinant of the Hessian approximated by box filters on an
// integral image, searched over octaves of growing filter size, with
// non-maximum suppression in scale space and sub-pixel refinement.
// Descriptor: Haar wavelet responses in a 4x4 grid around the keypoint,
// turned to its dominant orientation; 64 floats (128 when extended), unit
// length.
//
// Keypoint fields as detect() fills them: pt in pixels (x right, y down);
// size = round(1.2 * filterSide / 9 * 2)-style whole-number diameter derived
// from the scale; angle in degrees [0, 360), counter-clockwise with y down as
// OpenCV measures it; response the Hessian determinant; octave the octave
// index; class_id the sign of the Hessian trace (1 or -1).
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace features {

class SURF {
 public:
  explicit SURF(double hessianThreshold = 100, int nOctaves = 4, int nOctaveLayers = 3, bool extended = false,
                bool upright = false);

  void detect(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, const cv::Mat& mask = cv::Mat()) const;
  // Recomputes each keypoint's angle (270 when upright) and drops keypoints
  // too large for the image; `descriptors` gets one CV_32F row per kept one.
  void compute(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) const;

  int descriptorSize() const { return extended_ ? 128 : 64; }
  double hessianThreshold() const { return hessianThreshold_; }
  int nOctaves() const { return nOctaves_; }
  int nOctaveLayers() const { return nOctaveLayers_; }
  bool extended() const { return extended_; }
  bool upright() const { return upright_; }

 private:
  double hessianThreshold_;
  int nOctaves_;
  int nOctaveLayers_;
  bool extended_;
  bool upright_;
};

}  // namespace features
