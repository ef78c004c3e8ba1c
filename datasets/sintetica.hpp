// Synthetic sequences: views of one image under exactly known changes,
// written in the Oxford layout (img1.png .. imgN.png, H1to2p .. H1toNp), so
// that any image becomes a benchmark sequence and tests make their own.
//
// View k of N (k = 1..N) applies a share t = (k - 1) / (N - 1) of each change,
// so image 1 is the source itself and image N carries the full amount:
//   rotacao   degrees, counter-clockwise on screen, about the image centre
//   escala    zoom factor; view k is scaled by escala^t about the centre
//   vista     degrees of perspective tilt: the camera turned about the
//             vertical axis (focal length the larger image side), centre kept
//   brilho    grey levels added; contraste the factor contraste^t around 0
//   gama      exponent gama^t on grey levels in [0, 1]
//   blur      Gaussian sigma t * blur, pixels
//   ruido     Gaussian noise of deviation t * ruido grey levels, drawn from
//             tvm::myrandom seeded with `seed`
//   jpeg      JPEG quality going from 100 down to jpeg (100: none)
// Geometry first (warp by H = tilt * scale * rotation, bilinear, black
// outside), then blur, contrast and brightness, gamma, noise and JPEG. The
// transform written is H exactly (%.17g), image 1 to image k. Images are
// grey PNG, so nothing is lost in the files themselves.
#pragma once

#include <opencv2/core.hpp>

#include <string>

namespace datasets {

struct ParamSint {
  int vistas = 6;      // images in the sequence, 2..100
  double rotacao = 0;  // degrees at the last view
  double escala = 1;   // zoom at the last view, > 0
  double vista = 0;    // tilt at the last view, degrees, |vista| < 80
  double brilho = 0;
  double contraste = 1;  // > 0
  double gama = 1;       // > 0
  double blur = 0;       // >= 0
  double ruido = 0;      // >= 0
  int jpeg = 100;        // 1..100
  int seed = 7;

  // Stops with the option that is out of range.
  void confere() const;
};

// The transform from the source to a view with share t of the geometry.
cv::Matx33d transformacaoSint(cv::Size tamanho, const ParamSint& p, double t);

// The view with share t of every change; draws its noise from tvm::myrandom.
cv::Mat_<uchar> vistaSint(const cv::Mat_<uchar>& fonte, const ParamSint& p, double t);

// Writes the whole sequence into `pasta` (created if missing), seeding
// tvm::myrandom first: the same source and parameters give the same files.
void escreveSequencia(const cv::Mat_<uchar>& fonte, const std::string& pasta, const ParamSint& p);

}  // namespace datasets
