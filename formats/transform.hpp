// The transform file and the correctness of a match.
//
// Transform file: nine numbers, a 3x3 matrix H in row-major order, separated
// by any blank space (line layout carries no meaning). H maps a point of
// image 1 to image 2: (x2, y2, w) = H (x1, y1, 1), then divide by w.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace formats {

// Reads H as a 3x3 CV_64F matrix. A missing file, fewer than nine numbers or
// a word that is not a finite number stops the tool.
void leMat33(cv::Mat& matrix, const std::string& fileName);

// The inverse of H by LU; a singular H gives the zero matrix (OpenCV's rule).
cv::Mat inversa(const cv::Mat& H);

// True unless k2, mapped back into image 1 by Hinv, lies farther than `dist`
// pixels from k1. A NaN distance (Hinv maps k2 to w = 0) is not farther than
// anything, so such a match counts as correct.
bool acerto(const cv::Mat& Hinv, const cv::KeyPoint& k1, const cv::KeyPoint& k2, double dist);

// The matches of a match file, ready for judging.
struct Casamentos {
  std::vector<cv::DMatch> matches;
  std::vector<cv::KeyPoint> keypoints1, keypoints2;
};

// Shared front part of the evaluation tools: the match file, then its
// consistency check ("Erro: Dimensoes conflitantes").
Casamentos leCasamentos(const std::string& matchFile);
// Correctness of every match, in file order.
std::vector<bool> julga(const cv::Mat& Hinv, const Casamentos& casamentos, double dist);
// The same against the transform file `transformFile` (H from image 1 to
// image 2): read, inverted, then every match judged within `dist` pixels.
// The step every tool that scores a match file shares.
std::vector<bool> julgaComArquivo(const Casamentos& casamentos, const std::string& transformFile, double dist);

}  // namespace formats
