// Drawing primitives on colour images, written without OpenCV's drawing so
// that every pixel rule is ours. Coordinates are given row first, then column;
// everything is clipped to the image, so shapes may lie partly or wholly
// outside it. Angles are in degrees and follow the image axes: 0 points to the
// right and the angle grows clockwise on screen (rows grow downwards), as
// OpenCV draws a keypoint's orientation.
#pragma once

#include <opencv2/core.hpp>

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

// Straight segment between two points; width > 1 thickens it into a band of
// that many pixels across.
void reta(cv::Mat_<cv::Vec3b>& img, int row1, int col1, int row2, int col2, cv::Vec3b colour, int width);

// The pen: one current position for the whole program, as plotters have.
void moveTo(int row, int col);
// Segment of width 1 from the pen to (row, col); the pen then moves there.
void lineTo(cv::Mat_<cv::Vec3b>& img, int row, int col, cv::Vec3b colour);

}  // namespace tvm
