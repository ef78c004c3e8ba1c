// OpenCV's 8-bit Gaussian smoothing (sigma derived from the kernel side,
// BORDER_REPLICATE), computed only at the pixels a descriptor reads.
//
// For 8-bit images cv::GaussianBlur works in exact integer arithmetic: a
// symmetric kernel of n integer weights summing to 256 runs along the rows
// (sums up to 255 * 256), then along the columns, and the result is rounded
// once, (sum + 32768) >> 16; a pixel outside the image takes the value of the
// nearest edge pixel. Integer sums do not depend on their order, so a pixel
// computed alone equals the library's. The column pass runs in single
// precision, which holds every integer up to 2^24 exactly, and its largest
// sum is 255 * 256 * 256 < 2^24: the floats are exact integers throughout. The weights are read back from the
// library's response to an impulse when the object is built, and the whole
// arithmetic is then checked against cv::GaussianBlur on test patches; should
// it ever disagree (another OpenCV build), every call smooths the whole patch
// with cv::GaussianBlur instead, so results never change.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

class GaussInteiro {
 public:
  // Buffers of one worker, reused from call to call.
  struct Rascunho {
    std::vector<uint8_t> linha;
    std::vector<uint16_t> somaLinha;
    std::vector<float> horizontal, soma;
    std::vector<const float*> linhas;
  };

  // lado: the odd kernel side.
  explicit GaussInteiro(int lado);

  int lado() const { return lado_; }
  // The library's integer weights (sum 256).
  const std::vector<int>& pesos() const { return pesos_; }
  // Whether the integer path reproduced cv::GaussianBlur when built.
  bool exato() const { return exato_; }

  // dst becomes src's size; inside `regiao` (clipped to the image) it holds
  // what cv::GaussianBlur(src, dst, lado x lado, 0, 0, BORDER_REPLICATE)
  // gives there. Pixels outside `regiao` are left unspecified. src and dst
  // must be different matrices.
  void suaviza(const cv::Mat_<uchar>& src, cv::Rect regiao, cv::Mat_<uchar>& dst, Rascunho& r) const;

 private:
  // The integer path itself, whatever exato() says.
  void inteiro(const cv::Mat_<uchar>& src, cv::Rect regiao, cv::Mat_<uchar>& dst, Rascunho& r) const;
  bool confere() const;

  int lado_, meio_;
  std::vector<int> pesos_;
  std::vector<uint16_t> pesos16_;
  bool exato_ = false;
};
