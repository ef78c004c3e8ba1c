// RootSIFT: SIFT rows compared by the Hellinger kernel instead of L2.
//
// Arandjelovic & Zisserman, "Three things everyone should know to improve
// object retrieval", CVPR 2012, section 3.1: divide each SIFT row by its L1
// norm, then take the square root of every element. The L2 distance between
// two such rows is then the Hellinger distance between the originals, and
// every row has unit L2 norm. SIFT's elements are never negative, so the L1
// norm is their sum; a row of zeros (a flat patch) stays zeros.
#pragma once

#include <opencv2/core.hpp>

namespace descriptors {

// In place, on CV_32F rows.
void raizSift(cv::Mat& linhas);

}  // namespace descriptors
