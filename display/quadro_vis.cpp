#include "display/desenhos.hpp"

#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/desenho.hpp"

#include <cctype>

namespace display {

namespace {

void relogioKeyPoint(cv::Mat_<cv::Vec3b>& img, int row, int col, const cv::KeyPoint& k, cv::Vec3b cor) {
  tvm::relogioCircular(img, row, col, tvm::pixel(k.size * 0.5), k.angle - 90.0f, cor, 2);
}

}  // namespace

ModoVis modoVis(const std::string& palavra) {
  switch (std::tolower(static_cast<unsigned char>(palavra.empty() ? '\0' : palavra[0]))) {
    case 'a': return ModoVis::acertos;
    case 'e': return ModoVis::erros;
    case 't': return ModoVis::todos;
    default: tvm::erro("Erro: Modo invalido");
  }
}

std::vector<CasamentoVis> casamentosVisiveis(const std::vector<bool>& certos, ModoVis modo) {
  std::vector<CasamentoVis> visiveis;
  for (size_t i = 0; i < certos.size(); ++i) {
    if (modo == ModoVis::acertos && !certos[i]) continue;
    if (modo == ModoVis::erros && certos[i]) continue;
    visiveis.push_back({i, certos[i]});
  }
  return visiveis;
}

cv::Mat_<cv::Vec3b> telaVis(const cv::Mat_<uchar>& img1, const cv::Mat_<uchar>& img2) {
  cv::Mat_<cv::Vec3b> tela;
  tvm::converte(tvm::grudaV(img1, img2, 0, 255), tela);
  return tela;
}

cv::Mat_<cv::Vec3b> quadroVis(const cv::Mat_<cv::Vec3b>& tela, int linhasImg1, const cv::KeyPoint& k1,
                              const cv::KeyPoint& k2, bool correto) {
  const cv::Vec3b cor = correto ? cv::Vec3b(0, 255, 0) : cv::Vec3b(0, 0, 255);
  cv::Mat_<cv::Vec3b> quadro = tela.clone();
  relogioKeyPoint(quadro, tvm::pixel(k1.pt.y), tvm::pixel(k1.pt.x), k1, cor);
  // The sum is taken in float, as the keypoint's own coordinate is.
  relogioKeyPoint(quadro, tvm::pixel(static_cast<float>(linhasImg1) + k2.pt.y), tvm::pixel(k2.pt.x), k2, cor);
  return quadro;
}

}  // namespace display
