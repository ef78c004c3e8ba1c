// Forapro: kernel banks, slice, convqux, the three groups, rotation
// invariance and the option guards.
#include "descriptors/forapro.hpp"
#include "support/erro.hpp"
#include "tests/common/descritores.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <complex>
#include <functional>
#include <string>
#include <vector>

namespace {

using Complexo = std::complex<float>;
constexpr double doisPi = 6.283185307179586;

// Kernel value at (x right, y up) from the centre of plane s.
Complexo valor(const Forapro& f, int s, int x, int y) {
  const cv::Mat_<Complexo> p(slice(f.kernels(), s));
  return p((p.rows - 1) / 2 - y, (p.cols - 1) / 2 + x);
}

// ---------------------------------------------------------------- lengths

struct CasoTamanho {
  const char* nome;
  int nrad, ncir, raio;
  bool radang, radmag, cirvet;
  int comprimento;
};

class Tamanho : public testing::TestWithParam<CasoTamanho> {};

TEST_P(Tamanho, RowHoldsTheEnabledGroups) {
  const CasoTamanho& c = GetParam();
  const Forapro f(c.nrad, c.ncir, c.raio, c.radang, c.radmag, c.cirvet);
  EXPECT_EQ(f.descriptorSize(), c.comprimento);
  EXPECT_EQ(f.kernels().size[0], c.nrad + c.ncir);
  EXPECT_EQ(f.kernels().size[1], 2 * c.raio + 1);
}

INSTANTIATE_TEST_SUITE_P(Forapro, Tamanho,
                         testing::Values(CasoTamanho{"padrao", 4, 4, 40, true, true, true, 15},
                                         CasoTamanho{"nenhum_grupo", 4, 4, 40, false, false, false, 0},
                                         CasoTamanho{"nrad1", 1, 4, 12, true, true, true, 9},
                                         CasoTamanho{"so_radang", 6, 2, 15, true, false, false, 5},
                                         CasoTamanho{"raio0", 2, 2, 0, true, true, true, 7}),
                         [](const testing::TestParamInfo<CasoTamanho>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- kernels

class Kernels : public testing::TestWithParam<int> {};  // raio

TEST_P(Kernels, EachKernelHasUnitWeightAndRadialKernelsSumToZero) {
  const Forapro f(3, 2, GetParam(), true, true, true);
  for (int s = 0; s < 5; ++s) {
    const cv::Mat_<Complexo> p(slice(f.kernels(), s));
    double peso = 0.0;
    Complexo soma = 0.0f;
    for (const Complexo& v : p) {
      peso += std::abs(v);
      soma += v;
    }
    EXPECT_NEAR(peso, 1.0, 1e-4) << "plano " << s;
    if (s < 3) {
      EXPECT_LT(std::abs(soma), 1e-5) << "plano " << s;
    }
  }
}

TEST_P(Kernels, RadialPhaseFollowsTheOrderWithYUp) {
  const Forapro f(2, 1, GetParam(), true, true, true);
  const int r = GetParam() / 2;
  // Order 1: phase 0 to the right, 90 degrees above the centre.
  EXPECT_GT(valor(f, 0, r, 0).real(), 0.0f);
  EXPECT_NEAR(valor(f, 0, r, 0).imag(), 0.0f, 1e-7f);
  EXPECT_NEAR(valor(f, 0, 0, r).real(), 0.0f, 1e-7f);
  EXPECT_GT(valor(f, 0, 0, r).imag(), 0.0f);
  // Order 2: 180 degrees above the centre.
  EXPECT_LT(valor(f, 1, 0, r).real(), 0.0f);
  // The centre and its four neighbours (r <= 1) carry no weight; the
  // diagonal neighbours do.
  for (const cv::Point& p : std::vector<cv::Point>{{0, 0}, {1, 0}, {0, 1}, {-1, 0}, {0, -1}})
    EXPECT_EQ(valor(f, 0, p.x, p.y), Complexo(0.0f, 0.0f));
  EXPECT_NE(valor(f, 0, 1, 1), Complexo(0.0f, 0.0f));
  // The circular kernel's centre is real and positive; nothing beyond raio.
  EXPECT_GT(valor(f, 2, 0, 0).real(), 0.0f);
  EXPECT_EQ(valor(f, 2, 0, 0).imag(), 0.0f);
  EXPECT_EQ(valor(f, 2, GetParam(), GetParam()), Complexo(0.0f, 0.0f));
}

INSTANTIATE_TEST_SUITE_P(Forapro, Kernels, testing::Values(8, 40));

TEST(Kernels, RadiusZeroLeavesOnlyTheCircularCentre) {
  const Forapro f(2, 2, 0, true, true, true);
  EXPECT_EQ(valor(f, 0, 0, 0), Complexo(0.0f, 0.0f));
  EXPECT_EQ(valor(f, 1, 0, 0), Complexo(0.0f, 0.0f));
  EXPECT_EQ(valor(f, 2, 0, 0), Complexo(1.0f, 0.0f));
  EXPECT_EQ(valor(f, 3, 0, 0), Complexo(1.0f, 0.0f));
}

// ---------------------------------------------------------------- slice

TEST(Slice, SharesThePlaneAndChecksItsArguments) {
  const int dims[3] = {3, 4, 5};
  cv::Mat m(3, dims, CV_32FC2, cv::Scalar::all(0));
  cv::Mat plano = slice(m, 2);
  EXPECT_EQ(plano.dims, 2);
  EXPECT_EQ(plano.rows, 4);
  EXPECT_EQ(plano.cols, 5);
  plano.at<cv::Vec2f>(3, 1) = cv::Vec2f(7, 8);
  EXPECT_EQ(m.at<cv::Vec2f>(2, 3, 1), cv::Vec2f(7, 8));

  EXPECT_EQ(teste::mensagemDe([&] { slice(cv::Mat(4, 5, CV_32FC2), 0); }), "Erro slice: dimensao deve ser 3");
  EXPECT_EQ(teste::mensagemDe([&] { slice(m, -1); }), "Erro slice: indice invalido");
  EXPECT_EQ(teste::mensagemDe([&] { slice(m, 3); }), "Erro slice: indice invalido");
}

// ---------------------------------------------------------------- convqux

// Plane by plane, pixel by pixel, in single precision.
Complexo respostaDireta(const cv::Mat_<uchar>& patch, const cv::Mat& kernels, int j) {
  const cv::Mat_<Complexo> k(slice(kernels, j));
  Complexo soma(0.0f, 0.0f);
  for (int l = 0; l < patch.rows; ++l)
    for (int c = 0; c < patch.cols; ++c) soma += Complexo(patch(l, c), 0.0f) * k(l, c);
  return soma;
}

TEST(Convqux, EqualsThePlainSumForEveryPlane) {
  for (int nrad : {1, 3, 4, 6}) {  // 1 to 3 planes after each group of 4
    const Forapro f(nrad, 2, 7, true, true, true);
    const cv::Mat_<uchar> patch = teste::textura(f.lado(), f.lado(), 9);
    cv::Mat resp;
    convqux(patch, f.kernels(), resp);
    ASSERT_EQ(resp.dims, 3);
    ASSERT_EQ(resp.size[0], nrad + 2);
    EXPECT_EQ(resp.size[1], 1);
    EXPECT_EQ(resp.size[2], 1);
    for (int j = 0; j < nrad + 2; ++j)
      EXPECT_EQ(resp.ptr<Complexo>()[j], respostaDireta(patch, f.kernels(), j)) << nrad << " plano " << j;
  }
}

TEST(Convqux, MismatchedPatchStops) {
  const Forapro f(2, 2, 5, true, true, true);
  cv::Mat resp;
  for (const cv::Size& s : {cv::Size(10, 10), cv::Size(11, 12), cv::Size(12, 12)})
    EXPECT_EQ(teste::mensagemDe([&] { convqux(cv::Mat_<uchar>(s, uchar(3)), f.kernels(), resp); }),
              "Erro convqux: Dimensoes invalidas")
        << s;
  float saida[20];
  const int dims[3] = {3, 1, 1};
  const cv::Mat curto(3, dims, CV_32FC2, cv::Scalar::all(1));
  EXPECT_EQ(teste::mensagemDe([&] { f.grupos(curto, saida); }), "Erro inesperado");
}

// ---------------------------------------------------------------- rows

void grupoL1(const cv::Mat& linha, int de, int n) {
  double s = 0.0;
  for (int i = de; i < de + n; ++i) s += std::fabs(linha.at<float>(0, i));
  EXPECT_NEAR(s, 1.0, 1e-5) << "grupo em " << de;
}

TEST(Linhas, GroupsAreInRangeAndNormalised) {
  const Forapro f;
  cv::Mat d;
  f.compute(teste::textura(160, 160, 12),
            {cv::KeyPoint(80, 80, 40), cv::KeyPoint(50, 100, 24), cv::KeyPoint(110, 40, 70)}, d);
  for (int i = 0; i < d.rows; ++i) {
    for (int k = 0; k < 3; ++k) {
      EXPECT_GE(d.at<float>(i, k), 0.0f);
      EXPECT_LE(d.at<float>(i, k), static_cast<float>(doisPi));
    }
    grupoL1(d.row(i), 3, 4);
    grupoL1(d.row(i), 7, 8);
    for (int k = 3; k < 7; ++k) EXPECT_GE(d.at<float>(i, k), 0.0f);
  }
}

TEST(Linhas, BlackPatchGivesZeroGroups) {
  const Forapro f;
  cv::Mat d;
  f.compute(teste::uniforme(90, 90, 0), {cv::KeyPoint(45, 45, 30), cv::KeyPoint(3, 3, 80)}, d);
  EXPECT_EQ(cv::countNonZero(d), 0);
}

double distanciaAngular(double a, double b) {
  const double d = std::fmod(std::fabs(a - b), doisPi);
  return std::min(d, doisPi - d);
}

TEST(Linhas, NinetyDegreeRotationBarelyChangesTheRow) {
  const teste::QuartoDeVolta q = teste::quartoDeVolta(40.0f);
  const Forapro f;
  cv::Mat d1, d2;
  f.compute(q.img, q.k1, d1);
  f.compute(q.girada, q.k2, d2);
  for (int i = 0; i < d1.rows; ++i) {
    for (int k = 0; k < 3; ++k)
      EXPECT_LT(distanciaAngular(d1.at<float>(i, k), d2.at<float>(i, k)), 0.05) << "keypoint " << i << " fase " << k;
    const cv::Range resto(3, 15);
    const double mesmo = cv::norm(d1.row(i).colRange(resto), d2.row(i).colRange(resto));
    const double outro = cv::norm(d1.row(i).colRange(resto), d1.row((i + 1) % d1.rows).colRange(resto));
    EXPECT_LT(mesmo, 0.02) << "keypoint " << i;
    EXPECT_LT(mesmo, 0.1 * outro) << "keypoint " << i;
  }
}

TEST(Linhas, SameRowsWhateverTheThreadCountAndFiniteOnExtremeKeypoints) {
  std::vector<cv::KeyPoint> kps;
  for (int y = 10; y < 200; y += 12)
    for (int x = 10; x < 200; x += 12) kps.emplace_back(cv::Point2f(x, y), 15.0f + (x + y) % 40);
  teste::mesmasLinhasComThreads(Forapro(), teste::textura(200, 200, 8), kps);
  teste::linhasFinitasEmKeypointsExtremos(Forapro(4, 4, 12, true, true, true));
}

// ---------------------------------------------------------------- guards

TEST(OpcaoInvalida, StopsWithAClearMessage) {
  struct Caso {
    int nrad, ncir, raio;
    std::string mensagem;
  };
  const Caso casos[] = {
      {0, 4, 40, "Erro: nrad deve ser positivo: 0"},
      {4, -1, 40, "Erro: ncir nao pode ser negativo: -1"},
      {4, 4, -3, "Erro: raio nao pode ser negativo: -3"},
      {4, 4, 5000, "Erro: kernels grandes demais: nrad=4 ncir=4 raio=5000"},
  };
  for (const Caso& c : casos)
    EXPECT_EQ(teste::mensagemDe([&] { Forapro(c.nrad, c.ncir, c.raio, true, true, true); }), c.mensagem);
}

}  // namespace
