// Detector repeatability: how many keypoints of one view reappear in the
// other, over the part of the scene both views show.
//
// H is the 3x3 transform from image 1 to image 2, Hinv its inverse; images
// are given by their sizes. Keypoints are OpenCV's (x right, y down, pixel
// centres at integers, size a diameter).
#pragma once

#include "measures/regiao.hpp"

#include <opencv2/core.hpp>

#include <optional>
#include <vector>

namespace measures {

// Which keypoints count as seen by both images.
//  ambas:  the region lies inside its own image and its projection inside the
//          other one (the Oxford protocol's common part).
//  opencv: what cv::evaluateFeatureDetector keeps: regions of image 1 inside
//          image 1, regions of image 2 whose projection lies inside image 1.
//          It never asks whether image 1's regions are seen by image 2, so on
//          a pair with little overlap it counts regions that cannot repeat.
enum class ParteComum { ambas, opencv };

// Whether a region counts as common. `lado` is 1 or 2, the image the region
// belongs to; r is the region in its image, rt its projection into the other.
bool naParteComum(const Regiao& r, const Regiao& rt, int lado, cv::Size propria, cv::Size outra, ParteComum modo);

// A ratio whose denominator may be zero: no value then, printed as NA.
using Medida = std::optional<double>;
inline Medida razao(double num, double den) { return den > 0 ? Medida(num / den) : std::nullopt; }

// Overlap repeatability (Mikolajczyk et al., IJCV 2005; cv::evaluateFeatureDetector):
// keypoint discs of image 2 are mapped into image 1, regions correspond when
// their overlap error is below `erroMaximo` (0.4 in the detector protocol),
// the correspondences are made one-to-one greedily by decreasing overlap, and
//   repeatability = correspondences / min(n1, n2),
// n1 and n2 the regions of each image in the common part. Computed in float,
// as OpenCV does, so that both agree to the last bit. Where OpenCV answers -1
// (no correspondence at all), this answers 0 correspondences.
struct RepeticaoSobreposicao {
  int correspondencias = 0;
  int n1 = 0, n2 = 0;
  Medida repeatability() const;
};
RepeticaoSobreposicao repeticaoSobreposicao(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                            const cv::Matx33d& H, const cv::Matx33d& Hinv, cv::Size img1,
                                            cv::Size img2, double erroMaximo, ParteComum modo);

// Distance repeatability (SuperPoint, DeTone et al. 2018; the HPatches
// detector evaluation in that form): keypoints of image 1 mapped by H whose
// projection falls inside image 2 (0 <= x < width, 0 <= y < height), and
// keypoints of image 2 whose projection by Hinv falls inside image 1; a
// keypoint repeats when a keypoint of the other set lies within `px` pixels,
// distances measured in image 2. Both directions count:
//   repeatability = (repeated1 + repeated2) / (n1 + n2).
struct RepeticaoDistancia {
  int repetidos1 = 0, repetidos2 = 0;
  int n1 = 0, n2 = 0;
  Medida repeatability() const { return razao(repetidos1 + repetidos2, n1 + n2); }
};
RepeticaoDistancia repeticaoDistancia(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                      const cv::Matx33d& H, const cv::Matx33d& Hinv, cv::Size img1, cv::Size img2,
                                      double px);

// A point through H; NaN coordinates when H sends it to infinity or beyond
// the doubles, so that no comparison with it holds.
cv::Point2d transforma(const cv::Matx33d& H, cv::Point2f p);

}  // namespace measures
