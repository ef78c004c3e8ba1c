#include "descriptors/rootsift.hpp"

#include <cmath>

namespace descriptors {

void raizSift(cv::Mat& linhas) {
  CV_Assert(linhas.empty() || linhas.type() == CV_32F);
  for (int i = 0; i < linhas.rows; ++i) {
    float* l = linhas.ptr<float>(i);
    double soma = 0;
    for (int j = 0; j < linhas.cols; ++j) soma += std::abs(l[j]);
    if (soma == 0) continue;
    const float inv = static_cast<float>(1.0 / soma);
    for (int j = 0; j < linhas.cols; ++j) l[j] = std::sqrt(std::abs(l[j]) * inv);
  }
}

}  // namespace descriptors
