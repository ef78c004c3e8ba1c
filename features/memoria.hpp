// How much memory each detector takes on an image, so that a tool can refuse
// an image too large for this machine with a message, before the system kills
// it. All of it grows with the pixel count N = width x height:
//
//   SIFT (OpenCV): the image doubled in each direction (4N floats) in
//     L + 3 Gaussian and L + 2 difference levels per octave (L layers per
//     octave), each octave a quarter of the one before (4/3 in all):
//     4 * 4N * (2L + 5) * 4/3 bytes, 235 N for L = 3.
//   SURF (ours): the integral image (4N) and, per layer searched (L + 2),
//     a float determinant and a sign byte per pixel (5N), plus the image,
//     its grey copy and the keypoints (5N, measured).
//   STAR (ours), FAST (OpenCV): measured, with a margin.
// Peak resident sizes measured on 1000^2 and 2000^2 grey images (zeros and
// noise) grow by 235 N SIFT, 30-31 N SURF, 18 N STAR, 2-8 N FAST, over a
// base of 10-13 MB (12 MB is counted); tests/cli/extremos_cli_test keeps the
// estimates within -30% and +15% of the peak.
#pragma once

#include <opencv2/core.hpp>

#include <string>

namespace features {

enum class Detector { sift, surf, star, fast };

// The program itself, its libraries and the image read.
constexpr double kMemoriaBase = 12e6;

// Estimated peak bytes of a run of `detector` on a grey image of `tamanho`;
// `camadas` is SIFT's or SURF's layers per octave (ignored by the others).
double memoriaDetector(Detector detector, cv::Size tamanho, int camadas = 3);

// Stops the tool (tvm::verificaMemoria) when that estimate passes the memory
// available; the message names the detector and the image file.
void verificaMemoriaDetector(Detector detector, cv::Size tamanho, const std::string& arquivo, int camadas = 3);

}  // namespace features
