#include "support/desenho.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tvm {

namespace {

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

}  // namespace

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
