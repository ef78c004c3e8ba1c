// Forapro: a short rotation-invariant descriptor from the responses of a
// keypoint's patch to two banks of complex kernels.
//
//   radial kernels, orders m = 1..nrad:    w(r) e^{i m theta}, with the window
//       w(r) = sqrt((raio + 0.5 - r)(r - 1)) for 1 < r < raio + 0.5;
//   circular kernels, frequencies n = 1..ncir: a(r) e^{i 2 pi n r / (raio + 1)},
//       a = 1 / (2 pi r), and 0.73 at the centre, for r up to raio.
// Each kernel is normalised by the sum of its weights. Coordinates: x right,
// y up, from the patch centre.
//
// Rotating the patch by alpha multiplies the radial response c_m by
// e^{i m alpha} and leaves the circular responses d_n unchanged, so the row
// holds, each group optional and in this order:
//   radang: the phases of c_k relative to k times the phase of c_1, k = 2..nrad,
//           in [0, 2 pi)                                    (nrad - 1 values);
//   radmag: |c_1| .. |c_nrad|, L1-normalised                 (nrad values);
//   cirvet: Re d_1, Im d_1, Re d_2, ... L1-normalised        (2 ncir values).
// The keypoint's diameter is mapped onto the (2 raio + 1)-pixel patch; its
// angle is never read.
#pragma once

#include "descriptors/descritor.hpp"

#include <opencv2/core.hpp>

#include <vector>

// Plane i of a three-dimensional matrix as a two-dimensional header on the
// same data (valid while `m` keeps its data).
cv::Mat slice(const cv::Mat& m, int i);

// Response of a square 8-bit patch to every plane of `kernels` (a K x lado x
// lado stack of complex floats, the patch lado x lado): resp becomes K x 1 x 1
// complex floats, resp[j] = sum of patch * kernel j over all pixels, without
// conjugation, accumulated in single precision row by row, left to right.
void convqux(const cv::Mat_<uchar>& patch, const cv::Mat& kernels, cv::Mat& resp);

class Forapro : public Descritor {
 public:
  // Bound on the kernel stack, (nrad + ncir) * lado * lado complex values.
  static constexpr long long maxElementosKernels = 1LL << 24;

  // Stops on nrad < 1, ncir < 0, raio < 0 or a kernel stack beyond the bound.
  Forapro(int nrad = 4, int ncir = 4, int raio = 40, bool radang = true, bool radmag = true, bool cirvet = true);

  int descriptorSize() const override { return descriptorSize_; }
  int lado() const { return lado_; }
  // Planes 0..nrad-1: radial kernels of orders 1..nrad; then the circular
  // kernels of frequencies 1..ncir.
  const cv::Mat& kernels() const { return kernels_; }

  // The groups of one response stack (nrad + ncir) x 1 x 1 into `saida`.
  void grupos(const cv::Mat& resp, float* saida) const;

  void compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
               cv::Mat& descriptors) const override;

 private:
  struct Rascunho {
    cv::Mat_<uchar> patch;
    cv::Mat resp;
  };

  void linha(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, float* saida, Rascunho& r) const;

  int nrad_, ncir_, raio_, lado_;
  bool radang_, radmag_, cirvet_;
  int descriptorSize_;
  cv::Mat kernels_;
};
