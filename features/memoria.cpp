#include "features/memoria.hpp"

#include "support/limites.hpp"

namespace features {

namespace {

const char* nome(Detector detector) {
  switch (detector) {
    case Detector::sift:
      return "SIFT";
    case Detector::surf:
      return "SURF";
    case Detector::star:
      return "STAR";
    case Detector::fast:
      break;
  }
  return "FAST";
}

}  // namespace

double memoriaDetector(Detector detector, cv::Size tamanho, int camadas) {
  const double n = static_cast<double>(tamanho.width) * tamanho.height;
  double porPixel = 10.0;  // FAST: the image and up to one keypoint in every few pixels
  switch (detector) {
    case Detector::sift:
      porPixel = 4.0 * 4.0 * (2.0 * camadas + 5.0) * 4.0 / 3.0;
      break;
    case Detector::surf:
      porPixel = 4.0 + 5.0 * (camadas + 2.0) + 5.0;  // the image, its grey copy and the keypoints
      break;
    case Detector::star:
      porPixel = 22.0;
      break;
    case Detector::fast:
      break;
  }
  return kMemoriaBase + porPixel * n;
}

void verificaMemoriaDetector(Detector detector, cv::Size tamanho, const std::string& arquivo, int camadas) {
  tvm::verificaMemoria(memoriaDetector(detector, tamanho, camadas),
                       std::string(nome(detector)) + " em " + arquivo + " (" + std::to_string(tamanho.width) + "x" +
                           std::to_string(tamanho.height) + ")");
}

}  // namespace features
