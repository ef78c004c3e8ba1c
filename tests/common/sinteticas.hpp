// Deterministic synthetic images for tests: the same arguments give the same
// pixels on every run and machine.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace teste {

// Smooth random texture: blurred noise stretched to the full grey range,
// rich in corners and blobs at every scale, so detectors find keypoints.
cv::Mat_<uchar> textura(int rows, int cols, unsigned seed);
// Dark discs of several radii on a bright background.
cv::Mat_<uchar> discos(int rows, int cols, unsigned seed);
// Squares of `lado` pixels alternating between 0 and 255.
cv::Mat_<uchar> xadrez(int rows, int cols, int lado);
// Every pixel equal to `nivel`.
cv::Mat_<uchar> uniforme(int rows, int cols, uchar nivel);

// Rotates `img` by `graus` counter-clockwise about its centre (the same size,
// borders replicated); returns the 3x3 transform from img to the result.
cv::Matx33d gira(const cv::Mat_<uchar>& img, double graus, cv::Mat_<uchar>& girada);

// A grey image of data/ (the bundled graf views), read by OpenCV.
cv::Mat leCinzaDeDados(const std::string& nome);
// Where `img` has exactly colour `cor`, as (column, row) points.
std::vector<cv::Point> pixelsDaCor(const cv::Mat_<cv::Vec3b>& img, cv::Vec3b cor);

// What OpenCV's own detectors stored for the data/ views (tests/data/reference):
// the keypoints, and the descriptors into `desc` when asked.
std::vector<cv::KeyPoint> leReferencia(const std::string& nome, cv::Mat* desc = nullptr);
// Index of the keypoint of `b` nearest to `k` within 1.5 px whose size is
// within 10 % of k's, or -1; and the share of `a` that has such a partner.
int parceiro(const cv::KeyPoint& k, const std::vector<cv::KeyPoint>& b);
double fracaoAchada(const std::vector<cv::KeyPoint>& a, const std::vector<cv::KeyPoint>& b);

void salva(const cv::Mat& img, const std::string& arquivo);
// Writes a 3x3 transform file, one row per line.
void salvaMat33(const cv::Matx33d& H, const std::string& arquivo);

}  // namespace teste
