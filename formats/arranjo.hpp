// Numeric arrays that other programs wrote (NumPy's .npy/.npz, HDF5
// datasets), read into OpenCV matrices.
//
// An array's element type is named as NumPy names it: "<f4" (float32), "<f8"
// (float64), "<f2" (float16), "|u1" (uint8), "<i4" (int32), "<i8" (int64);
// the readers refuse any other, big-endian ones and object arrays included.
// As a matrix, shape () is 1 x 1, (n) is n x 1 and (n, d) is n x d; higher
// ranks are refused. Rows are the first axis whatever the order on disk
// (C or Fortran).
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace formats {

struct InfoArranjo {
  std::vector<int64_t> forma;  // the shape, first axis first
  std::string tipo;            // "<f4", "|u1", ...
};

// The bytes of an array of `info`, C order, converted to a rows x cols
// matrix of `tipo` (CV_32F, CV_64F, CV_32S or CV_8U). Conversions that would
// change a value (int64 outside int32, a negative or fractional value into
// uint8, float into an integer type) stop the tool with a message naming
// `onde` (the file and the array).
cv::Mat comoMatriz(const void* dados, const InfoArranjo& info, int tipo, const std::string& onde);

// The bytes the array takes on disk: the product of its shape times its
// element size; -1 when that overflows int64.
int64_t bytesDe(const InfoArranjo& info);

}  // namespace formats
