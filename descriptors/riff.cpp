#include "descriptors/riff.hpp"

#include "descriptors/frame.hpp"
#include "descriptors/paralelo.hpp"
#include "descriptors/patch.hpp"
#include "descriptors/tools.hpp"
#include "support/erro.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <string>

namespace {

constexpr unsigned short foraDosAneis = 65535;

int nivel(int g) {
  if (g < -120) return 0;
  if (g < -40) return 1;
  if (g <= 40) return 2;
  if (g <= 120) return 3;
  return 4;
}

// Derivative along octant o (0..7) at a pixel: directions 4..7 are the
// negations of 0..3. The images are CV_16S, so -(-32768) would saturate to
// 32767; both quantise to the top level, so plain negation gives the same
// level.
int derivada(const cv::Mat_<short> d[4], int o, int indice) {
  const int g = reinterpret_cast<const short*>(d[o & 3].data)[indice];
  return o < 4 ? g : -g;
}

}  // namespace

RIFF::RIFF(int naneis, int larguraAnel) : naneis_(naneis), largura_(larguraAnel) {
  if (naneis < 1 || larguraAnel < 1 || naneis > maxRaio || larguraAnel > maxRaio || naneis * larguraAnel > maxRaio)
    tvm::erro("Erro: naneis e larguraAnel devem ser positivos com naneis*larguraAnel ate ", std::to_string(maxRaio));
  raio_ = naneis_ * largura_;
  lado_ = 2 * raio_ + 9;
  q_ = (2.0 * raio_ + 1.0) / lado_;

  lut_.create(lado_, lado_);
  contagem_.assign(naneis_, 0);
  const int lc = (lado_ - 1) / 2, cc = (lado_ - 1) / 2;
  for (int l = 0; l < lado_; ++l) {
    for (int c = 0; c < lado_; ++c) {
      const int x = c - cc, y = lc - l;
      const double d = std::sqrt(static_cast<double>(x * x + y * y));
      const int anel = static_cast<int>(std::ceil(d / largura_)) - 1;
      if (anel < 0 || anel >= naneis_) {
        lut_(l, c) = cv::Vec3w(0, 0, foraDosAneis);
        continue;
      }
      const float a = cv::fastAtan2(static_cast<float>(y), static_cast<float>(x));
      const int o = static_cast<int>(std::floor((a + 22.5) / 45.0));
      const auto radial = static_cast<unsigned short>(o % 8);
      const auto tangencial = static_cast<unsigned short>((o + 2) % 8);
      lut_(l, c) = cv::Vec3w(radial, tangencial, static_cast<unsigned short>(anel));
      ++contagem_[anel];
      votos_.push_back({l * lado_ + c, static_cast<unsigned char>(radial), static_cast<unsigned char>(tangencial),
                        anel * niveis * niveis});
    }
  }

  const float h = static_cast<float>(lado_ / 2);
  kernels_[0] = (cv::Mat_<float>(1, 3) << 1, 0, h);
  kernels_[1] = (cv::Mat_<float>(3, 3) << 0, 0, 1, 0, 0, 0, -1, 0, 0);
  kernels_[2] = (cv::Mat_<float>(3, 1) << 1, 0, -1);
  kernels_[3] = (cv::Mat_<float>(3, 3) << 1, 0, 0, 0, 0, 0, 0, 0, -1);
}

void RIFF::extraiPatch(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, cv::Mat_<uchar>& patch) const {
  const double s = lado_ / (k.size / q_);
  ::extraiPatch(image, mapaPatch(k.pt, s, 0.0, lado_ / 2), s, lado_, patch);
  cv::GaussianBlur(patch, patch, cv::Size(ladoGauss, ladoGauss), 0.0, 0.0, cv::BORDER_REPLICATE);
}

void RIFF::descreve(const cv::Mat_<uchar>& patch, float* linha, cv::Mat_<short> derivadas[4]) const {
  if (patch.rows != lado_ || patch.cols != lado_) tvm::erro("Erro riff: tamanho imagem");
  for (int k = 0; k < 4; ++k)
    cv::filter2D(patch, derivadas[k], CV_16S, kernels_[k], cv::Point(-1, -1), 0.0, cv::BORDER_REPLICATE);

  const int n = descriptorSize();
  std::fill(linha, linha + n, 0.0f);
  for (const Voto& v : votos_) {
    const int g0 = derivada(derivadas, v.radial, v.indice);
    const int g1 = derivada(derivadas, v.tangencial, v.indice);
    linha[v.bin0 + nivel(g0) * niveis + nivel(g1)] += 1.0f;
  }
  for (int anel = 0; anel < naneis_; ++anel) {
    const float total = static_cast<float>(contagem_[anel]);
    for (int b = 0; b < niveis * niveis; ++b) linha[anel * niveis * niveis + b] /= total;
  }
}

void RIFF::compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                   cv::Mat& descriptors) const {
  for (size_t i = 0; i < keypoints.size(); ++i) validaKeyPoint(keypoints[i], i);
  descriptors.create(static_cast<int>(keypoints.size()), descriptorSize(), CV_32F);
  struct Rascunho {
    cv::Mat_<uchar> patch;
    cv::Mat_<short> derivadas[4];
  };
  paraCadaLinha<Rascunho>(static_cast<int>(keypoints.size()), [&](int r, Rascunho& rascunho) {
    extraiPatch(image, keypoints[r], rascunho.patch);
    descreve(rascunho.patch, descriptors.ptr<float>(r), rascunho.derivadas);
  });
}

void DesRiff(int argc, char** argv) {
  FrameDescritor frame(argc, argv,
                       {"DesRiff a.pgm DesA.xml [key=KeyA.xml naneis=4 larguraAnel=10]",
                        "  Se keyA.xml nao for fornecido, usa-se SIFT."});
  int naneis = 4, larguraAnel = 10;
  tvm::seekArg(frame.opcoes(), "naneis", naneis);
  tvm::seekArg(frame.opcoes(), "larguraanel", larguraAnel);
  frame.verificaResto();

  const RIFF riff(naneis, larguraAnel);
  cv::Mat descriptors;
  riff.compute(frame.imagem(), frame.keypoints(), descriptors);
  frame.grava(descriptors);
}
