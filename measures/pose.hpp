// Measures of a list of matches between two views of a 3D scene taken by
// calibrated cameras (measures/verdade.hpp's Cameras: X1 = R X0 + t). Match i
// pairs p0[i] in image 0 with p1[i] in image 1, in OpenCV's pixels (double,
// so that exact data stays exact; keypoints' floats convert without loss).
//
// Angles are in degrees. A pair whose pose could not be estimated has no
// error (NA); where errors of many pairs are summed up (AUC, mAA) it counts
// as +inf, wrong at every threshold, as SuperGlue's evaluation counts it.
#pragma once

#include "measures/casamento.hpp"
#include "measures/verdade.hpp"

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

namespace measures {

// K^-1 (x, y, 1) for a camera matrix with a last row (0, 0, 1) and K(1, 0) = 0:
// the point on the plane z = 1 of the camera's frame. Without skew it is
// SuperGlue's ((x - cx) / fx, (y - cy) / fy) to the last bit.
cv::Point2d normaliza(const cv::Matx33d& K, cv::Point2d p);

// Relative pose as SuperGlue's evaluation estimates it (Sarlin et al., CVPR
// 2020, estimate_pose; LoFTR and glue-factory's OpenCV estimator the same):
// points normalised by their K; cv::findEssentialMat on them with K = I,
// confidence 0.99999, 1000 iterations, threshold = limiar pixels / f, where f
// is the published mean of (K0.fx, K1.fy, K0.fx, K1.fy), not of all four
// focals: the two agree unless fx != fy. Fewer than five matches, or no E,
// give no pose. E may stack several 3x3 candidates (with exactly five
// matches, where RANSAC returns every solution of its one sample); each goes
// to cv::recoverPose (distance threshold 1e9) with the one inlier mask, which
// every call narrows in place to its cheirality-checked inliers, as the
// published loop does through OpenCV's Python binding. The loop keeps the
// first candidate with the most inliers, none with zero; but as a candidate
// is counted among the points the one before it kept, none can beat an
// earlier one: in effect the first candidate wins if it keeps any point, even
// where a later one would keep more, and there is no pose otherwise.
// t comes back with unit length.
//
// OpenCV 4.6 seeds its RANSAC and USAC generators with fixed values on each
// call, so the result depends on the input only: nothing here reseeds.
enum class MetodoPose { ransac, magsac };  // cv::RANSAC, cv::USAC_MAGSAC
struct OpcoesPose {
  double limiar = 1;  // pixels; SuperGlue's default
  MetodoPose metodo = MetodoPose::ransac;
};
struct PoseEstimada {
  cv::Matx33d R;
  cv::Vec3d t;
  std::vector<bool> inliers;  // per match, after the cheirality check
  int nInliers = 0;
};
std::optional<PoseEstimada> estimaPose(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                       const cv::Matx33d& K0, const cv::Matx33d& K1, const OpcoesPose& op = {});

// SuperGlue's compute_pose_error: rotation error = angle of R^T Rv from its
// trace, the cosine clamped to [-1, 1]; translation error = angle between t
// and tv, sign free (min(a, 180 - a)), since E fixes t only up to sign.
// tv must not be zero. The pose error is the larger of the two.
struct ErroPose {
  double rotacao = 0, translacao = 0;
  double pose() const { return std::max(rotacao, translacao); }
};
ErroPose erroPose(const cv::Matx33d& R, const cv::Vec3d& t, const cv::Matx33d& Rv, const cv::Vec3d& tv);
// The error a pair brings to the AUC and the mAA.
inline double erroParaResumo(const std::optional<ErroPose>& e) {
  return e ? e->pose() : std::numeric_limits<double>::infinity();
}

// Pose AUC (SuperGlue's pose_auc; LoFTR, glue-factory's cal_error_auc):
// errors sorted ascending with recall (i + 1) / n, the point (0, 0) put
// first; the points with error below t (numpy's searchsorted, left side)
// and then (t, the last of their recalls), integrated by the trapezoid rule
// (numpy.trapz) and divided by t. NaN counts as +inf. No value for an empty
// list (glue-factory's AUCMetric gives NaN there).
Medida aucPose(const std::vector<double>& erros, double t);
using AUCPose = std::array<Medida, 3>;  // at 5, 10 and 20 degrees
AUCPose aucPose(const std::vector<double>& erros);

// mAA of the Image Matching Challenge 2020 (Jin et al., IJCV 2021): the mean
// over t = 1, 2, ..., 10 degrees of the share of pairs with error < t. The
// challenge bins with numpy.histogram, whose bins are half-open, so strictly
// below, as the AUC above; its last bin is closed, so an error of exactly 10
// counts there and not here. No value for an empty list.
Medida mAA(const std::vector<double>& erros);

// SuperGlue's epipolar precision (compute_epipolar_error): with the true
// E = [t]x R and x0, x1 the normalised points of a match, the symmetric
// squared epipolar distance
//   d = (x1^T E x0)^2 (1 / ((E x0)_1^2 + (E x0)_2^2) + 1 / ((E^T x1)_1^2 + (E^T x1)_2^2)),
// and the share of the matches with d < 1e-4, 5e-4 and 1e-3 (SuperGlue
// reports 5e-4, glue-factory all three). d is NaN at an epipole, where the
// match counts as wrong. No value without matches.
double distanciaEpipolar(const cv::Matx33d& E, cv::Point2d x0, cv::Point2d x1);
// d of each match against the true E of the cameras.
std::vector<double> distanciasEpipolares(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                         const Cameras& c);
using PrecisaoEpipolar = std::array<Medida, 3>;
PrecisaoEpipolar precisaoEpipolar(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                  const Cameras& c);

// Reprojection error through image 0's depth: the depth of the nearest pixel
// of p0 (column floor(x + 0.5), row floor(y + 0.5): halves go up), the point
// z K0^-1 (x, y, 1) moved by R, t and projected by K1, its distance to p1 in
// image-1 pixels. NA where the pixel is off the map or has no depth (not > 0);
// +inf when the point lands behind camera 1.
Medida erroProfundidade(const Cameras& c, cv::Point2d p0, cv::Point2d p1);
// The points of an image (depth map d, camera K) that their depth carries
// onto another image of size `outra` (camera Koutra, placed by R, t from this
// one's frame), in front of it: the part of the image the other one sees, a
// matching score's denominator as the homography's common part is.
int visiveisPelaProfundidade(const cv::Mat_<float>& d, const cv::Matx33d& K, const cv::Matx33d& R, const cv::Vec3d& t,
                             const cv::Matx33d& Koutra, cv::Size outra, const std::vector<cv::Point2d>& pontos);
// Over a match list: the MMA (at most t pixels, t = 1..10) over the matches
// with depth, and the share of all matches within `limiar` pixels, those
// without depth counted as wrong (a matching score over matches rather than
// keypoints).
struct MedidasProfundidade {
  std::vector<Medida> erros;
  int comProfundidade = 0, corretos = 0;
  MMA mma;
  Medida parteCorreta;
};
MedidasProfundidade medeProfundidade(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                     const Cameras& c, double limiar = 3);

// glue-factory's sweep of the RANSAC threshold (eval/utils.py, eval_poses):
// the pose errors of every pair at each pixel threshold; the best threshold
// is the one whose AUCs at 5, 10 and 20 degrees, each rounded to four
// decimals as glue-factory rounds them, have the largest mean (glue-factory's
// "mAA"), the first one on ties. Thresholds with an empty list are skipped;
// none left gives no answer. The AUCs reported are the unrounded ones.
inline const std::vector<double> kLimiaresRansac = {0.5, 1.0, 1.5, 2.0, 2.5, 3.0};
struct MelhorLimiar {
  double limiar = 0;
  AUCPose auc;
};
std::optional<MelhorLimiar> melhorLimiar(const std::vector<double>& limiares,
                                         const std::vector<std::vector<double>>& erros);
// The same, the errors at each threshold asked of `errosNoLimiar`.
std::optional<MelhorLimiar> varreLimiares(const std::function<std::vector<double>(double)>& errosNoLimiar,
                                          const std::vector<double>& limiares = kLimiaresRansac);

}  // namespace measures
