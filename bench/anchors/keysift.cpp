// KeySift anchor: the same steps with nothing around them. Reads the image
// in grey, detects SIFT keypoints with OpenCV's defaults and writes them in
// a FileStorage node "keypoints".
//
//   keysift_minimo a.png a.xml
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("uso: keysift_minimo a.png a.xml\n", stderr);
    return 2;
  }
  const cv::Mat img = cv::imread(argv[1], cv::IMREAD_GRAYSCALE);
  if (img.empty()) {
    std::fprintf(stderr, "nao leu %s\n", argv[1]);
    return 1;
  }
  std::vector<cv::KeyPoint> keypoints;
  cv::SIFT::create(0, 3, 0.04, 10.0, 1.6)->detect(img, keypoints);
  cv::FileStorage fs(argv[2], cv::FileStorage::WRITE);
  cv::write(fs, "keypoints", keypoints);
  std::printf("KeyPoints k=%zu\n", keypoints.size());
  return 0;
}
