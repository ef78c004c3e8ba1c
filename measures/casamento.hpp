// Measures of a list of matches between image 1 and image 2, ranked best
// first, against the true transform H (image 1 to image 2).
#pragma once

#include "measures/repetibilidade.hpp"

#include <opencv2/core.hpp>

#include <array>
#include <optional>
#include <vector>

namespace measures {

// The reprojection error of a match as D2-Net and R2D2 measure it: k1 mapped
// by H, its distance to k2 in image-2 pixels. +inf when H sends k1 to
// infinity, so such a match is wrong at every threshold.
double erroReprojecao(const cv::Matx33d& H, cv::Point2f p1, cv::Point2f p2);

// Mean matching accuracy (Dusmanu et al., D2-Net, CVPR 2019; Revaud et al.,
// R2D2, 2019): for t = 1..10 pixels, the share of the matches whose
// reprojection error is at most t. No value for an empty list. The papers
// average it over the pairs of HPatches, fed mutual nearest neighbours.
using MMA = std::array<Medida, 10>;
MMA mma(const std::vector<double>& erros);

// Matching score (Mikolajczyk & Schmid, PAMI 2005): correct matches between
// keypoints of the common part over min(n1, n2), the keypoints of each image
// in the common part.
inline Medida matchingScore(int corretos, int n1, int n2) { return razao(corretos, std::min(n1, n2)); }

// Recall against 1-precision along the ranked list (Mikolajczyk & Schmid's
// descriptor protocol), one point per prefix of the list, as
// cv::computeRecallPrecisionCurve computes it, in float:
//   recall = correct so far / correct in the whole list,
//   precision = correct so far / matches so far.
// A list with no correct match has recall -1 everywhere (OpenCV's value).
struct PontoRP {
  float umMenosPrecisao, recall;
};
std::vector<PontoRP> curvaRecallPrecisao(const std::vector<bool>& certos);

// Average precision: the area under that precision-recall curve, the mean of
// the precision at the rank of each correct match. HPatches' matching task
// divides the same sum by the number of ground-truth pairs instead; the two
// agree when every correct partner is in the list. No value without a
// correct match.
Medida averagePrecision(const std::vector<bool>& certos);

// Homography accuracy (DeTone et al., SuperPoint, CVPRW 2018): H estimated by
// cv::findHomography with RANSAC (reprojection threshold in pixels) from the
// matched points; its error is the mean distance between the four corners of
// image 1 mapped by the estimate and by the true H. No value when there are
// fewer than four matches or RANSAC finds no transform; the pair then counts
// as not correct at any threshold.
Medida erroHomografia(const std::vector<cv::Point2f>& pontos1, const std::vector<cv::Point2f>& pontos2,
                      const cv::Matx33d& H, cv::Size img1, double limiarRansac);
inline int homografiaCorreta(const Medida& erro, double limiar) { return erro && *erro <= limiar; }

// Every measure above for one ranked match list. A match is correct when
// the overlap error of its two regions is below `erro` (a fraction, 0.4 in
// the descriptor protocol) or, with `dist` set, when k2 mapped back into
// image 1 lies within dist pixels of k1. The matching score counts correct
// matches whose keypoints are both in the common part, over the keypoints of
// each image's whole list (k1, k2) in the common part.
struct OpcoesCasamento {
  double erro = 0.4;
  std::optional<double> dist;
  ParteComum comum = ParteComum::ambas;
  double ransac = 3;  // RANSAC reprojection threshold, pixels
};
struct MedidasCasamento {
  std::vector<bool> certos;  // per match, in list order
  int corretos = 0;
  int n1 = 0, n2 = 0;        // keypoints of each image in the common part
  Medida matchingScore;
  MMA mma;
  Medida ap, erroHomografia;
};
// m1[i] and m2[i] are the keypoints of match i, best first; H maps image 1
// to image 2 and Hinv back.
MedidasCasamento medeCasamentos(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                                const cv::Matx33d& H, const cv::Matx33d& Hinv, cv::Size img1, cv::Size img2,
                                const OpcoesCasamento& op);

}  // namespace measures
