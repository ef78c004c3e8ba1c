// KeySurf and KeyStar: our own SURF and STAR detectors.
#include "features/memoria.hpp"
#include "formats/stores.hpp"
#include "keypoints/key_detect.hpp"
#include "keypoints/tools.hpp"
#include "support/argumentos.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <cstdio>

namespace keypoints {

features::SURF surfDoKeySurf(std::optional<double> limiar) {
  if (!limiar) return features::SURF(100, 4, 3, false, false);
  return features::SURF(*limiar, 4, 2, true, false);
}

features::StarDetector starDoKeyStar() { return features::StarDetector(64, 10, 10, 8, 5); }

}  // namespace keypoints

void KeySurf(int argc, char** argv) {
  if (argc != 3 && argc != 4) tvm::falhaUso({"KeySurf a.pgm a.xml [thresh]", "  Ex: KeySurf a.pgm a.xml 8000"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);

  std::optional<double> limiar;
  if (argc == 4) {
    double t = 0;
    tvm::convArg(t, argv[3]);
    limiar = t;
  }

  const features::SURF surf = keypoints::surfDoKeySurf(limiar);
  features::verificaMemoriaDetector(features::Detector::surf, img.size(), argv[1], surf.nOctaveLayers());
  std::vector<cv::KeyPoint> keypoints;
  surf.detect(img, keypoints, cv::Mat());
  std::printf("Keypoints=%u\n", static_cast<unsigned>(keypoints.size()));
  formats::impKeyPoints(argv[2], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}

void KeyStar(int argc, char** argv) {
  // The example has always named KeySift; the usage block stays as users know it.
  if (argc != 3) tvm::falhaUso({"KeyStar a.pgm a.xml", "  Ex: KeySift a.pgm a.xml"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);

  features::verificaMemoriaDetector(features::Detector::star, img.size(), argv[1]);
  std::vector<cv::KeyPoint> keypoints;
  keypoints::starDoKeyStar().detect(img, keypoints, cv::Mat());
  std::printf("Keypoints=%u\n", static_cast<unsigned>(keypoints.size()));
  formats::impKeyPoints(argv[2], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}
