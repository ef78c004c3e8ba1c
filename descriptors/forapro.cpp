#include "descriptors/forapro.hpp"

#include "descriptors/paralelo.hpp"
#include "descriptors/patch.hpp"
#include "support/erro.hpp"
#include "support/img.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <string>

namespace {

constexpr double doisPi = 6.283185307179586;

using Complexo = std::complex<float>;

// Every non-zero entry divided by the weight sum.
void normalizaKernel(tvm::IMG_<Complexo>& k, double soma) {
  const float s = static_cast<float>(soma);
  for (int l = 0; l < k.nl; ++l)
    for (int c = 0; c < k.nc; ++c)
      if (k(l, c) != Complexo(0.0f, 0.0f)) k(l, c) = Complexo(k(l, c).real() / s, k(l, c).imag() / s);
}

// Order m: w(r) e^{i m theta}; zero at the centre and for r <= 1, where the
// angle is poorly sampled.
void kernelRadial(cv::Mat plano, int m, int raio) {
  tvm::IMG_<Complexo> k{cv::Mat_<Complexo>(plano)};
  double soma = 0.0;
  for (int l = 0; l < k.nl; ++l)
    for (int c = 0; c < k.nc; ++c) {
      const int x = c - k.cc, y = k.lc - l;
      const double r = std::sqrt(static_cast<double>(x * x + y * y));
      const double w = (1.0 < r && r < raio + 0.5) ? std::sqrt((raio + 0.5 - r) * (r - 1.0)) : 0.0;
      soma += w;
      if (w > 0.0) {
        const double theta = std::atan2(static_cast<double>(y), static_cast<double>(x));
        k(l, c) = Complexo(static_cast<float>(w * std::cos(m * theta)), static_cast<float>(w * std::sin(m * theta)));
      } else {
        k(l, c) = Complexo(0.0f, 0.0f);
      }
    }
  normalizaKernel(k, soma);
}

// Frequency n: a(r) e^{i 2 pi n r / (R + 1)} with a = 1 / (2 pi r), so every
// radius weighs alike; the centre weight 0.73 stands in for the singular 1/r.
void kernelCircular(cv::Mat plano, int n) {
  tvm::IMG_<Complexo> k{cv::Mat_<Complexo>(plano)};
  const int R = k.nc / 2;
  double soma = 0.0;
  for (int l = 0; l < k.nl; ++l)
    for (int c = 0; c < k.nc; ++c) {
      const int x = c - k.cc, y = k.lc - l;
      const double r = std::sqrt(static_cast<double>(x * x + y * y));
      if (static_cast<int>(r) > R) {
        k(l, c) = Complexo(0.0f, 0.0f);
        continue;
      }
      const double a = r == 0.0 ? 0.73 : 1.0 / (doisPi * r);
      soma += a;
      const double phi = (r / (R + 1)) * n * doisPi;
      k(l, c) = Complexo(static_cast<float>(a * std::cos(phi)), static_cast<float>(a * std::sin(phi)));
    }
  normalizaKernel(k, soma);
}

// resp[j0 .. j0+M) of convqux: M planes at once, each with its own running
// sums, so every plane keeps its pixel order while the sums of different
// planes proceed side by side.
template <int M>
void acumula(const cv::Mat_<uchar>& patch, const cv::Mat& kernels, int j0, float* resp) {
  float re[M] = {}, im[M] = {};
  for (int l = 0; l < patch.rows; ++l) {
    const uchar* p = patch[l];
    const cv::Vec2f* k[M];
    for (int t = 0; t < M; ++t) k[t] = kernels.ptr<cv::Vec2f>(j0 + t, l);
    for (int c = 0; c < patch.cols; ++c) {
      // The patch value is real: (v + 0i)(kr + ki i) = v kr + v ki i.
      const float v = p[c];
      for (int t = 0; t < M; ++t) {
        re[t] += v * k[t][c][0];
        im[t] += v * k[t][c][1];
      }
    }
  }
  for (int t = 0; t < M; ++t) {
    resp[2 * (j0 + t)] = re[t];
    resp[2 * (j0 + t) + 1] = im[t];
  }
}

// L1 normalisation; a vector with no weight becomes zeros.
void normalizaL1(float* v, int n) {
  double s = 0.0;
  for (int i = 0; i < n; ++i) s += std::fabs(static_cast<double>(v[i]));
  if (s > tvm::epsilon) {
    const double inv = 1.0 / s;
    for (int i = 0; i < n; ++i) v[i] = static_cast<float>(v[i] * inv);
  } else {
    std::fill(v, v + n, 0.0f);
  }
}

}  // namespace

cv::Mat slice(const cv::Mat& m, int i) {
  if (m.dims != 3) tvm::erro("Erro slice: dimensao deve ser 3");
  if (i < 0 || i >= m.size[0]) tvm::erro("Erro slice: indice invalido");
  return cv::Mat(2, &m.size[1], m.type(), const_cast<uchar*>(m.ptr(i)), &m.step[1]);
}

void convqux(const cv::Mat_<uchar>& patch, const cv::Mat& kernels, cv::Mat& resp) {
  if (kernels.dims != 3 || kernels.type() != CV_32FC2 || patch.rows != patch.cols ||
      patch.rows != kernels.size[1] || patch.cols != kernels.size[2])
    tvm::erro("Erro convqux: Dimensoes invalidas");
  // The kernel covers the patch exactly: a single response per kernel.
  if (patch.rows - kernels.size[1] + 1 != 1 || patch.cols - kernels.size[2] + 1 != 1) tvm::erro("Erro inesperado");
  const int nk = kernels.size[0];
  const int dims[3] = {nk, 1, 1};
  resp.create(3, dims, CV_32FC2);
  resp = cv::Scalar::all(0);
  float* r = resp.ptr<float>();
  int j = 0;
  for (; j + 4 <= nk; j += 4) acumula<4>(patch, kernels, j, r);
  switch (nk - j) {
    case 3: acumula<3>(patch, kernels, j, r); break;
    case 2: acumula<2>(patch, kernels, j, r); break;
    case 1: acumula<1>(patch, kernels, j, r); break;
    default: break;
  }
}

Forapro::Forapro(int nrad, int ncir, int raio, bool radang, bool radmag, bool cirvet) {
  if (nrad < 1) tvm::erro("Erro: nrad deve ser positivo: ", std::to_string(nrad));
  if (ncir < 0) tvm::erro("Erro: ncir nao pode ser negativo: ", std::to_string(ncir));
  if (raio < 0) tvm::erro("Erro: raio nao pode ser negativo: ", std::to_string(raio));
  const long long ladoL = 2LL * raio + 1;
  // In double: a huge raio would overflow the product in 64-bit integers.
  if ((static_cast<double>(nrad) + ncir) * static_cast<double>(ladoL) * static_cast<double>(ladoL) >
      static_cast<double>(maxElementosKernels))
    tvm::erro("Erro: kernels grandes demais: ",
              "nrad=" + std::to_string(nrad) + " ncir=" + std::to_string(ncir) + " raio=" + std::to_string(raio));

  nrad_ = nrad;
  ncir_ = ncir;
  raio_ = raio;
  radang_ = radang;
  radmag_ = radmag;
  cirvet_ = cirvet;
  lado_ = 2 * raio + 1;
  descriptorSize_ = (radang ? nrad - 1 : 0) + (radmag ? nrad : 0) + (cirvet ? 2 * ncir : 0);

  const int dims[3] = {nrad + ncir, lado_, lado_};
  kernels_.create(3, dims, CV_32FC2);
  for (int s = 0; s < nrad; ++s) kernelRadial(slice(kernels_, s), s + 1, raio);
  for (int s = nrad; s < nrad + ncir; ++s) kernelCircular(slice(kernels_, s), s - nrad + 1);
}

void Forapro::grupos(const cv::Mat& resp, float* saida) const {
  if (resp.dims != 3 || resp.type() != CV_32FC2 || resp.size[0] != nrad_ + ncir_ || resp.size[1] != 1 ||
      resp.size[2] != 1)
    tvm::erro("Erro inesperado");
  const Complexo* c = resp.ptr<Complexo>();
  const Complexo* d = c + nrad_;
  float* v = saida;
  if (radang_) {
    const double phi1 = atan2f(c[0].imag(), c[0].real());
    for (int k = 2; k <= nrad_; ++k) {
      double a = std::fmod(atan2f(c[k - 1].imag(), c[k - 1].real()) - k * phi1, doisPi);
      if (a < 0.0) a += doisPi;
      *v++ = static_cast<float>(a);
    }
  }
  if (radmag_) {
    for (int k = 0; k < nrad_; ++k) v[k] = std::abs(c[k]);
    normalizaL1(v, nrad_);
    v += nrad_;
  }
  if (cirvet_) {
    for (int n = 0; n < ncir_; ++n) {
      v[2 * n] = d[n].real();
      v[2 * n + 1] = d[n].imag();
    }
    normalizaL1(v, 2 * ncir_);
  }
}

void Forapro::linha(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, float* saida, Rascunho& r) const {
  const double escala = lado_ / static_cast<double>(k.size);
  extraiPatch(image, mapaPatch(k.pt, escala, 0.0, lado_ / 2), escala, lado_, r.patch);
  convqux(r.patch, kernels_, r.resp);
  grupos(r.resp, saida);
}

void Forapro::compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                      cv::Mat& descriptors) const {
  preparaLinhas(keypoints, descriptors);
  if (descriptorSize_ == 0) return;  // every group switched off: rows of nothing
  paraCadaLinha<Rascunho>(static_cast<int>(keypoints.size()), [&](int i, Rascunho& r) { linha(image, keypoints[i], descriptors.ptr<float>(i), r); });
}
