// SURF: Speeded-Up Robust Features (Bay, Ess, Tuytelaars, Van Gool, CVIU 2008).
//
// Detector: determinant of the Hessian approximated by box filters on an
// integral image, searched over octaves of growing filter size, with
// non-maximum suppression in scale space and sub-pixel refinement.
// Descriptor: Haar wavelet responses in a 4x4 grid around the keypoint,
// turned to its dominant orientation; 64 floats (128 when extended), unit
// length.
//
// Scale space: layer k of octave o uses filters of side (9 + 6k) * 2^o,
// sampled every 2^o pixels; nOctaveLayers layers per octave are searched,
// plus one above and one below for the comparison in scale.
//
// Keypoint fields as detect() fills them: pt in pixels (x right, y down,
// pixel centres at whole numbers); size the filter side interpolated between
// layers and rounded (the Gaussian scale is 1.2 * size / 9); angle in degrees
// [0, 360), the direction of the descriptor's x axis measured from +x towards
// +y, so that with y down it turns clockwise on screen (270 when upright);
// response the Hessian determinant in squared grey levels; octave the octave
// index; class_id the sign of the Hessian trace (1: dark blob, -1: bright).
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace features {

class SURF {
 public:
  explicit SURF(double hessianThreshold = 100, int nOctaves = 4, int nOctaveLayers = 3, bool extended = false,
                bool upright = false);

  // Any grey or colour image; keypoints come out by decreasing response.
  void detect(const cv::Mat& image, std::vector<cv::KeyPoint>& keypoints, const cv::Mat& mask = cv::Mat()) const;
  // Recomputes each keypoint's angle (270 when upright) and drops keypoints
  // too large for the image, centred outside it or with no orientation
  // sample inside it; `descriptors` gets one CV_32F row per kept keypoint,
  // in the order of the kept keypoints (zero when the patch is flat).
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
