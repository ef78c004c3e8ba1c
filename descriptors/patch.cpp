#include "descriptors/patch.hpp"

#include "support/erro.hpp"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>

cv::Matx23d mapaPatch(cv::Point2f centro, double escala, double theta, int metade) {
  const double c = std::cos(theta), s = std::sin(theta);
  const double a11 = escala * c, a12 = -escala * s, a21 = escala * s, a22 = escala * c;
  return cv::Matx23d(a11, a12, metade - (a11 * centro.x + a12 * centro.y),  //
                     a21, a22, metade - (a21 * centro.x + a22 * centro.y));
}

void extraiPatch(const cv::Mat_<uchar>& image, const cv::Matx23d& mapa, double escala, int lado,
                 cv::Mat_<uchar>& patch) {
  const int interpolacao = escala < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR;
  cv::warpAffine(image, patch, cv::Mat(mapa), cv::Size(lado, lado), interpolacao, cv::BORDER_REPLICATE,
                 cv::Scalar(0));
}

void validaKeyPoint(const cv::KeyPoint& k, size_t indice) {
  if (!(std::isfinite(k.size) && k.size > 0.0f && std::isfinite(k.pt.x) && std::isfinite(k.pt.y)))
    tvm::erro("Erro: keypoint ", std::to_string(indice), " com tamanho ou posicao invalida");
}
