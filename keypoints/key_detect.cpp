// KeySift and KeyFast: OpenCV's detectors. KeySurf and KeyStar, which run our
// own detectors, are in key_surf_star.cpp.
#include "keypoints/key_detect.hpp"

#include "features/memoria.hpp"
#include "features/sift.hpp"
#include "formats/stores.hpp"
#include "keypoints/tools.hpp"
#include "support/argumentos.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <opencv2/features2d.hpp>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

namespace keypoints {

std::vector<cv::KeyPoint> detectaFast(const cv::Mat_<uchar>& img, int threshold) {
  std::vector<cv::KeyPoint> keypoints;
  cv::FastFeatureDetector::create(threshold, true)->detect(img, keypoints, cv::noArray());
  return keypoints;
}

}  // namespace keypoints

namespace {

// A number typed as a real, truncated toward zero as the tool uses it.
constexpr int kMaxCamadasSift = 100;

int truncaInt(const char* texto) {
  double v = 0;
  tvm::convArg(v, texto);
  const double t = std::trunc(v);
  if (t < std::numeric_limits<int>::min() || t > std::numeric_limits<int>::max())
    tvm::erro("Erro: numero fora do intervalo ", texto);
  return static_cast<int>(t);
}

}  // namespace

void KeySift(int argc, char** argv) {
  if (argc != 3 && argc != 5)
    tvm::falhaUso({"KeySift a.pgm a.xml [thresh edgethresh]", "  Ex: KeySift a.pgm a.xml 0.02 10"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);

  int nfeatures = 0, nOctaveLayers = 3;
  if (argc == 5) {
    nfeatures = truncaInt(argv[3]);
    nOctaveLayers = truncaInt(argv[4]);
    // OpenCV would fail on an assertion about Gaussian kernels; say why.
    if (nOctaveLayers < 1) tvm::erro("Erro: numero de camadas invalido ", argv[4]);
    // Each layer is a whole image per octave; past this the pyramid outgrows
    // any memory and OpenCV fails deep inside.
    if (nOctaveLayers > kMaxCamadasSift) tvm::erro("Erro: numero de camadas invalido ", argv[4]);
  }

  features::verificaMemoriaDetector(features::Detector::sift, img.size(), argv[1], nOctaveLayers);
  const std::vector<cv::KeyPoint> keypoints = features::detectaSift(img, nfeatures, nOctaveLayers);
  std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints.size()));
  formats::impKeyPoints(argv[2], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}

void KeyFast(int argc, char** argv) {
  if (argc != 3 && argc != 4) tvm::falhaUso({"KeyFast a.pgm a.xml [thresh]", "  Ex: KeyFast a.pgm a.xml 1"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);

  int threshold = 10;
  if (argc == 4) tvm::convArg(threshold, argv[3]);

  features::verificaMemoriaDetector(features::Detector::fast, img.size(), argv[1]);
  const std::vector<cv::KeyPoint> keypoints = keypoints::detectaFast(img, threshold);
  std::printf("Keypoints=%u\n", static_cast<unsigned>(keypoints.size()));
  formats::impKeyPoints(argv[2], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}
