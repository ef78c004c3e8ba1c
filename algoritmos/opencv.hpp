// The features of OpenCV's main module, each built from a row's options
// with OpenCV's own defaults (algoritmos/tabela.cpp lists them). A builder
// checks every value before OpenCV sees it: out of range, OpenCV would stop
// on an assertion that names no option, loop for long (a blob threshold step
// of 0) or take memory without bound (an ORB pyramid of a thousand levels).
#pragma once

#include "algoritmos/opcoes.hpp"

#include <opencv2/features2d.hpp>

namespace algoritmos {

// Each option list and its builder, in the order of the table.
extern const std::vector<Opcao> kOpcoesOrb, kOpcoesBrisk, kOpcoesAkaze, kOpcoesKaze, kOpcoesAgast, kOpcoesGftt,
    kOpcoesHarris, kOpcoesMser, kOpcoesBlob;

cv::Ptr<cv::Feature2D> criaOrb(const Valores& v);
cv::Ptr<cv::Feature2D> criaBrisk(const Valores& v);
cv::Ptr<cv::Feature2D> criaAkaze(const Valores& v);
cv::Ptr<cv::Feature2D> criaKaze(const Valores& v);
cv::Ptr<cv::Feature2D> criaAgast(const Valores& v);
cv::Ptr<cv::Feature2D> criaGftt(const Valores& v);
cv::Ptr<cv::Feature2D> criaMser(const Valores& v);
cv::Ptr<cv::Feature2D> criaBlob(const Valores& v);

// The smallest image side a feature built from `v` takes: 4 for every
// OpenCV row, more for ORB and BRISK, whose smallest pyramid level must keep
// a pixel (ORB: side / scalefactor^(nlevels - 1); BRISK: a third of the
// side per octave beyond the second, measured on 4 to 512 pixels).
int menorLadoOrb(const Valores& v);
int menorLadoBrisk(const Valores& v);

// Checks that every keypoint can be described by the feature built from
// `v`, before OpenCV reads them: ORB describes at the pyramid level in a
// keypoint's octave, AKAZE and KAZE at the scale level in its class_id.
// Stops naming the first keypoint that cannot, and the tool that makes
// keypoints it can.
void verificaParaOrb(const Valores& v, const std::vector<cv::KeyPoint>& k);
void verificaParaAkaze(const Valores& v, const std::vector<cv::KeyPoint>& k, cv::Size imagem);
void verificaParaKaze(const Valores& v, const std::vector<cv::KeyPoint>& k, cv::Size imagem);

}  // namespace algoritmos
