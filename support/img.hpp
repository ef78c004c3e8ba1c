// IMG_: a thin view over an OpenCV matrix, used by the descriptor code.
//
// It shares the matrix's pixels (never copies them) and keeps the sizes and
// the centre, so that descriptor tables can be addressed relative to the
// patch centre: centre row lc = (nl - 1) / 2, centre column cc = (nc - 1) / 2.
#pragma once

#include "support/erro.hpp"

#include <opencv2/core.hpp>

#include <algorithm>

namespace tvm {

template <typename T>
class IMG_ {
 public:
  explicit IMG_(const cv::Mat_<T>& mat, T fundo = T())
      : mat_(mat), nl(mat.rows), nc(mat.cols), n(mat.rows * mat.cols), lc((mat.rows - 1) / 2),
        cc((mat.cols - 1) / 2), fundo(fundo) {
    if (mat_.data == nullptr) erro("Erro: IMG_::constructor _mat nulo");
  }

  // Unguarded access; the caller knows (l, c) is inside.
  T& operator()(int l, int c) { return mat_(l, c); }
  const T& operator()(int l, int c) const { return mat_(l, c); }

  bool dentro(int l, int c) const { return 0 <= l && l < nl && 0 <= c && c < nc; }
  // Guarded read: the background value outside the image.
  T atc(int l, int c) const { return dentro(l, c) ? mat_(l, c) : fundo; }
  // Clamped read: outside positions take the nearest edge pixel.
  T atx(int l, int c) const { return mat_(std::clamp(l, 0, nl - 1), std::clamp(c, 0, nc - 1)); }

 private:
  cv::Mat_<T> mat_;

 public:
  const int nl, nc, n;  // rows, columns, rows * columns
  const int lc, cc;     // centre row and column
  T fundo;              // background value of guarded reads
};

}  // namespace tvm
