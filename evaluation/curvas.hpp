// Curves of a ranked match file and the images that show them.
//
// A match file lists its matches best first, so accepting the first k of them
// for k = 1 ... n is a ranking. Each match carries a correctness flag (true
// when `formats::acerto` holds), and the curves below are built from those
// flags in file order.
//
// Graph images are 8-bit BGR on white, row 0 at the top; rows and columns of
// pixels are computed with cvRound (nearest, ties to even).
#pragma once

#include "support/arquivos.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace evaluation {

// Confusion counts after accepting the first k matches.
struct Confusao {
  int tp = 0;  // accepted and correct
  int fp = 0;  // accepted and wrong
  int fn = 0;  // rejected and correct
  int tn = 0;  // rejected and wrong
};

// One point of the ROC curve per accepted count k = 1 ... n. With no correct
// match every tpr is NaN (0/0); with no wrong match every fpr is NaN.
struct PontoROC {
  double tpr;
  double fpr;
};

// Counts for k = 1 ... n; the last one accepts everything. An empty flag
// vector stops the tool: there is no first step to start from.
std::vector<Confusao> confusoes(const std::vector<bool>& certos);
std::vector<PontoROC> pontosROC(const std::vector<Confusao>& contagens);

// Hit rate after accepting the first i + 1 matches: the fraction of them that
// are correct. An empty flag vector stops the tool.
std::vector<double> taxasAcerto(const std::vector<bool>& certos);

// ROC image of (50 s + 1) x (50 s + 1) pixels showing tpr from 0.5 (bottom)
// to 1.0 (top) and fpr from 0.0 (left) to 0.5 (right), grid every 0.1.
// Points outside that window are skipped without lifting the pen.
void curvaROC(const std::vector<PontoROC>& pontos, cv::Mat_<cv::Vec3b>& img, int s, cv::Vec3b cor);

// Hit-rate image of (100 s + 1) x (100 s + 1) pixels, hit rate 0 ... 1 upwards.
// eixox 'a': the point of i + 1 accepted matches at acceptance i / n;
// eixox 'r': at rejection (n - 1 - i) / n, the mirror image.
void curvaAccRej(const std::vector<double>& taxas, cv::Mat_<cv::Vec3b>& img, int s, cv::Vec3b cor, char eixox);

// The ROC file, text for outside plotting tools:
//   "%3u %3d"                 number of points, then 2 (always 2, although
//                             each data line has three columns)
//   "//pos   x   y"           two comment lines
//   "//pos fpr tpr"
//   "%3d %3d %3d" per point   1/0 correct flag, fpr x 100, tpr x 100 (cvRound;
//                             a NaN rate becomes INT_MIN, as the processor
//                             converts it)
// `certos` and `pontos` run in parallel. Cannot create: "Erro: abertura ".
void impROC(const std::vector<PontoROC>& pontos, const std::vector<bool>& certos, const std::string& nome);
// The same into the temporary of `saida`, left for the caller to confirm, so
// a tool writing two files can confirm them only when both were written.
void escreveROC(const std::vector<PontoROC>& pontos, const std::vector<bool>& certos, tvm::SaidaSegura& saida);

// The flags as one line "1 0 1 \n" (each value followed by a blank).
std::string linhaMatlab(const std::vector<bool>& certos);

// Copies onto `tela` every pixel of `img` that is not pure white (255,255,255);
// images of another size stop the tool.
void sobrepoe(cv::Mat_<cv::Vec3b>& tela, const cv::Mat_<cv::Vec3b>& img);

}  // namespace evaluation
