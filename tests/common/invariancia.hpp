// A measuring harness for the tests and the benchmarks, not part of the
// program. Repeatability and descriptor invariance of a detector under
// rotation and scale, measured as OpenCV's features2d invariance tests measure them, so
// that our detectors are held to the bar OpenCV's own must pass:
// - rotation: the image turns about its centre onto a square canvas as wide
//   as its diagonal, so nothing is cut; keypoints are looked for 16 px or
//   more inside the original frame (the mask turns with the image);
// - scale: the image shrinks by 1 / fator (INTER_LINEAR_EXACT) and the small
//   image's keypoints are scaled back up;
// - a keypoint matches when its carried circle overlaps the detected circle
//   of greatest overlap by at least half their union.
#pragma once

#include <opencv2/core.hpp>

#include <functional>
#include <vector>

namespace features {
class SURF;
}

namespace teste {

using features::SURF;

struct Repeticao {
  int levados = 0;    // keypoints carried into the other image
  int casados = 0;    // of those, the ones whose circle found a partner
  int coerentes = 0;  // of the matched, those whose angle (rotation, within
                      // 15 degrees) or size (scale, within 0.8) agrees
  double razao() const { return levados ? double(casados) / levados : 0.0; }
  double razaoCoerente() const { return casados ? double(coerentes) / casados : 0.0; }
};

// Intersection over union of two discs.
double sobreposicao(cv::Point2f c1, float r1, cv::Point2f c2, float r2);

// Maps a keypoint through H: position, size scaled by the local scale of H,
// angle turned by the direction of H (keypoint angles are degrees from +x
// towards +y).
cv::KeyPoint mapeia(const cv::KeyPoint& kp, const cv::Matx33d& H);

using Detecta = std::function<void(const cv::Mat& img, const cv::Mat& mascara, std::vector<cv::KeyPoint>& kps)>;

// One image and its keypoints, detected once; each call measures one angle
// (degrees) or one scale factor.
class Invariancia {
 public:
  Invariancia(Detecta detecta, const cv::Mat& img);

  Repeticao rotacao(double graus) const;
  Repeticao escala(double fator) const;
  // Share of the original keypoints whose SURF descriptor's nearest
  // neighbour (L2) among the transformed image's descriptors, computed on
  // the keypoints carried exactly, lies on a circle that overlaps the true
  // partner's by at least half.
  double descritorRotacao(const SURF& surf, double graus) const;
  double descritorEscala(const SURF& surf, double fator) const;

 private:
  struct Vista {
    cv::Mat img, mascara;
    cv::Matx33d H;  // original pixels to this view's pixels
  };
  Vista gira(double graus) const;
  Vista reduz(double fator) const;
  double descritor(const SURF& surf, const std::vector<cv::KeyPoint>& base, const Vista& v) const;

  Detecta detecta_;
  cv::Mat img_, mascara_;
  std::vector<cv::KeyPoint> dentro_, todos_;  // with the border mask, without
};

}  // namespace teste
