// RIFF: rotation-invariant ring histograms of directional derivatives.
//
// The keypoint's disc is cut into N rings of width W (ring k holds the pixels
// at distance d with kW < d <= (k+1)W; the centre pixel belongs to none). In
// each ring, every pixel votes for the pair (derivative along the outward
// radial direction, derivative along the tangential direction, 90 degrees
// counter-clockwise), each quantised into 5 levels; the directions are
// measured against the line from the centre, so the keypoint angle plays no
// part. Each ring's 25 bins are divided by the ring's pixel count and so sum
// to 1. Row layout: ring * 25 + radialLevel * 5 + tangentialLevel, ring 0
// innermost; 25N values. No mean/deviation normalisation.
//
// Patch: side = 2NW + 9 pixels (a 4-pixel margin around the disc), the
// keypoint size (diameter) mapped onto the disc's 2NW + 1 pixels, no
// rotation, then a 9 x 9 Gaussian blur.
//
// Derivatives, 45k degrees with y up, from 3-tap differences: directions
// 1, 2, 3 use +1/-1 at opposite neighbours; direction 0 uses the kernel
// [1, 0, side/2] on the row (not the antisymmetric [-1, 0, 1]) and this is
// kept on purpose, since stored descriptors depend on it. Directions 4..7 are
// the negations of 0..3.
#pragma once

#include "descriptors/descritor.hpp"
#include "descriptors/gauss_inteiro.hpp"

#include <opencv2/core.hpp>

#include <vector>

class RIFF : public Descritor {
 public:
  static constexpr int niveis = 5;     // quantisation levels per derivative
  static constexpr int ladoGauss = 9;  // side of the smoothing kernel
  static constexpr int maxRaio = 1000;  // bound on N * W, so tables stay small

  // naneis N and larguraAnel W must be positive with N * W <= maxRaio.
  RIFF(int naneis = 4, int larguraAnel = 10);

  void compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
               cv::Mat& descriptors) const override;

  // Describes a side x side patch into `linha` (descriptorSize() floats).
  // Stops with "Erro riff: tamanho imagem" for a patch of another size.
  void descreve(const cv::Mat_<uchar>& patch, float* linha) const;
  // The difference along octant o (0..7) at an inner pixel (row and column
  // 1 .. side - 2) of a patch, saturated to 16 bits before the negation of
  // octants 4..7, as the 16-bit filter images would hold it.
  int derivada(const uchar* pixel, int o) const;

  int descriptorSize() const override { return 25 * naneis_; }
  int lado() const { return lado_; }
  // Pixels of the patch in ring k.
  int pixelsNoAnel(int k) const { return contagem_[k]; }
  // The lut entry of a patch pixel: radial octant, tangential octant, ring
  // (0, 0, 65535 outside every ring).
  cv::Vec3w lut(int linha, int coluna) const { return lut_(linha, coluna); }

 private:
  // Per-worker buffers: the warped patch and its smoothed copy.
  struct Rascunho {
    cv::Mat_<uchar> bruto, patch;
    GaussInteiro::Rascunho gauss;
  };
  // A lut pixel that belongs to a ring, ready for the per-keypoint pass.
  struct Voto {
    int indice;          // row * side + column
    unsigned char radial, tangencial;  // octants 0..7
    int bin0;            // ring * 25
  };

  int naneis_, largura_, raio_, lado_;
  double q_;
  cv::Mat_<cv::Vec3w> lut_;
  std::vector<int> contagem_;
  std::vector<Voto> votos_;
  // The ring pixels and their neighbours: the only smoothed pixels read.
  cv::Rect regiaoLida_;
  GaussInteiro gauss_;
};
