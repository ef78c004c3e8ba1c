// KeyMyShow's and MatMyShow's drawings, on our own rasterisation
// (support/desenho.hpp).
#include "display/desenhos.hpp"

#include "support/desenho.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace display {

namespace {

const cv::Vec3b kVermelho(0, 0, 255);
const cv::Vec3b kBranco(255, 255, 255);

void validaEscala(double scale) {
  if (!std::isfinite(scale) || scale < 0) tvm::erro("Erro: fator de escala invalido");
}

void desenhaKeyPoint(cv::Mat_<cv::Vec3b>& img, const cv::KeyPoint& k, int deslocamentoColuna, ModoKeyShow m,
                     cv::Vec3b cor, double scale) {
  const int row = tvm::pixel(k.pt.y);
  const int col = tvm::pixel(k.pt.x) + deslocamentoColuna;
  if (!m.rico) {
    tvm::circulo(img, row, col, tvm::pixel(3.0 * scale), cor, 1);
    return;
  }
  const int raio = std::max(0, tvm::pixel(k.size * 0.5 * scale));
  // OpenCV marks a keypoint without orientation with angle -1.
  const double angulo = k.angle == -1.0f ? NAN : static_cast<double>(k.angle);
  tvm::relogioCircular(img, row, col, raio, angulo, cor, 1);
}

}  // namespace

cv::Vec3b corPaleta(size_t i) {
  const double fracao = std::fmod(static_cast<double>(i) * 0.6180339887498949, 1.0);
  const double h = fracao * 6.0;
  const int setor = std::min(5, static_cast<int>(h));
  const double f = h - setor;
  const uchar sobe = cv::saturate_cast<uchar>(255.0 * f);
  const uchar desce = cv::saturate_cast<uchar>(255.0 * (1.0 - f));
  // Hue sectors red -> yellow -> green -> cyan -> blue -> magenta, in BGR.
  switch (setor) {
    case 0: return cv::Vec3b(0, sobe, 255);
    case 1: return cv::Vec3b(0, 255, desce);
    case 2: return cv::Vec3b(sobe, 255, 0);
    case 3: return cv::Vec3b(255, desce, 0);
    case 4: return cv::Vec3b(255, 0, sobe);
    default: return cv::Vec3b(desce, 0, 255);
  }
}

cv::Mat_<cv::Vec3b> keyMyShow(const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& kps, char code,
                              double scale) {
  const ModoKeyShow m = modoKeyShow(code);
  validaEscala(scale);
  cv::Mat_<cv::Vec3b> saida;
  tvm::converte(img, saida);
  for (size_t i = 0; i < kps.size(); ++i)
    desenhaKeyPoint(saida, kps[i], 0, m, m.multicor ? corPaleta(i) : kVermelho, scale);
  return saida;
}

cv::Mat_<cv::Vec3b> matMyShow(const cv::Mat_<uchar>& a, const cv::Mat_<uchar>& b,
                              const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& ka,
                              const std::vector<cv::KeyPoint>& kb, char code, double scale) {
  const ModoKeyShow m = modoKeyShow(code);
  validaEscala(scale);
  cv::Mat_<cv::Vec3b> saida(std::max(a.rows, b.rows), a.cols + b.cols, kBranco);
  cv::Mat_<cv::Vec3b> cor;
  tvm::converte(a, cor);
  cor.copyTo(saida(cv::Rect(0, 0, a.cols, a.rows)));
  tvm::converte(b, cor);
  cor.copyTo(saida(cv::Rect(a.cols, 0, b.cols, b.rows)));
  for (size_t i = 0; i < matches.size(); ++i) {
    const cv::DMatch& d = matches[i];
    if (d.queryIdx < 0 || static_cast<size_t>(d.queryIdx) >= ka.size() || d.trainIdx < 0 ||
        static_cast<size_t>(d.trainIdx) >= kb.size())
      tvm::erro("Erro: matMyShow: indice de keypoint fora do intervalo");
    const cv::KeyPoint& k1 = ka[static_cast<size_t>(d.queryIdx)];
    const cv::KeyPoint& k2 = kb[static_cast<size_t>(d.trainIdx)];
    const cv::Vec3b c = m.multicor ? corPaleta(i) : kVermelho;
    desenhaKeyPoint(saida, k1, 0, m, c, scale);
    desenhaKeyPoint(saida, k2, a.cols, m, c, scale);
    tvm::reta(saida, tvm::pixel(k1.pt.y), tvm::pixel(k1.pt.x), tvm::pixel(k2.pt.y), tvm::pixel(k2.pt.x) + a.cols,
              c, 1);
  }
  return saida;
}

cv::Mat_<cv::Vec3b> desenhaAcertos(const cv::Mat_<uchar>& a, const cv::Mat_<uchar>& b,
                                   const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                                   const std::vector<bool>& certos, const std::vector<double>& erros, int piores,
                                   int largura) {
  cv::Mat_<cv::Vec3b> saida(std::max(a.rows, b.rows), a.cols + b.cols, kBranco), cor;
  tvm::converte(a, cor);
  cor.copyTo(saida(cv::Rect(0, 0, a.cols, a.rows)));
  tvm::converte(b, cor);
  cor.copyTo(saida(cv::Rect(a.cols, 0, b.cols, b.rows)));
  const cv::Vec3b verde(0, 170, 0), vermelho(0, 0, 230);
  std::vector<size_t> errados;
  // Wrong ones last, so that they stay visible over the correct ones.
  for (const bool vezDosErrados : {false, true})
    for (size_t i = 0; i < m1.size(); ++i) {
      if (certos[i] == vezDosErrados) continue;
      if (vezDosErrados) errados.push_back(i);
      tvm::reta(saida, tvm::pixel(m1[i].pt.y), tvm::pixel(m1[i].pt.x), tvm::pixel(m2[i].pt.y),
                tvm::pixel(m2[i].pt.x) + a.cols, certos[i] ? verde : vermelho, 1);
    }
  std::stable_sort(errados.begin(), errados.end(), [&](size_t x, size_t y) { return erros[x] > erros[y]; });
  for (size_t j = 0; j < errados.size() && j < static_cast<size_t>(piores); ++j) {
    const size_t i = errados[j];
    tvm::circulo(saida, tvm::pixel(m1[i].pt.y), tvm::pixel(m1[i].pt.x), 9, vermelho, 3);
    tvm::circulo(saida, tvm::pixel(m2[i].pt.y), tvm::pixel(m2[i].pt.x) + a.cols, 9, vermelho, 3);
  }
  if (saida.cols <= largura) return saida;
  cv::Mat_<cv::Vec3b> menor;
  cv::resize(saida, menor, cv::Size(largura, std::max(1, saida.rows * largura / saida.cols)), 0, 0, cv::INTER_AREA);
  return menor;
}

}  // namespace display
