// Exhaustive k-nearest-neighbour search by Hamming distance that returns what
// OpenCV 4.6's BFMatcher(NORM_HAMMING, false).knnMatch returns, bit for bit,
// several times faster: a tile of query rows by train rows at a time in wide
// registers, train rows in blocks that stay in the L1 cache, query rows
// spread over OpenCV's threads.
//
// Rows: binary descriptors, one CV_8UC1 row each (ORB 32 bytes, BRISK 64,
// AKAZE 61, BRIEF 16/32/64); any width. The distance of two rows is the
// number of differing bits, an exact whole number, so any summation order
// gives OpenCV's value: only the selection rule needs care.
//
// OpenCV's rule (cv::batchDistance with K > 0, read in its source and held
// by hamming_test.cpp on heavily tied data): for each query row it walks the
// train rows in index order, keeping k (distance, index) slots that start at
// (INT_MAX, -1); a row enters only if its distance is strictly below the
// k-th slot's and then goes behind every slot of equal distance. So the
// answer is the k smallest pairs in (distance, train index) order: among
// equal distances the lower train index comes first, and a later row never
// displaces an earlier one of the same distance. The integer distance becomes
// the DMatch's float (exact below 2^24); imgIdx is 0.
//
// Why ours equals it: every pair's distance is the same whole number; each
// query row meets the train rows in index order (blocks, then panels, then
// lanes ascending) and keeps its k slots with that very rule; a query row is
// handled by one thread from start to end, so the thread count changes
// nothing.
//
// Layout inside (vizinhos_hamming.cpp): rows are cut into 64-bit words, the
// last one zero-padded in query and train alike, so padding adds no
// differing bit (AKAZE's 61 bytes make 8 words). Train rows are packed into
// panels of 8 rows, word-major: word w of the 8 rows is 8 consecutive words,
// one vector lane per train row, so a tile adds the popcounts of a whole
// panel into 8 distances without any horizontal sum.
//
// Empty inputs, as BFMatcher answers them (into an empty vector: given a
// full one, it appends): an empty query gives no lists; a train set with no
// rows (but the query's width) gives one empty list per query row; fewer
// than k train rows give shorter lists.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace matching {

// The path to take: the fastest the processor has, unless a test asks for
// another. escalar: portable __builtin_popcountll; avx2: nibble lookup with
// vpshufb; avx512: AVX-512 VPOPCNTDQ. All give the same answer.
enum class VetoresHamming { melhor, escalar, avx2, avx512 };
bool disponivel(VetoresHamming v);

// One list per query row, nearest first, at most k entries (fewer when the
// train set is smaller). Both matrices CV_8UC1 with the same number of
// columns; k is 1 or 2.
std::vector<std::vector<cv::DMatch>> vizinhosHamming(const cv::Mat& query, const cv::Mat& train, int k,
                                                     VetoresHamming v = VetoresHamming::melhor);

}  // namespace matching
