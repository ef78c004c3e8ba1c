// The detectors, descriptors and matchers a sweep combines, each built from
// the option words its single tool takes, so that a sweep and a chain of
// single tools configured alike compute the same numbers.
//
// Names and options (ALG.OPCAO=valor on the sweep's command line):
//   detectors    sift  (nfeatures=0 camadas=3: KeySift's two numbers)
//                surf  (limiar=: KeySurf's threshold; none: SURF(100, 4, 3))
//                fast  (limiar=10)     star (none)
//                rand  (n=1000 seed=7 diammin=30 diammax=40 pertpt=0 pertdiam=0 pertdeg=0: KeyRand's,
//                       pairs drawn per image pair under its transform)
//   descriptors  sift surf (none)      simple (camadas=6 dgauss=11 modo=c)
//                riff (naneis=4 larguraanel=10)
//                rihog ruhog (naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true)
//                forapro (nrad=4 ncir=4 raio=40 radang=1 radmag=1 cirvet=1)
//   matchers     nn (brute|flann: MatNN's words), ratio (MatRatio's: ratio=0.8 acrate= ordem= flann),
//                mutuo (brute|flann: MatMutuo's)
//
// Angles: each detector writes keypoint angles in the convention of its
// single tool and each descriptor reads them in its tool's, as
// keypoints/convencao.hpp says; the sweep converts between them, which the
// single tools leave to KeyAngulo.
#pragma once

#include "keypoints/convencao.hpp"
#include "keypoints/key_rand.hpp"
#include "support/argumentos.hpp"

#include <opencv2/core.hpp>

#include <functional>
#include <string>
#include <vector>

namespace sweep {

struct Detector {
  std::string nome;
  keypoints::Convencao escreve = keypoints::Convencao::nenhuma;
  // Null for rand, whose keypoints come in pairs per image pair.
  std::function<std::vector<cv::KeyPoint>(const cv::Mat_<uchar>&)> detecta;
  // A detector that also describes in the same pass (SIFT: one scale space
  // for both) names that descriptor; its rows are then taken as they come.
  std::string descreveComo;
  std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)> detectaEDescreve;
  bool aleatorio = false;
  int nRand = 1000;
  keypoints::ParamRand rand;
};

struct Descritor {
  std::string nome;
  keypoints::Convencao le = keypoints::Convencao::nenhuma;
  // Computes one row per kept keypoint; may drop keypoints (SURF drops those
  // it cannot place), and stops on a keypoint it cannot describe.
  std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)> calcula;
};

struct Casador {
  std::string nome;
  // Matches of image 1's rows to image 2's, best first.
  std::function<std::vector<cv::DMatch>(const cv::Mat&, const cv::Mat&)> casa;
};

// Each builder consumes the option words of one algorithm (the part after
// "ALG."); a word it does not know stops the tool, as in the single tool.
// An unknown name stops with "Erro: detector desconhecido " and the like.
Detector criaDetector(const std::string& nome, tvm::ISTR& opcoes);
Descritor criaDescritor(const std::string& nome, tvm::ISTR& opcoes);
Casador criaCasador(const std::string& nome, tvm::ISTR& opcoes);

// The names each kind accepts, in the order the sweep's usage lists them.
const std::vector<std::string>& nomesDetectores();
const std::vector<std::string>& nomesDescritores();
const std::vector<std::string>& nomesCasadores();

}  // namespace sweep
