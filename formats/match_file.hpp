// The match file: the text format between matchers, evaluators and viewers.
//
//   "<n> 15"                                   count line ("%u 15")
//   "//dist-ratio k1.pt.x ... k2.class_id"     comment line
//   n lines of 15 columns, best match first:
//     distance  k1: x y size angle response octave class_id
//               k2: x y size angle response octave class_id
//   ("%e  %e %e %e %e %e %d %d  %e %e %e %e %e %d %d")
// Column 1 holds a descriptor distance, or a distance ratio when the matcher
// ordered by ratio. k1 is the keypoint of image 1 (query side), k2 that of
// image 2 (train side). Each line carries whole keypoints, so the file needs
// no store beside it.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace formats {

// Writes the matches, or only those whose `selection` entry is true when the
// selection is not empty; k1 = keypoints1[queryIdx], k2 = keypoints2[trainIdx].
void impMatch(const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& keypoints1,
              const std::vector<cv::KeyPoint>& keypoints2, const std::string& fileName,
              const std::vector<bool>& selection = {});

// Reads a match file. Match i then has queryIdx = trainIdx = i, imgIdx = -1,
// and refers to keypoints1[i] and keypoints2[i]: the store indices are not in
// the file.
void leMatch(std::vector<cv::DMatch>& matches, std::vector<cv::KeyPoint>& keypoints1,
             std::vector<cv::KeyPoint>& keypoints2, const std::string& fileName);

// The keypoint as a match file gives it back: each float field through its
// "%e" text, read as the readers above read it.
cv::KeyPoint comoNoArquivo(const cv::KeyPoint& k);

// The word-by-word reader alone (tvm::leNum), which leMatch falls back on for
// files the direct parser does not take: the reference it must agree with.
void leMatchFscanf(std::vector<cv::DMatch>& matches, std::vector<cv::KeyPoint>& keypoints1,
                   std::vector<cv::KeyPoint>& keypoints2, const std::string& fileName);

}  // namespace formats
