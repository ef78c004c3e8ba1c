// Ring histograms of oriented gradients: RIHOG (rings of equal width) and,
// through the same machinery, RUHOG (rings of equal area, ruhog.hpp).
//
// Rotation invariance without a keypoint orientation: each pixel's gradient
// direction is measured against the radial direction from the patch centre to
// that pixel, and the rings are rotation-symmetric. The keypoint's angle is
// never read.
//
// Per keypoint: the keypoint's diameter is mapped onto ladoNucleo pixels of a
// ladoPatch square patch (a margin of half the Gaussian kernel on each side,
// so the smoothing sees real image data around the rings), the patch is
// smoothed, gradients are taken with 3-tap differences (x right, y up), and
// every ring pixel adds its gradient magnitude to the bin of its relative
// direction in its ring. Each ring is divided by its pixel count (rings of
// different area weigh alike). Optionally the row is made invariant to
// affine intensity changes: mean removed, then divided by the mean square.
//
// Row layout, ring-major: element anel * nbins + bin, ring 0 (innermost)
// first, bin b centred on b * 360 / nbins degrees.
#pragma once

#include "descriptors/descritor.hpp"
#include "descriptors/gauss_inteiro.hpp"

#include <opencv2/core.hpp>

#include <vector>

// Messages that name the descriptor.
struct NomesHog {
  const char* quantiza1;
  const char* quantiza2;
  const char* quantizaInesperado;
  const char* tamanho;
};

// The machinery both ring layouts share. A derived class only builds the
// table: it fills tabela_ in its constructor and then calls fechaTabela().
class HogAneis : public Descritor {
 public:
  // Bounds on the options, so that a mistyped value cannot ask for gigabytes
  // of tables or descriptor rows.
  static constexpr int maxLadoPatch = 2049;
  static constexpr int maxDescritor = 1 << 16;

  int descriptorSize() const override { return descriptorSize_; }
  int naneis() const { return naneis_; }
  int nbins() const { return nbins_; }
  int raioPix() const { return raioPix_; }
  int ladoNucleo() const { return ladoNucleo_; }
  int ladoPatch() const { return ladoPatch_; }
  double fracNucleo() const { return fracNucleo_; }
  // Per patch pixel: (polar angle in degrees about the centre, y up; ring
  // index as a float, -1 for a pixel in no ring).
  const cv::Mat_<cv::Vec2f>& tabela() const { return tabela_; }
  // Pixels per ring.
  const std::vector<int>& contagem() const { return contagem_; }

  // Orientation bin of a relative angle in [0, 360): hard binning, bin 0
  // covering [-passo/2, passo/2) modulo 360.
  int quantiza(double a) const;

  // Ring histogram (naneis x nbins) of a prepared ladoPatch square patch.
  void rihog(const cv::Mat_<uchar>& patch, cv::Mat_<float>& hist) const;

  void compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
               cv::Mat& descriptors) const override;

 protected:
  // Checks the options that both builders share; stops on values that would
  // give no descriptor or a degenerate one.
  static void validaOpcoes(int naneis, int raio, int nbins, int ngauss);

  HogAneis(const NomesHog& nomes, int naneis, int raioPix, int nbins, int ngauss, bool bcinv);

  // After the derived builder has filled tabela_: counts the ring pixels,
  // stops on an empty ring and lists the ring pixels for the histogram pass.
  void fechaTabela();

  cv::Mat_<cv::Vec2f> tabela_;

 private:
  struct Rascunho {
    cv::Mat_<uchar> bruto, patch;
    cv::Mat_<float> hist;
    GaussInteiro::Rascunho gauss;
    std::vector<int> dx, dy, bin;  // per ring pixel
    std::vector<double> mag;
  };
  // The ring pixels, in the row-major order of the table: the offsets of
  // their four neighbours (row * ladoPatch + column; replicated at the edges)
  // for the 3-tap differences, the first histogram element of their ring and
  // their polar angle.
  struct PontosAnel {
    std::vector<int> esquerda, direita, acima, abaixo, inicioAnel;
    std::vector<float> angulo;
  };

  void histograma(const cv::Mat_<uchar>& patch, cv::Mat_<float>& hist, Rascunho& r) const;
  void linha(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, float* saida, Rascunho& r) const;

  NomesHog nomes_;
  int naneis_, raioPix_, nbins_;
  bool bcinv_;
  int descriptorSize_, ladoNucleo_, ladoPatch_;
  double fracNucleo_, passo_;
  std::vector<int> contagem_;
  PontosAnel pontos_;
  // The ring pixels and their neighbours: the only smoothed pixels read.
  cv::Rect regiaoLida_;
  GaussInteiro gauss_;
};

// Rings of equal width raio / naneis: ring k holds the pixels at a distance d
// with k * larguraAnel < d <= (k + 1) * larguraAnel. The centre pixel has no
// radial direction and belongs to no ring.
class RIHOG : public HogAneis {
 public:
  RIHOG(int naneis = 5, int raio = 40, int nbins = 20, int ngauss = 37, bool bcinv = true);

 private:
  // Validates the options, then gives the ring radius in whole pixels.
  static int calculaRaioPix(int naneis, int raio, int nbins, int ngauss);
};
