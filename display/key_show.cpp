#include "display/tools.hpp"
#include "display/desenhos.hpp"

#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <opencv2/features2d.hpp>

#include <cmath>
#include <cstdio>
#include <string>

namespace display {

ModoKeyShow modoKeyShow(char modo) {
  const char base = static_cast<char>(modo & ~0x20);
  if (base != 'N' && base != 'R') tvm::erro("Erro: Modo invalido");
  return {base == 'R', (modo & 0x20) == 0};
}

cv::Mat_<cv::Vec3b> desenhaKeyShow(const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& kps, char modo) {
  const ModoKeyShow m = modoKeyShow(modo);
  // Negative components ask OpenCV for a random colour per keypoint.
  const cv::Scalar cor = m.multicor ? cv::Scalar::all(-1) : cv::Scalar(0, 0, 255);
  cv::Mat saida;
  cv::drawKeypoints(img, kps, saida, cor,
                    m.rico ? cv::DrawMatchesFlags::DRAW_RICH_KEYPOINTS : cv::DrawMatchesFlags::DEFAULT);
  return saida;
}

}  // namespace display

namespace {

// OpenCV draws in fixed point, 4 fraction bits in an int, and asserts on a
// negative radius: keypoints beyond these bounds cannot be drawn.
void verificaDesenhaveis(const std::vector<cv::KeyPoint>& kps, const std::string& arquivo) {
  constexpr float kLimite = 1e7f;
  for (size_t i = 0; i < kps.size(); ++i) {
    const cv::KeyPoint& k = kps[i];
    if (!(k.size >= 0.0f && k.size <= kLimite && std::fabs(k.pt.x) <= kLimite && std::fabs(k.pt.y) <= kLimite))
      tvm::erro("Erro: keypoint ", std::to_string(i) + " com tamanho ou posicao invalida em ", arquivo);
  }
}

}  // namespace

void KeyShow(int argc, char** argv) {
  if (argc != 4 && argc != 5)
    tvm::falhaUso({"keyshow a.pgm a.xml a.ppm [modo]",
                   "  modo=r/n/R/N r=rich n=normal minuscula=vermelho maiuscula=multicor", "  Default=r"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);
  const std::vector<cv::KeyPoint> kps = formats::leKeyPoints(argv[2]);
  const char modo = argc == 5 ? argv[4][0] : 'r';
  verificaDesenhaveis(kps, argv[2]);
  tvm::imp(display::desenhaKeyShow(img, kps, modo), argv[3]);
}

void KeyMyShow(int argc, char** argv) {
  if (argc != 4) tvm::falhaUso({"keymyshow a.pgm a.xml a.ppm"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);
  const std::vector<cv::KeyPoint> kps = formats::leKeyPoints(argv[2]);
  tvm::imp(display::keyMyShow(img, kps, 'R', 1.0), argv[3]);
}
