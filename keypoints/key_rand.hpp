// Synthetic ground truth: random keypoints in image a and their exact
// partners in image b under a known 3x3 transform.
#pragma once

#include "support/argumentos.hpp"

#include <opencv2/core.hpp>

#include <vector>

namespace keypoints {

struct ParamRand {
  int seed = 7;      // seed of tvm::myrandom
  int diamMin = 30;  // smallest diameter drawn
  int diamMax = 40;  // diameters are drawn below this bound
  int pertPt = 0;    // largest change of each partner coordinate, pixels
  int pertDiam = 0;  // largest change of the partner's diameter
  int pertDeg = 0;   // largest change of the partner's angle, degrees
};

// KeyRand's option words (seed= diamMin= diamMax= pertPt= pertDiam= pertDeg=),
// consumed from `opcoes`; options not given keep p's values.
void leParamRand(tvm::ISTR& opcoes, ParamRand& p);

// Consecutive rejected drawings after which the generator gives up: the
// diameters cannot fit in the frame, or the transform maps everything out.
constexpr long kMaxRejeicoesSeguidas = 1000000;
// The most pairs one run draws.
constexpr int kMaxPares = 10000000;

// Seeds tvm::myrandom with p.seed and draws until `a` holds n keypoints
// (none when n <= 0); b[i] is a[i] mapped by M (image a to image b).
//
// Each attempt draws x, y, diameter and angle (whole numbers, angle 0..359),
// then the partner's perturbations that are switched on, always in that
// order, so a seed fixes the stores. Both keypoints must fit (intersectaCanvas)
// in a frame the size of image a, the partner included: image b's own size
// plays no part. The partner's angle is atan2's, -180..180 (270 comes back as
// -90 under the identity). A partner that is not finite (M sends the point to
// infinity) does not fit either, nor one whose perturbed diameter is not
// positive.
//
// Stops the tool when diamMin < 1, diamMax <= diamMin or after kMaxRejeicoesSeguidas
// rejections in a row.
void geraPares(cv::Size tamanhoA, const cv::Matx33d& M, int n, const ParamRand& p, std::vector<cv::KeyPoint>& a,
               std::vector<cv::KeyPoint>& b);

// How many of `keypoints` have a circle reaching outside a W x H image
// (intersectaCanvas): KeyRand's partners are fitted to image a's frame, and
// those that leave image b describe pixels b does not have.
size_t foraDaImagem(const std::vector<cv::KeyPoint>& keypoints, cv::Size tamanho);

}  // namespace keypoints
