// What every descriptor tool shares: where its keypoints come from, the
// count line, option checking and the store it writes.
//
//   DesXxx a.pgm DesA.xml [key=KeyA.xml option=value ...]
//
// The own descriptors (SIMPLE, RIFF, RIHOG, RUHOG, Forapro) read keypoints
// only when at least one option word follows the output name: from the store
// named by key=, or else by SIFT detection. With no option word at all the
// keypoint list stays empty and the store gets no keypoints: users' scripts
// rely on that run to write an empty store, so it is kept as it is.
#pragma once

#include "support/argumentos.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

// Rows of `descriptors` equal, byte for byte, to some other row. Many of
// them mean regions too small or too flat for the descriptor to tell apart.
size_t linhasRepetidas(const cv::Mat& descriptors);

// Warnings on the descriptor store `saida` just written: no keypoints in it,
// keypoints the extractor dropped out of the `dados` it was given, more than
// half its rows repeating another.
void avisaStore(const std::string& saida, size_t dados, const cv::Mat& descriptors);

class FrameDescritor {
 public:
  // Checks the word count (at least 3; otherwise prints `uso` and stops),
  // reads the image and, when options follow, the keypoints, printing
  // "KeyPoints k=%u".
  FrameDescritor(int argc, char** argv, const std::vector<const char*>& uso);

  // The option words after the output name (empty when there are none).
  tvm::ISTR& opcoes() { return opcoes_; }
  // Stops with "Erro: Argumento invalido " when an option word was not used.
  void verificaResto() const;

  const cv::Mat_<uchar>& imagem() const { return imagem_; }
  const std::vector<cv::KeyPoint>& keypoints() const { return keypoints_; }

  // Writes the keypoints and `descriptors` to the output store.
  void grava(const cv::Mat& descriptors) const;

 private:
  std::string saida_;
  bool semOpcoes_ = false;
  tvm::ISTR opcoes_;
  cv::Mat_<uchar> imagem_;
  std::vector<cv::KeyPoint> keypoints_;
};
