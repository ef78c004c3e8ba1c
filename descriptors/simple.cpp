#include "descriptors/simple.hpp"

#include "descriptors/paralelo.hpp"
#include "descriptors/patch.hpp"
#include "support/erro.hpp"
#include "support/img.hpp"
#include "support/numeros.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <string>

namespace {

constexpr double doisPi = 6.283185307179586;
constexpr int meio = SIMPLE::tnl / 2;  // patch centre, row and column

// Callers form the angle in single precision, like the keypoint field itself.
double radianos(float graus) { return static_cast<double>(graus) * (CV_PI / 180.0); }

}  // namespace

namespace {

// Checks the options before any table is built from them.
int dgaussValido(char modo, int dgauss) {
  if (modo != 'c' && modo != 'i') tvm::erro("Erro: Modo invalido");
  if (dgauss % 2 != 1) tvm::erro("Erro: dGauss deve ser impar");
  if (dgauss > SIMPLE::maxDgauss) tvm::erro("Erro: dGauss maior que ", std::to_string(SIMPLE::maxDgauss));
  return dgauss;
}

}  // namespace

SIMPLE::SIMPLE(char modo, int camadas, int dgauss)
    : modo_(modo), c_(camadas), dgauss_(dgaussValido(modo, dgauss)), gauss_(dgauss_) {
  if (camadas < 0 || camadas > maxCamadas)
    tvm::erro("Erro: camadas fora da faixa 0 a ", std::to_string(maxCamadas), ": " + std::to_string(camadas));

  q_ = (2.0 * c_ + 1.0) / (2.0 * c_ + 2.0);
  n_ = 1 + 3 * c_ * (c_ + 1);
  // q * tnl / (2c + 1) is tnl / (2c + 2); rounding half to even makes c = 6
  // give 6 (from 6.5), so its outer ring lies inside that of c = 5.
  espacamento_ = cvRound(q_ * tnl / (2 * c_ + 1));

  padrao_.reserve(n_);
  padrao_.emplace_back(0, 0);
  for (int k = 1; k <= c_; ++k) {
    const int r = espacamento_ * k;
    const double giro = doisPi * (static_cast<double>(k - 1) / c_) / (6 * k);
    for (int j = 0; j < 6 * k; ++j) {
      const double a = doisPi * j / (6 * k) + giro;
      padrao_.emplace_back(cvRound(r * std::cos(a)), cvRound(r * std::sin(a)));
    }
  }
  for (const cv::Point& p : padrao_) regiaoLida_ |= cv::Rect(meio + p.x, meio - p.y, 1, 1);
  regiaoLida_ &= cv::Rect(0, 0, tnl, tnl);
}

void SIMPLE::linhaCopia(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, Rascunho& r, float* linha) const {
  const double s = tnl * q_ / k.size;
  const double theta = radianos(k.angle - 90.0f);
  extraiPatch(image, mapaPatch(k.pt, s, theta, meio), s, tnl, r.patch);
  // Only the pixels under the pattern are smoothed: the rest is never read.
  gauss_.suaviza(r.patch, regiaoLida_, r.suave, r.gauss);
  const tvm::IMG_<uchar> vista(r.suave);
  for (int i = 0; i < n_; ++i) linha[i] = vista.atc(meio - padrao_[i].y, meio + padrao_[i].x);
}

void SIMPLE::linhaInplace(const cv::Mat_<uchar>& suave, const cv::KeyPoint& k, float* linha) const {
  const double f = k.size / (q_ * tnl);
  const double theta = radianos(-k.angle - 90.0f);
  const double a11 = std::cos(theta) * f, a12 = -std::sin(theta) * f;
  const double a21 = std::sin(theta) * f, a22 = std::cos(theta) * f;
  const tvm::IMG_<uchar> vista(suave);
  const double ultimaColuna = vista.nc - 1, ultimaLinha = vista.nl - 1;
  for (int i = 0; i < n_; ++i) {
    const double px = padrao_[i].x, py = padrao_[i].y;
    const double u = a11 * px + a12 * py + k.pt.x;
    const double v = a21 * px + a22 * py + k.pt.y;
    // Clamping before rounding gives the nearest edge pixel and keeps far-off
    // positions from overflowing the integer conversion.
    const int coluna = cvRound(std::clamp(u, 0.0, ultimaColuna));
    const int linhaImg = cvRound(std::clamp(v, 0.0, ultimaLinha));
    linha[i] = vista(linhaImg, coluna);
  }
}

void SIMPLE::compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                     cv::Mat& descriptors) const {
  preparaLinhas(keypoints, descriptors);
  if (keypoints.empty()) return;

  // Inplace mode smooths the whole image once; copy mode smooths each patch.
  cv::Mat_<uchar> fonte;
  if (modo_ == 'i')
    cv::GaussianBlur(image, fonte, cv::Size(dgauss_, dgauss_), 0.0, 0.0, cv::BORDER_REPLICATE);
  else
    fonte = image;
  paraCadaLinha<Rascunho>(static_cast<int>(keypoints.size()), [&](int r, Rascunho& rascunho) {
    float* linha = descriptors.ptr<float>(r);
    if (modo_ == 'c')
      linhaCopia(fonte, keypoints[r], rascunho, linha);
    else
      linhaInplace(fonte, keypoints[r], linha);
    cv::Mat_<float> vista(1, n_, linha);
    if (tvm::epsilon > tvm::normal01(vista, 0.0, 1.0)) tvm::erro("Erro: Desvio<epsilon");
  });
}
