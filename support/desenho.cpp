#include "support/desenho.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tvm {

namespace {

constexpr int kLimitePixel = 1 << 28;

struct Caneta {
  int row = 0;
  int col = 0;
};

Caneta caneta;

// Liang-Barsky: clips the segment (r1,c1)-(r2,c2) to [rmin,rmax] x [cmin,cmax].
// Returns false when nothing of it is inside.
bool recorta(double& r1, double& c1, double& r2, double& c2, double rmin, double rmax, double cmin,
             double cmax) {
  const double dr = r2 - r1, dc = c2 - c1;
  double t0 = 0.0, t1 = 1.0;
  const double p[4] = {-dc, dc, -dr, dr};
  const double q[4] = {c1 - cmin, cmax - c1, r1 - rmin, rmax - r1};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0.0) {
      if (q[i] < 0.0) return false;
      continue;
    }
    const double t = q[i] / p[i];
    if (p[i] < 0.0)
      t0 = std::max(t0, t);
    else
      t1 = std::min(t1, t);
    if (t0 > t1) return false;
  }
  const double rr = r1, cc = c1;
  r1 = rr + t0 * dr;
  c1 = cc + t0 * dc;
  r2 = rr + t1 * dr;
  c2 = cc + t1 * dc;
  return true;
}

// A width x width square of pixels around (row, col), clipped.
void pinta(cv::Mat_<cv::Vec3b>& img, int row, int col, cv::Vec3b colour, int width) {
  const int antes = (width - 1) / 2, depois = width / 2;
  for (int r = std::max(0, row - antes); r <= std::min(img.rows - 1, row + depois); ++r)
    for (int c = std::max(0, col - antes); c <= std::min(img.cols - 1, col + depois); ++c) img(r, c) = colour;
}

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

void reta(cv::Mat_<cv::Vec3b>& img, int row1, int col1, int row2, int col2, cv::Vec3b colour, int width) {
  if (img.empty()) return;
  width = std::max(1, width);
  const int margem = width / 2;
  double r1 = row1, c1 = col1, r2 = row2, c2 = col2;
  if (!recorta(r1, c1, r2, c2, -margem, img.rows - 1 + margem, -margem, img.cols - 1 + margem)) return;
  int r = static_cast<int>(std::lround(r1)), c = static_cast<int>(std::lround(c1));
  const int rFim = static_cast<int>(std::lround(r2)), cFim = static_cast<int>(std::lround(c2));
  // Bresenham over the clipped segment.
  const int dc = std::abs(cFim - c), dr = -std::abs(rFim - r);
  const int passoC = c < cFim ? 1 : -1, passoR = r < rFim ? 1 : -1;
  int erroAcumulado = dc + dr;
  for (;;) {
    pinta(img, r, c, colour, width);
    if (r == rFim && c == cFim) break;
    const int dobro = 2 * erroAcumulado;
    if (dobro >= dr) {
      erroAcumulado += dr;
      c += passoC;
    }
    if (dobro <= dc) {
      erroAcumulado += dc;
      r += passoR;
    }
  }
}

void moveTo(int row, int col) {
  caneta.row = row;
  caneta.col = col;
}

void lineTo(cv::Mat_<cv::Vec3b>& img, int row, int col, cv::Vec3b colour) {
  reta(img, caneta.row, caneta.col, row, col, colour, 1);
  moveTo(row, col);
}

}  // namespace tvm
