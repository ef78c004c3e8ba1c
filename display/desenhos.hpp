// The drawings behind the display tools, apart from files and windows so
// that tests and benchmarks call them directly.
#pragma once

#include "formats/transform.hpp"

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <string>
#include <vector>

namespace display {

// KeyShow's mode character, also the drawing code of keyMyShow and
// matMyShow: its case bit cleared must be 'R' (rich: circle of the keypoint's
// size and a radius for its angle) or 'N' (plain: a small circle); lower case
// draws red, upper case one colour per keypoint. Anything else stops with
// "Erro: Modo invalido".
struct ModoKeyShow {
  bool rico;
  bool multicor;
};
ModoKeyShow modoKeyShow(char modo);

// OpenCV's keypoint drawing over the grey image, in colour; OpenCV picks the
// colours of a multicolour mode at random.
cv::Mat_<cv::Vec3b> desenhaKeyShow(const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& kps, char modo);

// Our own drawings (no OpenCV drawing call), so that every pixel rule is
// ours and testable. A keypoint (x, y) is drawn at row y, column x.
// Rich: a clock of radius size/2 * scale and hand at the keypoint's angle
// (no hand for angle -1, "no orientation"). Plain: a circle of radius
// 3 * scale. Colours per keypoint come from a fixed palette by index, so the
// same input always gives the same picture. A scale that is negative or not
// finite stops with "Erro: fator de escala invalido".

// The grey image in colour with the keypoints drawn over it.
cv::Mat_<cv::Vec3b> keyMyShow(const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& kps, char code,
                              double scale);

// a and b side by side (a on the left, top-aligned, white where neither
// covers); each match draws its two keypoints as keyMyShow does and a line
// joining their centres. ka[queryIdx] is in a, kb[trainIdx] in b; an index
// outside its list stops the tool.
cv::Mat_<cv::Vec3b> matMyShow(const cv::Mat_<uchar>& a, const cv::Mat_<uchar>& b,
                              const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& ka,
                              const std::vector<cv::KeyPoint>& kb, char code, double scale);

// A ranked match list judged against the truth: a and b side by side as
// matMyShow lays them out, each match a line between its keypoints, green
// when correct (certos[i]) and red when wrong; the `piores` wrong matches of
// largest error (erros[i], the reprojection error) also circled. m1[i], m2[i]
// are match i's keypoints. Scaled down to at most `largura` pixels wide.
cv::Mat_<cv::Vec3b> desenhaAcertos(const cv::Mat_<uchar>& a, const cv::Mat_<uchar>& b,
                                   const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                                   const std::vector<bool>& certos, const std::vector<double>& erros, int piores,
                                   int largura);

// Colour i of the palette of the multicolour modes: fully saturated hues
// spread by the golden ratio, never grey.
cv::Vec3b corPaleta(size_t i);

// OpenCV's match drawing: images side by side, a random colour per match,
// unmatched keypoints in white.
cv::Mat_<cv::Vec3b> desenhaMatShow(const cv::Mat_<uchar>& img1, const std::vector<cv::KeyPoint>& k1,
                                   const cv::Mat_<uchar>& img2, const std::vector<cv::KeyPoint>& k2,
                                   const std::vector<cv::DMatch>& matches);

// MatVis. A match is correct when k2, mapped back into image 1 by the inverse
// transform, lies at most 15 pixels from k1.
constexpr double kToleranciaVis = 15.0;

enum class ModoVis { acertos, erros, todos };
// Only the first character counts, in any case: a, e or t; an empty word or
// another letter stops with "Erro: Modo invalido".
ModoVis modoVis(const std::string& palavra);

struct CasamentoVis {
  size_t indice;  // in file order
  bool correto;
};
// The matches that the mode shows, in file order, with their correctness
// (`certos`, judged with kToleranciaVis).
std::vector<CasamentoVis> casamentosVisiveis(const std::vector<bool>& certos, ModoVis modo);

// Image 1 on top of image 2, no gap, white where the widths differ, in colour.
cv::Mat_<cv::Vec3b> telaVis(const cv::Mat_<uchar>& img1, const cv::Mat_<uchar>& img2);

// One frame: a clean copy of the canvas with the two keypoints as clocks of
// width 2, green for a correct match and red for a wrong one; k2 shifted down
// by the height of image 1. Hands show angle - 90, so a keypoint angle reads
// like a clock: 0 at twelve o'clock, growing clockwise.
cv::Mat_<cv::Vec3b> quadroVis(const cv::Mat_<cv::Vec3b>& tela, int linhasImg1, const cv::KeyPoint& k1,
                              const cv::KeyPoint& k2, bool correto);

}  // namespace display
