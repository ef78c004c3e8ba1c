#include "descriptors/frame.hpp"

#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <opencv2/features2d.hpp>

#include <cstdio>

std::vector<cv::KeyPoint> detectaSift(const cv::Mat_<uchar>& image) {
  std::vector<cv::KeyPoint> keypoints;
  cv::SIFT::create(0, 3, 0.04, 10.0, 1.6)->detect(image, keypoints, cv::noArray());
  return keypoints;
}

namespace {

char** depoisDaSaida(int argc, char** argv) { return argc > 3 ? argv + 3 : nullptr; }

}  // namespace

FrameDescritor::FrameDescritor(int argc, char** argv, std::initializer_list<const char*> uso)
    : opcoes_(argc > 3 ? argc - 3 : 0, depoisDaSaida(argc, argv)) {
  if (argc < 3) tvm::falhaUso(uso);
  saida_ = argv[2];
  tvm::le(imagem_, argv[1]);
  if (argc == 3) return;
  std::string arquivoKeys;
  if (tvm::seekFileName(opcoes_, "key", arquivoKeys))
    keypoints_ = formats::leKeyPoints(arquivoKeys);
  else
    keypoints_ = detectaSift(imagem_);
  std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints_.size()));
}

void FrameDescritor::verificaResto() const {
  const std::string resto = opcoes_.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
}

void FrameDescritor::grava(const cv::Mat& descriptors) const {
  formats::impDescritores(saida_, keypoints_, descriptors);
}
