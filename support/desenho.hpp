// Drawing primitives on colour images, written without OpenCV's drawing so
// that every pixel rule is ours. Coordinates are given row first, then column;
// everything is clipped to the image, so shapes may lie partly or wholly
// outside it.
#pragma once

#include <opencv2/core.hpp>

namespace tvm {

// Straight segment between two points; width > 1 thickens it into a band of
// that many pixels across.
void reta(cv::Mat_<cv::Vec3b>& img, int row1, int col1, int row2, int col2, cv::Vec3b colour, int width);

// The pen: one current position for the whole program, as plotters have.
void moveTo(int row, int col);
// Segment of width 1 from the pen to (row, col); the pen then moves there.
void lineTo(cv::Mat_<cv::Vec3b>& img, int row, int col, cv::Vec3b colour);

}  // namespace tvm
