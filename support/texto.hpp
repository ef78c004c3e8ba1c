// Text on colour images, for the labels of the curve images.
#pragma once

#include <opencv2/core.hpp>

#include <string>

namespace tvm {

// Writes `text` with the top-left corner of its box at (row, col), in a small
// Hershey font (about 7 pixels per character and 14 pixels of box height at
// scale 1). With `boxed` the whole box is painted `boxColour` first, so the
// label stays readable over grid lines. The box may start outside the image:
// only the part inside is drawn.
void putTxt(cv::Mat_<cv::Vec3b>& img, int row, int col, const std::string& text, cv::Vec3b colour, int scale,
            bool boxed, cv::Vec3b boxColour);

}  // namespace tvm
