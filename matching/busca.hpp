// Nearest-neighbour search between two descriptor stores, shared by MatNN and
// MatRatio.
//
// Store 1 is the query side and store 2 the train side: a result's queryIdx
// indexes the keypoints of store 1 and its trainIdx those of store 2.
// Descriptors are 32-bit float rows, compared by Euclidean (L2) distance, or
// binary rows of 8-bit bytes (ORB, BRISK, AKAZE), compared by Hamming
// distance, the number of differing bits; the element type decides. The
// exhaustive search gives BFMatcher's answers with the matching norm, bit
// for bit, ties included.
#pragma once

#include "support/argumentos.hpp"

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <functional>
#include <string>
#include <vector>

// Exhaustive search (exact) or FLANN (approximate): randomized KD-trees for
// float rows, locality-sensitive hashing for binary ones.
enum class Busca { brute, flann };

// KD-tree forest and search effort of the approximate search.
constexpr int kArvoresFlann = 4;
constexpr int kChecksFlann = 32;
// LSH tables, key bits and multi-probe level for binary rows: the values
// OpenCV's documentation suggests for ORB.
constexpr int kTabelasLsh = 12, kBitsChaveLsh = 20, kSondagemLsh = 2;

// Whether rows are binary (CV_8UC1), matched by Hamming distance.
bool binarios(const cv::Mat& descritores);

struct ParDescritores {
  std::vector<cv::KeyPoint> keypoints1, keypoints2;
  cv::Mat descritores1, descritores2;
};

// Reads both stores, each checked for as many keypoints as descriptor rows.
// Non-empty descriptor matrices must be single-channel 32-bit float (finite,
// within maiorValorDescritor(cols) in magnitude) or 8-bit binary and, when
// both sides have rows, of one type and equally wide: OpenCV's matchers would
// otherwise stop on an internal assertion that names neither file.
ParDescritores leParDescritores(const std::string& arquivo1, const std::string& arquivo2);

// The largest magnitude a descriptor element may have for the squared L2
// distance between any two rows of `colunas` elements to be finite in float.
double maiorValorDescritor(int colunas);

// The matcher of `modo` for float or binary rows; an empty pointer for a
// value outside the enum, so that each tool reports it in its own words.
cv::Ptr<cv::DescriptorMatcher> criaMatcher(Busca modo, bool binario = false);

// One nearest train row for every query row; no result at all when either
// side is empty.
std::vector<cv::DMatch> casaNN(const cv::Mat& query, const cv::Mat& train, Busca modo);

// The two nearest train rows for every query row, nearest first: exactly one
// list per query row. A train set of fewer than two rows gives shorter lists,
// which the ratio records reject.
std::vector<std::vector<cv::DMatch>> casa2NN(const cv::Mat& query, const cv::Mat& train, Busca modo);

// The matches of casaNN that are also nearest neighbours the other way
// (store 2 to store 1), sorted by distance, ties in query order: the matches
// D2-Net and R2D2 score with MMA.
std::vector<cv::DMatch> casaMutuos(const cv::Mat& descritores1, const cv::Mat& descritores2, Busca modo);

// The exhaustive searches a pair's matchers draw on, each done once: the
// forward k-NN of store 1's rows in store 2 (k = 1, or 2 when a ratio test
// is asked) and the backward 1-NN (for mutual matching). The nearest of a
// 2-NN list is the 1-NN, tie rule included, so one forward 2-NN serves 1-NN,
// ratio and mutual matching alike: 2 passes hold what 4 did.
struct Passes {
  std::vector<std::vector<cv::DMatch>> ida, volta;
  int kIda = 0;           // 0: no forward pass
  bool temVolta = false;
  int linhas1 = 0, linhas2 = 0;  // rows of the two stores
};

// Stops, as the matchers do, on stores of different element types.
Passes calculaPasses(const cv::Mat& descritores1, const cv::Mat& descritores2, int kIda, bool volta);

// casaNN, casa2NN and casaMutuos by exhaustive search, from passes that hold
// what each needs (kIda >= 1; 2 for doisNNDe; temVolta for mutuosDe).
std::vector<cv::DMatch> nnDe(const Passes& p);
std::vector<std::vector<cv::DMatch>> doisNNDe(const Passes& p);
std::vector<cv::DMatch> mutuosDe(const Passes& p);

// MatNN's option words, "brute" or "flann", read until "eof"; the last wins.
Busca leBuscaNN(tvm::ISTR& in);

// The matches of one pair of stores, in the order they are written.
using CasaPar = std::function<std::vector<cv::DMatch>(const ParDescritores& par, Busca modo)>;
// What MatNN and MatMutuo share around their matcher: the usage block (its
// first two lines `titulo` and `sintaxe`), both stores, the search words, and
// `casa`'s matches written to the match file.
void casaPar(int argc, char** argv, const char* titulo, const char* sintaxe, const CasaPar& casa);
