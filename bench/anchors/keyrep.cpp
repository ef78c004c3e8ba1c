// KeyRep anchor: cv::evaluateFeatureDetector on two images, two keypoint
// stores and a homography, with nothing around it. Prints the repeatability,
// the correspondences and, on stderr, the milliseconds spent inside
// evaluateFeatureDetector alone (the best of `vezes` calls), so that a whole
// KeyRep process can be set against the library call as well as against this
// whole process.
//
//   keyrep_minimo img1 img2 key1.xml key2.xml H.txt [vezes]
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgcodecs.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace {

bool le(const char* arquivo, std::vector<cv::KeyPoint>& keypoints) {
  cv::FileStorage fs(arquivo, cv::FileStorage::READ);
  if (!fs.isOpened()) return false;
  cv::read(fs["keypoints"], keypoints);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6 && argc != 7) {
    std::fputs("uso: keyrep_minimo img1 img2 key1.xml key2.xml H.txt [vezes]\n", stderr);
    return 2;
  }
  const cv::Mat a = cv::imread(argv[1], cv::IMREAD_GRAYSCALE), b = cv::imread(argv[2], cv::IMREAD_GRAYSCALE);
  std::vector<cv::KeyPoint> k1, k2;
  cv::Mat H(3, 3, CV_64F);
  std::ifstream h(argv[5]);
  for (int i = 0; i < 9; ++i) h >> H.at<double>(i / 3, i % 3);
  if (a.empty() || b.empty() || !le(argv[3], k1) || !le(argv[4], k2) || !h) {
    std::fputs("nao leu a entrada\n", stderr);
    return 1;
  }
  const int vezes = argc == 7 ? std::atoi(argv[6]) : 1;
  double melhor = 1e300;
  float rep = 0;
  int correspondencias = 0;
  for (int v = 0; v < vezes; ++v) {
    std::vector<cv::KeyPoint> c1 = k1, c2 = k2;
    const auto t0 = std::chrono::steady_clock::now();
    cv::evaluateFeatureDetector(a, b, H, &c1, &c2, rep, correspondencias);
    const std::chrono::duration<double, std::milli> t = std::chrono::steady_clock::now() - t0;
    melhor = std::min(melhor, t.count());
  }
  std::printf("repeatability=%g correspondences=%d\n", rep, correspondencias);
  std::fprintf(stderr, "evaluateFeatureDetector_ms=%.3f\n", melhor);
  return 0;
}
