// Exhaustive k-nearest-neighbour search by L2 distance that returns what
// OpenCV 4.6's BFMatcher(NORM_L2) returns on x86-64, bit for bit: the same
// float operations in the same order for every distance, the same tie rule
// (the lower train index wins), the same refusal of distances that are not
// below FLT_MAX. It is several times faster because it computes a tile of
// query and train rows at a time with wide vectors, train rows in blocks that
// stay in cache, query rows spread over OpenCV's threads.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace matching {

// The path to take: the fastest the processor has, unless a test asks for
// another. The tiles (escalar, avx2, avx512) sum every pair in OpenCV's
// order; `produto` (AVX-512) chooses candidates by matrix product and sums
// only those in OpenCV's order (vizinhos_l2.cpp says why that is exact).
enum class Vetores { melhor, escalar, avx2, avx512, produto };
bool disponivel(Vetores v);

// One list per query row, nearest first, at most k entries (fewer when the
// train set is smaller or distances overflow). Both matrices CV_32FC1 with
// the same number of columns; k is 1 or 2.
std::vector<std::vector<cv::DMatch>> vizinhosL2(const cv::Mat& query, const cv::Mat& train, int k,
                                                Vetores v = Vetores::melhor);

// The squared distance of one pair, summed in the order OpenCV sums it.
float somaQuadrados(const float* a, const float* b, int n);

}  // namespace matching
