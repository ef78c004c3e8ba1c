#include "sweep/angulos.hpp"

#include <cmath>

namespace sweep {

size_t converteAngulos(std::vector<cv::KeyPoint>& keypoints, Convencao de, Convencao para) {
  if (de == para || de == Convencao::nenhuma || para == Convencao::nenhuma) return 0;
  size_t mudados = 0;
  for (cv::KeyPoint& k : keypoints) {
    if (!std::isfinite(k.angle)) continue;
    float a = std::fmod(360.f - k.angle, 360.f);
    if (a < 0) a += 360.f;
    mudados += a != k.angle;
    k.angle = a;
  }
  return mudados;
}

}  // namespace sweep
