#include "descriptors/riff.hpp"

#include "descriptors/paralelo.hpp"
#include "descriptors/patch.hpp"
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

}  // namespace

RIFF::RIFF(int naneis, int larguraAnel) : naneis_(naneis), largura_(larguraAnel), gauss_(ladoGauss) {
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
      regiaoLida_ |= cv::Rect(c - 1, l - 1, 3, 3);
    }
  }

  // The 4-pixel margin keeps every ring pixel's neighbours inside the patch.
  regiaoLida_ &= cv::Rect(0, 0, lado_, lado_);
}

// Direction 0 is the kernel [1, 0, side/2] on the row, directions 1..3 the
// differences +1/-1 at opposite neighbours (45k degrees, y up), computed as
// cv::filter2D into 16 bits would: exact sums, saturated.
int RIFF::derivada(const uchar* p, int o) const {
  const int l = lado_;
  int g = 0;
  switch (o & 3) {
    case 0: g = cv::saturate_cast<short>(p[-1] + (lado_ / 2) * p[1]); break;
    case 1: g = p[1 - l] - p[l - 1]; break;
    case 2: g = p[-l] - p[l]; break;
    default: g = p[-l - 1] - p[l + 1]; break;
  }
  return o < 4 ? g : -g;
}

void RIFF::descreve(const cv::Mat_<uchar>& patch, float* linha) const {
  if (patch.rows != lado_ || patch.cols != lado_) tvm::erro("Erro riff: tamanho imagem");
  const cv::Mat_<uchar> continuo = patch.isContinuous() ? patch : cv::Mat_<uchar>(patch.clone());
  const uchar* px = continuo[0];
  const int n = descriptorSize();
  std::fill(linha, linha + n, 0.0f);
  for (const Voto& v : votos_) {
    const uchar* p = px + v.indice;
    const int g0 = derivada(p, v.radial);
    const int g1 = derivada(p, v.tangencial);
    linha[v.bin0 + nivel(g0) * niveis + nivel(g1)] += 1.0f;
  }
  for (int anel = 0; anel < naneis_; ++anel) {
    const float total = static_cast<float>(contagem_[anel]);
    for (int b = 0; b < niveis * niveis; ++b) linha[anel * niveis * niveis + b] /= total;
  }
}

void RIFF::compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                   cv::Mat& descriptors) const {
  preparaLinhas(keypoints, descriptors);
  paraCadaLinha<Rascunho>(static_cast<int>(keypoints.size()), [&](int i, Rascunho& r) {
    const cv::KeyPoint& k = keypoints[i];
    const double s = lado_ / (k.size / q_);
    extraiPatch(image, mapaPatch(k.pt, s, 0.0, lado_ / 2), s, lado_, r.bruto);
    // Only the ring pixels and their neighbours are smoothed: the rest of
    // the patch is never read.
    gauss_.suaviza(r.bruto, regiaoLida_, r.patch, r.gauss);
    descreve(r.patch, descriptors.ptr<float>(i));
  });
}
