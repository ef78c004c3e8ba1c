// The measures of one row of a sweep: a match list against its pair's
// ground truth (measures/verdade.hpp). The truth's kind decides, here and
// nowhere else, which columns of resultados.csv a row fills:
//   a homography  correct, matching_score, mma@1..10, ap, homography_error,
//                 homography@1,3,5 (KeyRep's and MatScore's measures)
//   cameras       the pose and epipolar columns (MatPose's), and with depth
//                 maps correct, matching_score and mma@1..10 through depth
// The others hold NA. medidas=mma keeps only the matches' MMA.
#pragma once

#include "sweep/varre.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace sweep {

struct MedidasDaLinha {
  // resultados.csv's columns from `correct` to the last, comma-separated.
  std::string colunas;
  // Posed pairs: "threshold,pose_error,rotation_error,translation_error,inliers"
  // per threshold of OpcoesMedidas::limiaresPose, in its order (poses.csv).
  std::vector<std::string> poses;
  std::vector<bool> certos;   // per match, for the drawing and the curve
  std::vector<double> erros;  // per match, the larger the worse
  bool comCurva = false;      // certos rank the list: its recall curve means something
};

// k1, k2: every described keypoint of the pair's images (of sizes img1,
// img2); m1[i], m2[i]: match i's keypoints.
MedidasDaLinha medeLinha(const OpcoesMedidas& op, const std::vector<cv::KeyPoint>& k1,
                         const std::vector<cv::KeyPoint>& k2, cv::Size img1, cv::Size img2,
                         const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                         const measures::Verdade& verdade);

}  // namespace sweep
