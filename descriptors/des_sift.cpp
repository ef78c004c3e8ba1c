// DesSift and DesSurf: descriptors by the library's SIFT and by our SURF, on
// the keypoints of a store or, without one, on keypoints the same algorithm
// detects.
#include "descriptors/frame.hpp"
#include "descriptors/patch.hpp"
#include "descriptors/tools.hpp"
#include "features/sift.hpp"
#include "features/surf.hpp"
#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <opencv2/features2d.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace {

// The count is that of the keypoints given or detected; compute may drop
// some, and the store keeps only those that remain.
void mostraContagem(const std::vector<cv::KeyPoint>& keypoints) {
  std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints.size()));
  for (size_t i = 0; i < keypoints.size(); ++i) validaKeyPoint(keypoints[i], i);
}

// What OpenCV's SIFT needs of given keypoints and does not check itself: below
// 4 pixels a side it corrupts its heap; its window radius (about 5.3 x size)
// is an int; the octave packed in a keypoint picks a pyramid level, which must
// exist for this image (the levels SIFT's own detection would use).
void verificaParaSift(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                      const std::string& arquivoImagem) {
  if (keypoints.empty()) return;
  if (image.rows < 4 || image.cols < 4) tvm::erro("Erro: imagem pequena demais para SIFT ", arquivoImagem);
  constexpr float kMaiorTamanho = 1e8f;
  const int maiorOitava = cvRound(std::log2(std::min(image.rows, image.cols))) - 2;
  for (size_t i = 0; i < keypoints.size(); ++i) {
    const cv::KeyPoint& k = keypoints[i];
    const int oitava = static_cast<signed char>(k.octave & 255);
    const int camada = (k.octave >> 8) & 255;
    if (k.size > kMaiorTamanho || oitava < -1 || oitava > maiorOitava || camada > 5)
      tvm::erro("Erro: keypoint ", std::to_string(i), " com tamanho ou oitava invalida para SIFT");
  }
}

}  // namespace

void DesSift(int argc, char** argv) {
  if (argc != 3 && argc != 4) tvm::falhaUso({"DesSift a.pgm DesA.xml [KeyA.xml]"});
  cv::Mat_<uchar> image;
  tvm::le(image, argv[1]);
  std::vector<cv::KeyPoint> keypoints = argc == 4 ? formats::leKeyPoints(argv[3]) : features::detectaSift(image);
  mostraContagem(keypoints);
  verificaParaSift(image, keypoints, argv[1]);
  const size_t dados = keypoints.size();
  cv::Mat descriptors;
  features::criaSift()->compute(image, keypoints, descriptors);
  formats::impDescritores(argv[2], keypoints, descriptors);
  avisaStore(argv[2], dados, descriptors);
}

void DesSurf(int argc, char** argv) {
  if (argc != 3 && argc != 4) tvm::falhaUso({"DesSurf a.pgm DesA.xml [KeyA.xml]"});
  cv::Mat_<uchar> image;
  tvm::le(image, argv[1]);
  std::vector<cv::KeyPoint> keypoints;
  if (argc == 4)
    keypoints = formats::leKeyPoints(argv[3]);
  else
    features::SURF().detect(image, keypoints);
  mostraContagem(keypoints);
  const size_t dados = keypoints.size();
  cv::Mat descriptors;
  features::SURF().compute(image, keypoints, descriptors);
  formats::impDescritores(argv[2], keypoints, descriptors);
  avisaStore(argv[2], dados, descriptors);
}
