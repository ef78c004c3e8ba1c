// Repeatability and descriptor invariance of a detector under a known
// transform, measured as OpenCV's features2d invariance tests do, so that our
// detectors can be held to the same bar.
//
// H maps image-1 pixels to image-2 pixels (3x3, homogeneous). A keypoint
// stands for the circle of diameter `size` about `pt`.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace features {

struct Repeticao {
  int considerados = 0;  // image-1 keypoints whose circles lie inside both images
  int casados = 0;       // of those, the ones whose mapped circle overlaps the nearest image-2 circle by >= 0.5
  int orientados = 0;    // of the matched, those whose angle agrees within 15 degrees
  double razao() const { return considerados ? double(casados) / considerados : 0.0; }
  double razaoAngulo() const { return casados ? double(orientados) / casados : 0.0; }
};

// Intersection over union of two discs.
double sobreposicao(cv::Point2f c1, float r1, cv::Point2f c2, float r2);

// Maps a keypoint through H: position, size scaled by the local scale of H,
// angle turned by the direction of H (keypoint angles are degrees from +x
// towards +y).
cv::KeyPoint mapeia(const cv::KeyPoint& kp, const cv::Matx33d& H);

class SURF;

// Keypoints `base` of `img` mapped exactly through H into `out`: the share
// whose SURF descriptor's nearest neighbour is its own partner.
double acertoDescritorMapeado(const SURF& surf, const std::vector<cv::KeyPoint>& base, const cv::Mat& img,
                              const cv::Mat& out, const cv::Matx33d& H);

// Rotation by `graus` (counter-clockwise on screen) about the centre of an
// image of size `tam`, as a 3x3 transform.
cv::Matx33d rotacao(cv::Size tam, double graus);

Repeticao repeticao(const std::vector<cv::KeyPoint>& kps1, cv::Size tam1, const std::vector<cv::KeyPoint>& kps2,
                    cv::Size tam2, const cv::Matx33d& H, bool comAngulo);

// Fraction of rows of d2 whose nearest row of d1 (L2) is the one with the
// same class_id: class_id carries the index of the keypoint pair.
double acertoVizinho(const std::vector<cv::KeyPoint>& kps1, const cv::Mat& d1, const std::vector<cv::KeyPoint>& kps2,
                     const cv::Mat& d2);

}  // namespace features
