// What KeyRep and MatScore read before they measure: both images' sizes, the
// transform checked and inverted, keypoints checked against their image, and
// how a measure is printed.
#pragma once

#include "measures/repetibilidade.hpp"
#include "measures/verdade.hpp"
#include "support/argumentos.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace evaluation {

struct Geometria {
  cv::Size img1, img2;
  measures::Verdade verdade;  // a homography: the tools that read a transform file
};

// The images are read for their sizes. A transform that is singular (or so
// near it that its inverse means nothing) stops the tool: the new measures do
// not count matches through a collapsed plane as correct.
Geometria leGeometria(const std::string& img1, const std::string& img2, const std::string& mat33);
// The transform file alone, checked and inverted the same way.
measures::Verdade leTransformacao(const std::string& mat33);

// Both images' geometry and both keypoint stores, each checked against its
// image.
struct ParMedido : Geometria {
  std::vector<cv::KeyPoint> k1, k2;
};
// KeyRep's and MatScore's command lines start "img1 img2 key1.xml key2.xml"
// and have the transform at argv[mat33].
ParMedido leParMedido(char** argv, int mat33);

// Every keypoint must have a positive size and lie on its image (within half
// a pixel of the border): a store given with the wrong image stops the tool.
void confereKeyPoints(const std::vector<cv::KeyPoint>& k, cv::Size img, const std::string& arquivo,
                      const std::string& imagem);

// A match file keeps seven significant digits of each keypoint, the store
// keeps it whole. Each match keypoint that stands for store keypoints of one
// position and shape gets the store's back, so the measures are those of the
// keypoints the matcher saw (and a sweep's); others stay as read.
void restauraDaStore(const std::vector<cv::KeyPoint>& store, std::vector<cv::KeyPoint>& lidos);

// The options both tools share: erro=<overlap error in %> comum=ambas|opencv
// csv=<table to append to>.
struct OpcoesMedida {
  double erro = 40;
  measures::ParteComum comum = measures::ParteComum::ambas;
  std::string csv;
};
void leOpcoesMedida(tvm::ISTR& opcoes, OpcoesMedida& op);

// "%.6f", or NA when the measure has no value.
std::string texto(const measures::Medida& m);

}  // namespace evaluation
