// Keypoint and match drawings made with our own rasterisation (no OpenCV
// drawing call), so that every pixel rule is ours and testable.
//
// Coordinates are row first, then column; everything is clipped to the image.
// Angles are in degrees and follow the image axes: 0 points to the right and
// the angle grows clockwise on screen (rows grow downwards), as OpenCV draws
// a keypoint's orientation. A keypoint (x, y) is drawn at row y, column x,
// with radius size / 2.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace tvm {

// Nearest integer pixel of a coordinate, ties to even, held within
// +-2^28 so that sums of a few coordinates stay inside int.
int pixel(double v);

// Ring of pixels whose centres lie at a distance in [radius - width/2,
// radius + width/2) from (row, col); radius 0 and width 1 give the centre
// pixel. Only rows inside the image are visited, so a huge radius is cheap.
void circulo(cv::Mat_<cv::Vec3b>& img, int row, int col, int radius, cv::Vec3b colour, int width);

// A clock face: the circle and a hand from the centre to the circle at
// `angle`. A non-finite angle draws no hand.
void relogioCircular(cv::Mat_<cv::Vec3b>& img, int row, int col, int radius, double angle, cv::Vec3b colour,
                     int width);

// Drawing codes, the characters of KeyShow's modes:
//   'R' rich, one colour per keypoint    'r' rich, red
//   'N' plain, one colour per keypoint   'n' plain, red
// Rich: a clock of radius size/2 * scale and hand at the keypoint's angle
// (no hand for angle -1, "no orientation"). Plain: a circle of radius
// 3 * scale. Colours per keypoint come from a fixed palette by index, so the
// same input always gives the same picture. Any other code stops the tool
// with "Erro: Modo invalido".

// The grey image in colour with the keypoints drawn over it.
cv::Mat_<cv::Vec3b> keyMyShow(const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& kps, char code,
                              double scale);

// a and b side by side (a on the left, top-aligned, white where neither
// covers); each match draws its two keypoints as keyMyShow does and a line
// joining their centres. ka[queryIdx] is in a, kb[trainIdx] in b; an index
// outside its list stops the tool.
cv::Mat_<cv::Vec3b> matMyShow(const cv::Mat_<uchar>& a, const cv::Mat_<uchar>& b,
                              const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& ka,
                              const std::vector<cv::KeyPoint>& kb, char code, double scale);

// Colour i of the palette used for codes 'R' and 'N': fully saturated hues
// spread by the golden ratio, never grey.
cv::Vec3b corPaleta(size_t i);

}  // namespace tvm
