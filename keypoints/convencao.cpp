#include "keypoints/convencao.hpp"

#include <cmath>

namespace keypoints {

const char* nomeConvencao(Convencao c) {
  switch (c) {
    case Convencao::horario:
      return "opencv";
    case Convencao::antiHorario:
      return "ccw";
    case Convencao::nenhuma:
      break;
  }
  return "nenhuma";
}

float converteAngulo(float angulo, Convencao de, Convencao para) {
  if (!std::isfinite(angulo)) return angulo;
  double a = angulo;
  if (de != Convencao::nenhuma && para != Convencao::nenhuma && de != para) a = 360.0 - a;
  a = std::fmod(a, 360.0);
  if (a < 0) a += 360.0;
  // A float just below 0 wraps to a double that rounds up to 360.
  const float f = static_cast<float>(a);
  return f >= 360.0f ? 0.0f : f;
}

size_t converteAngulos(std::vector<cv::KeyPoint>& keypoints, Convencao de, Convencao para) {
  size_t mudados = 0;
  for (cv::KeyPoint& k : keypoints) {
    const float novo = converteAngulo(k.angle, de, para);
    if (std::isfinite(k.angle) && novo != k.angle) ++mudados;
    k.angle = novo;
  }
  return mudados;
}

}  // namespace keypoints
