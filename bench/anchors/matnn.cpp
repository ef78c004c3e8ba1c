// MatNN anchor: the same steps with nothing around them. Reads two
// descriptor stores with FileStorage, matches every row of the first to its
// nearest row of the second by brute force (L2), sorts by distance and writes
// the 15-column match text.
//
//   matnn_minimo des1.xml des2.xml match.txt
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

bool le(const char* arquivo, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) {
  cv::FileStorage fs(arquivo, cv::FileStorage::READ);
  if (!fs.isOpened()) return false;
  cv::read(fs["keypoints"], keypoints);
  fs["descriptors"] >> descriptors;
  return true;
}

void escreve(FILE* f, const cv::KeyPoint& k) {
  std::fprintf(f, "%e %e %e %e %e %d %d", k.pt.x, k.pt.y, k.size, k.angle, k.response, k.octave, k.class_id);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("uso: matnn_minimo des1.xml des2.xml match.txt\n", stderr);
    return 2;
  }
  std::vector<cv::KeyPoint> k1, k2;
  cv::Mat d1, d2;
  if (!le(argv[1], k1, d1) || !le(argv[2], k2, d2)) {
    std::fputs("nao leu os descritores\n", stderr);
    return 1;
  }
  std::vector<cv::DMatch> matches;
  cv::BFMatcher(cv::NORM_L2).match(d1, d2, matches);
  std::sort(matches.begin(), matches.end());
  FILE* f = std::fopen(argv[3], "w");
  if (f == nullptr) return 1;
  std::fprintf(f, "%zu 15\n", matches.size());
  std::fputs("//dist-ratio k1.pt.x k1.pt.y k1.size k1.angle k1.response k1.octave k1.class_id k2.pt.x k2.pt.y "
             "k2.size k2.angle k2.response k2.octave k2.class_id\n", f);
  for (const cv::DMatch& m : matches) {
    std::fprintf(f, "%e  ", m.distance);
    escreve(f, k1[m.queryIdx]);
    std::fputs("  ", f);
    escreve(f, k2[m.trainIdx]);
    std::fputc('\n', f);
  }
  return std::fclose(f) == 0 ? 0 : 1;
}
