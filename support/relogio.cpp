#include "support/relogio.hpp"

#include "support/desenho.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <algorithm>
#include <cmath>

namespace tvm {

namespace {

constexpr int kLimitePixel = 1 << 28;
const cv::Vec3b kVermelho(0, 0, 255);
const cv::Vec3b kBranco(255, 255, 255);

// Horizontal run of pixels [c1, c2] on row r, clipped.
void corrida(cv::Mat_<cv::Vec3b>& img, int r, long long c1, long long c2, cv::Vec3b colour) {
  c1 = std::max(c1, 0LL);
  c2 = std::min(c2, static_cast<long long>(img.cols) - 1);
  cv::Vec3b* linha = img[r];
  for (long long c = c1; c <= c2; ++c) linha[c] = colour;
}

// Smallest d >= 0 with d*d >= limite (limite > 0).
long long menorRaizAcima(double limite) {
  long long d = static_cast<long long>(std::ceil(std::sqrt(limite)));
  // sqrt may be one off near perfect squares; two steps settle it.
  for (int k = 0; k < 2 && d > 0 && static_cast<double>(d - 1) * (d - 1) >= limite; ++k) --d;
  for (int k = 0; k < 2 && static_cast<double>(d) * d < limite; ++k) ++d;
  return d;
}

struct Estilo {
  bool rico;
  bool multicor;
};

// The same character test as KeyShow's modes: case bit cleared must give N or
// R; upper case means one colour per keypoint.
Estilo estilo(char code) {
  const char base = static_cast<char>(code & ~0x20);
  if (base != 'N' && base != 'R') erro("Erro: Modo invalido");
  return {base == 'R', (code & 0x20) == 0};
}

void validaEscala(double scale) {
  if (!std::isfinite(scale) || scale < 0) erro("Erro: fator de escala invalido");
}

void desenhaKeyPoint(cv::Mat_<cv::Vec3b>& img, const cv::KeyPoint& k, int deslocamentoColuna, Estilo e,
                     cv::Vec3b cor, double scale) {
  const int row = pixel(k.pt.y);
  const int col = pixel(k.pt.x) + deslocamentoColuna;
  if (!e.rico) {
    circulo(img, row, col, pixel(3.0 * scale), cor, 1);
    return;
  }
  const int raio = std::max(0, pixel(k.size * 0.5 * scale));
  // OpenCV marks a keypoint without orientation with angle -1.
  const double angulo = k.angle == -1.0f ? NAN : static_cast<double>(k.angle);
  relogioCircular(img, row, col, raio, angulo, cor, 1);
}

}  // namespace

int pixel(double v) {
  if (std::isnan(v)) return 0;
  return cvRound(std::clamp(v, -static_cast<double>(kLimitePixel), static_cast<double>(kLimitePixel)));
}

void circulo(cv::Mat_<cv::Vec3b>& img, int row, int col, int radius, cv::Vec3b colour, int width) {
  if (img.empty() || radius < 0) return;
  width = std::max(1, width);
  const double fora = radius + width / 2.0;                   // excluded
  const double dentro = std::max(0.0, radius - width / 2.0);  // included
  const long long alcance = static_cast<long long>(std::ceil(fora));
  const long long r0 = std::max(0LL, static_cast<long long>(row) - alcance);
  const long long r1 = std::min(static_cast<long long>(img.rows) - 1, static_cast<long long>(row) + alcance);
  for (long long r = r0; r <= r1; ++r) {
    const double dy = static_cast<double>(r - row);
    const double restoFora = fora * fora - dy * dy;
    if (restoFora <= 0) continue;
    const long long dxMax = menorRaizAcima(restoFora) - 1;  // dx*dx < restoFora
    const double restoDentro = dentro * dentro - dy * dy;
    const long long dxMin = restoDentro > 0 ? menorRaizAcima(restoDentro) : 0;  // dx*dx >= restoDentro
    if (dxMin > dxMax) continue;
    const int linha = static_cast<int>(r);
    if (dxMin == 0) {
      corrida(img, linha, col - dxMax, col + dxMax, colour);
    } else {
      corrida(img, linha, col - dxMax, col - dxMin, colour);
      corrida(img, linha, col + dxMin, col + dxMax, colour);
    }
  }
}

void relogioCircular(cv::Mat_<cv::Vec3b>& img, int row, int col, int radius, double angle, cv::Vec3b colour,
                     int width) {
  circulo(img, row, col, radius, colour, width);
  if (!std::isfinite(angle) || radius < 0) return;
  const double theta = angle * CV_PI / 180.0;
  reta(img, row, col, row + pixel(radius * std::sin(theta)), col + pixel(radius * std::cos(theta)), colour, width);
}

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
  const Estilo e = estilo(code);
  validaEscala(scale);
  cv::Mat_<cv::Vec3b> saida;
  converte(img, saida);
  for (size_t i = 0; i < kps.size(); ++i)
    desenhaKeyPoint(saida, kps[i], 0, e, e.multicor ? corPaleta(i) : kVermelho, scale);
  return saida;
}

cv::Mat_<cv::Vec3b> matMyShow(const cv::Mat_<uchar>& a, const cv::Mat_<uchar>& b,
                              const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& ka,
                              const std::vector<cv::KeyPoint>& kb, char code, double scale) {
  const Estilo e = estilo(code);
  validaEscala(scale);
  cv::Mat_<cv::Vec3b> saida(std::max(a.rows, b.rows), a.cols + b.cols, kBranco);
  cv::Mat_<cv::Vec3b> cor;
  converte(a, cor);
  cor.copyTo(saida(cv::Rect(0, 0, a.cols, a.rows)));
  converte(b, cor);
  cor.copyTo(saida(cv::Rect(a.cols, 0, b.cols, b.rows)));
  for (size_t i = 0; i < matches.size(); ++i) {
    const cv::DMatch& m = matches[i];
    if (m.queryIdx < 0 || static_cast<size_t>(m.queryIdx) >= ka.size() || m.trainIdx < 0 ||
        static_cast<size_t>(m.trainIdx) >= kb.size())
      erro("Erro: matMyShow: indice de keypoint fora do intervalo");
    const cv::KeyPoint& k1 = ka[static_cast<size_t>(m.queryIdx)];
    const cv::KeyPoint& k2 = kb[static_cast<size_t>(m.trainIdx)];
    const cv::Vec3b c = e.multicor ? corPaleta(i) : kVermelho;
    desenhaKeyPoint(saida, k1, 0, e, c, scale);
    desenhaKeyPoint(saida, k2, a.cols, e, c, scale);
    reta(saida, pixel(k1.pt.y), pixel(k1.pt.x), pixel(k2.pt.y), pixel(k2.pt.x) + a.cols, c, 1);
  }
  return saida;
}

}  // namespace tvm
