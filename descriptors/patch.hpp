// Patch extraction shared by the own descriptors: the neighbourhood of a
// keypoint mapped onto a small square patch by an affine warp.
#pragma once

#include <opencv2/core.hpp>

#include <cstddef>

// The map p -> escala * R(theta) * (p - centro) + (metade, metade), with
// R(theta) = [[cos, -sin], [sin, cos]] (theta in radians), as a 2x3 matrix:
// the product T2 * S * R * T1 of a translation to the origin, a rotation, a
// scaling and a translation to the patch centre.
cv::Matx23d mapaPatch(cv::Point2f centro, double escala, double theta, int metade);

// Warps `image` into a lado x lado patch with `mapa` (forward map), area
// interpolation when shrinking (escala < 1) and linear otherwise, borders
// replicated.
void extraiPatch(const cv::Mat_<uchar>& image, const cv::Matx23d& mapa, double escala, int lado,
                 cv::Mat_<uchar>& patch);

// A keypoint that cannot be warped (size not a positive finite number, or a
// position that is not finite) stops the tool with a message naming its
// index.
void validaKeyPoint(const cv::KeyPoint& k, size_t indice);
