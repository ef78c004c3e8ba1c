// SIMPLE: the smoothed grey levels at a fixed pattern of points on concentric
// rings around a keypoint, in the keypoint's own orientation and scale, then
// normalised to mean 0 and deviation 1.
//
// Pattern: point 0 is the centre; ring k = 1..c has 6k points at radius
// k * espacamento, counter-clockwise from angle 0 (y up), ring k turned by
// (k - 1)/c of its angular step so that neighbouring rings interleave. The
// row holds the samples in that order: 1 + 3c(c + 1) values.
//
// The keypoint's size (diameter, pixels) maps onto the fraction
// q = (2c + 1)/(2c + 2) of a 91-pixel canonical patch; its angle is in degrees.
// Two modes, two different descriptors (not two speeds of one):
//   'c' copy:    per keypoint, warp the neighbourhood into the 91 x 91 patch
//                (rotated and scaled), blur it and read the pattern there;
//   'i' inplace: blur the whole image once and read, for each pattern point,
//                the nearest image pixel to where it lands (edges replicated).
#pragma once

#include "descriptors/descritor.hpp"
#include "descriptors/gauss_inteiro.hpp"

#include <opencv2/core.hpp>

#include <vector>

class SIMPLE : public Descritor {
 public:
  static constexpr int tnl = 91;  // side of the canonical patch
  static constexpr int maxCamadas = 89;  // beyond this every ring collapses onto the centre
  static constexpr int maxDgauss = 1001;

  // modo 'c' or 'i'; camadas the ring count c; dgauss the odd side of the
  // Gaussian kernel. Stops on a bad mode, an even or oversized kernel or a
  // ring count outside 0..maxCamadas.
  SIMPLE(char modo = 'c', int camadas = 6, int dgauss = 11);

  // Also stops with "Erro: Desvio<epsilon" when a row is flat.
  void compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
               cv::Mat& descriptors) const override;

  int descriptorSize() const override { return n_; }
  int espacamento() const { return espacamento_; }
  char modo() const { return modo_; }
  // Pattern points (x right, y up), in row order.
  const std::vector<cv::Point>& padrao() const { return padrao_; }

 private:
  struct Rascunho {
    cv::Mat_<uchar> patch, suave;
    GaussInteiro::Rascunho gauss;
  };

  void linhaCopia(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, Rascunho& r, float* linha) const;
  void linhaInplace(const cv::Mat_<uchar>& suave, const cv::KeyPoint& k, float* linha) const;

  char modo_;
  int c_;
  double q_;
  int n_;
  int espacamento_;
  int dgauss_;
  std::vector<cv::Point> padrao_;
  // Copy mode: the patch pixels under the pattern, the only smoothed ones read.
  cv::Rect regiaoLida_;
  GaussInteiro gauss_;
};
