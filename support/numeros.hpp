// Numbers: the library's constants, strict text conversions, numbers read from
// text files, patch normalisation and the shared random generator.
#pragma once

#include <opencv2/core.hpp>

#include <cstdio>
#include <random>
#include <string>

namespace tvm {

// Below this a deviation or a distance is too small to divide by.
constexpr double epsilon = 1e-6;
// Stand-for-infinity; finite and representable as float, so a ratio stored in
// a float match field stays a number that survives a text round trip.
constexpr double infinito = 1e30;

// Whole-text conversions: leading/trailing blanks allowed, nothing else; the
// result must be finite and in range. They return false instead of stopping.
bool textoParaInt(const std::string& text, int& value);
bool textoParaDouble(const std::string& text, double& value);

// A number for a message: %g, six significant digits ("1e+10", "0.2").
std::string textoDeNumero(double value);
// A number in a table's printf format ("%.6f", "%.9g").
std::string formataNumero(const char* formato, double value);

// Next number of an open text file. Blank space is skipped, and so is every
// line whose first non-blank characters are "//". Returns false at the end of
// the file or when the next word is not a finite number of the target type.
bool leNum(FILE* f, int& value);
bool leNum(FILE* f, float& value);
bool leNum(FILE* f, double& value);

// Shifts and scales m in place to mean a and deviation b; returns the
// deviation m had. When that deviation is below epsilon m is left unscaled.
double normal01(cv::Mat_<float>& m, double a, double b);

// Seeded Mersenne Twister: the same seed gives the same sequence on every
// platform, which makes the synthetic keypoint stores reproducible.
class RANDOM {
 public:
  void srand(int seed) { gerador_.seed(static_cast<std::mt19937::result_type>(seed)); }
  // Non-negative, 0 .. 2^31 - 1.
  int rand() { return static_cast<int>(gerador_() >> 1); }

 private:
  std::mt19937 gerador_;
};

extern RANDOM myrandom;

}  // namespace tvm
