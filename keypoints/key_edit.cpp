#include "keypoints/key_edit.hpp"

#include "formats/stores.hpp"
#include "keypoints/canvas.hpp"
#include "keypoints/tools.hpp"
#include "support/argumentos.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace keypoints {

bool mudaTamanho(std::vector<cv::KeyPoint>& keypoints, double fator) {
  for (cv::KeyPoint& k : keypoints) {
    k.size = static_cast<float>(static_cast<double>(k.size) * fator);
    if (!std::isfinite(k.size)) return false;
  }
  return true;
}

void ordenaPorTamanho(std::vector<cv::KeyPoint>& keypoints) {
  std::sort(keypoints.begin(), keypoints.end(),
            [](const cv::KeyPoint& a, const cv::KeyPoint& b) { return a.size > b.size; });
}

std::vector<cv::KeyPoint> filtraCanvas(const std::vector<cv::KeyPoint>& keypoints, int W, int H) {
  std::vector<cv::KeyPoint> dentro;
  for (const cv::KeyPoint& k : keypoints)
    if (!intersectaCanvas(k.pt.x, k.pt.y, k.size, W, H)) dentro.push_back(k);
  return dentro;
}

void mantemPrimeiros(std::vector<cv::KeyPoint>& keypoints, int n) {
  if (n > 0 && static_cast<size_t>(n) < keypoints.size()) keypoints.resize(static_cast<size_t>(n));
}

}  // namespace keypoints

void KeyCgSize(int argc, char** argv) {
  if (argc != 4)
    tvm::falhaUso({"KeyCgSize ent.xml sai.xml fator", "  Change key size por fator. Pode ter ent.xml=sai.xml"});
  std::vector<cv::KeyPoint> keypoints = formats::leKeyPoints(argv[1]);
  double fator = 0;
  tvm::convArg(fator, argv[3]);

  if (!keypoints::mudaTamanho(keypoints, fator)) tvm::erro("Erro: fator leva o tamanho a infinito ", argv[3]);
  formats::impKeyPoints(argv[2], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}

void KeyGrande(int argc, char** argv) {
  if (argc != 5)
    tvm::falhaUso({"KeyGrande ent.pgm ent.xml sai.xml n", "  Seleciona n maiores keypoints sem interseccao com canvas",
                   "  Se n e' zero ou muito grande, apenas filtra os keypoints com inter"});
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);
  std::vector<cv::KeyPoint> keypoints = formats::leKeyPoints(argv[2]);
  int n = 0;
  tvm::convArg(n, argv[4]);
  if (n < 0) tvm::erro("Erro: n invalido");

  keypoints::ordenaPorTamanho(keypoints);
  const unsigned antes = static_cast<unsigned>(keypoints.size());
  keypoints = keypoints::filtraCanvas(keypoints, img.cols, img.rows);
  const unsigned size = static_cast<unsigned>(keypoints.size());
  std::printf("Apaguei keys que intersectam canvas. Keys inicio=%u Keys depois=%u.\n", antes, size);

  if (n <= 0 || static_cast<unsigned>(n) == size) {
    std::printf("n=%d size=%u. Nao vou apagar keypoints\n", n, size);
  } else {
    // A too large n wraps the count below around, as users know it; the list
    // then stays as filtered.
    std::printf("n=%d size=%u. Vou apagar %u keypoints\n", n, size, size - static_cast<unsigned>(n));
    keypoints::mantemPrimeiros(keypoints, n);
  }
  formats::impKeyPoints(argv[3], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[3]);
}
