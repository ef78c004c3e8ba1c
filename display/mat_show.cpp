#include "display/tools.hpp"
#include "display/desenhos.hpp"

#include "formats/match_file.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <opencv2/features2d.hpp>

namespace display {

cv::Mat_<cv::Vec3b> desenhaMatShow(const cv::Mat_<uchar>& img1, const std::vector<cv::KeyPoint>& k1,
                                   const cv::Mat_<uchar>& img2, const std::vector<cv::KeyPoint>& k2,
                                   const std::vector<cv::DMatch>& matches) {
  cv::Mat saida;
  cv::drawMatches(img1, k1, img2, k2, matches, saida, cv::Scalar::all(-1), cv::Scalar(255, 255, 255),
                  std::vector<char>(), cv::DrawMatchesFlags::DEFAULT);
  return saida;
}

}  // namespace display

namespace {

struct Entrada {
  cv::Mat_<uchar> img1, img2;
  std::vector<cv::DMatch> matches;
  std::vector<cv::KeyPoint> k1, k2;
};

Entrada leEntrada(char** argv) {
  Entrada e;
  tvm::le(e.img1, argv[1]);
  tvm::le(e.img2, argv[2]);
  formats::leMatch(e.matches, e.k1, e.k2, argv[3]);
  return e;
}

}  // namespace

void MatShow(int argc, char** argv) {
  if (argc != 5) tvm::falhaUso({"MatShow: Mostra os casamentos", "MatShow img1.pgm img2.pgm match.txt sai.png"});
  const Entrada e = leEntrada(argv);
  tvm::imp(display::desenhaMatShow(e.img1, e.k1, e.img2, e.k2, e.matches), argv[4]);
}

void MatMyShow(int argc, char** argv) {
  if (argc != 5)
    tvm::falhaUso({"MatMyShow: Mostra os casamentos sem chamar funcao OpenCV",
                   "MatMyShow img1.pgm img2.pgm match.txt sai.png"});
  const Entrada e = leEntrada(argv);
  tvm::imp(display::matMyShow(e.img1, e.img2, e.matches, e.k1, e.k2, 'R', 4.0), argv[4]);
}
