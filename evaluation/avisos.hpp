// What the evaluation tools warn about when their figures would mislead;
// the figures themselves are never changed.
#pragma once

#include "evaluation/curvas.hpp"
#include "formats/transform.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace evaluation {

// Signs that the transform file does not belong to this match file, as the
// warning texts to print (none when it looks right):
//   - read the other way (image 2 to image 1), at least 10 matches and more
//     than twice as many would be correct: the file is likely inverted;
//   - otherwise, with 20 matches or more, H sends more than half of the
//     image 1 keypoints outside the box of the image 2 keypoints (widened by
//     `dist`): likely another pair.
// `certos` are the flags judged with H as given.
std::vector<std::string> avisosTransformacao(const cv::Mat& H, const formats::Casamentos& casamentos, double dist,
                                             const std::vector<bool>& certos, const std::string& arquivoMat);

// True when some point lies in the window that curvaROC draws (fpr 0 to 0.5,
// tpr 0.5 to 1): otherwise the image shows an empty grid.
bool rocNaJanela(const std::vector<PontoROC>& pontos);

// Judges the matches against the transform file as every evaluation tool
// does, and prints the warnings above on stderr.
std::vector<bool> julgaEAvisa(const cv::Mat& H, const formats::Casamentos& casamentos, double dist,
                              const std::string& arquivoMat);
// The same with H read from the transform file `arquivoMat`: the step every
// tool that scores a match file shares.
std::vector<bool> julgaArquivoEAvisa(const formats::Casamentos& casamentos, const std::string& arquivoMat,
                                     double dist);

}  // namespace evaluation
