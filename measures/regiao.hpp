// Keypoint regions and their overlap, as the Oxford affine-region protocol
// (Mikolajczyk & Schmid et al., IJCV 2005) measures them and as OpenCV's
// cv::evaluateFeatureDetector computes them.
//
// A keypoint is the disc of diameter `size` around (x, y): the ellipse
//   a dx^2 + 2 b dx dy + c dy^2 < 1,   a = c = 1/r^2, b = 0,  r = size/2,
// in pixels of its image (x right, y down). A region of image 2 is compared
// with one of image 1 after mapping it into image 1: its centre through the
// transform, its ellipse through the transform's local affine approximation
// at the centre (the Jacobian), so a homography turns a disc into an ellipse.
//
// The overlap of two regions is |R1 n R2t| / |R1 u R2t|, counted on a grid
// of about 50 x 50 steps over their bounding boxes after both are scaled so
// that R1 has radius 30 (the protocol's normalisation: a small and a large
// region are judged alike). The overlap error is 1 - overlap. Every step of
// that computation keeps OpenCV's arithmetic (float where it uses float,
// double where it uses double, the same operation order), so counts and
// ratios are identical to cv::evaluateFeatureDetector's; the test proves it.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace measures {

struct Regiao {
  cv::Point2f centro;          // pixels of the image the region is expressed in
  double a = 1, b = 0, c = 1;  // the ellipse a dx^2 + 2 b dx dy + c dy^2 < 1
  float eixo1 = 1, eixo2 = 1;  // half axes
  float caixaX = 1, caixaY = 1;  // half sizes of the axis-aligned bounding box

  Regiao() = default;
  Regiao(cv::Point2f centro, double a, double b, double c);
};

// The disc of a keypoint. Its size must be positive and finite.
Regiao regiaoDe(const cv::KeyPoint& k);

// The region mapped through H (3x3, from the region's image to the other):
// centre by H, ellipse by H's Jacobian at the centre. A centre that H sends
// to infinity lands at (FLT_MAX, FLT_MAX), outside every image.
Regiao projeta(const Regiao& r, const cv::Matx33d& H);

// True when the region's bounding box lies strictly inside an image of this
// size: x - caixaX > 0 and x + caixaX < width, and the same along y.
bool dentro(const Regiao& r, cv::Size imagem);

// What the overlap of a region of image 1 with others needs, computed once:
// the region scaled to radius 30 and the search radius, 4 radii.
struct Referencia {
  Referencia(const Regiao& r1);
  Regiao r1;          // as given
  Regiao escalada;    // scaled to radius 30
  float fator;        // the scale applied to the ellipse coefficients
  float alcance;      // regions whose centres are this far or farther do not overlap
};

// The vector instructions that count the grid: the widest the processor
// has, unless a test asks for a narrower path (all give the same counts).
enum class Vetores { melhor, escalar, avx2, avx512 };
bool disponivel(Vetores v);

// Overlap (0..1) of r1 with r2t, a region of image 2 already mapped into
// image 1; 0 when the centres are `alcance` or more apart.
float sobreposicao(const Referencia& r1, const Regiao& r2t, Vetores v = Vetores::melhor);

// Overlap error under which two regions correspond, 0.4 in the detector
// protocol; the overlap must then reach 1 - erro, computed in float.
inline float sobreposicaoMinima(double erroMaximo) { return 1.f - static_cast<float>(erroMaximo); }

// Every pair (i1, i2) of regions of image 1 and regions of image 2 mapped
// into image 1 whose overlap reaches `minima`, then the one-to-one
// assignment of the protocol: pairs by decreasing overlap, each taken unless
// one of its regions is already taken. Returns the pairs taken, best first.
struct Par {
  float sobreposicao;
  int i1, i2;
};
std::vector<Par> correspondencias(const std::vector<Regiao>& regioes1, const std::vector<Regiao>& regioes2t,
                                  float minima);

}  // namespace measures
