// RIHOG and RUHOG: ring tables, binning, the histogram pass, normalisation,
// rotation invariance and the option guards.
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "support/erro.hpp"
#include "tests/common/descritores.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// Table entry at (x right, y up) from the patch centre.
cv::Vec2f entrada(const HogAneis& h, int x, int y) {
  const cv::Mat_<cv::Vec2f>& t = h.tabela();
  return t((t.rows - 1) / 2 - y, (t.cols - 1) / 2 + x);
}

struct Opcoes {
  int naneis, raio, nbins, ngauss;
  bool bcinv;
};

std::unique_ptr<HogAneis> cria(bool ruhog, const Opcoes& o) {
  if (ruhog) return std::make_unique<RUHOG>(o.naneis, o.raio, o.nbins, o.ngauss, o.bcinv);
  return std::make_unique<RIHOG>(o.naneis, o.raio, o.nbins, o.ngauss, o.bcinv);
}

std::vector<cv::KeyPoint> keypointsEmGrade(int lado, int passo, float size) {
  std::vector<cv::KeyPoint> kps;
  for (int y = passo; y < lado - passo; y += passo)
    for (int x = passo; x < lado - passo; x += passo) kps.emplace_back(cv::Point2f(x, y), size, 17.0f);
  return kps;
}

// ---------------------------------------------------------------- lengths

struct CasoTamanho {
  const char* nome;
  bool ruhog;
  Opcoes o;
  int comprimento;
  int ladoPatch;
};

class Tamanho : public testing::TestWithParam<CasoTamanho> {};

TEST_P(Tamanho, RowLengthIsBinsTimesRingsAndPatchHasTheBlurMargin) {
  const CasoTamanho& c = GetParam();
  const auto h = cria(c.ruhog, c.o);
  EXPECT_EQ(h->descriptorSize(), c.comprimento);
  EXPECT_EQ(h->ladoPatch(), c.ladoPatch);
}

INSTANTIATE_TEST_SUITE_P(
    Hog, Tamanho,
    testing::Values(CasoTamanho{"rihog_padrao", false, {5, 40, 20, 37, true}, 100, 117},
                    // 40 / 3 * 3 truncates to 40: the ring radius stays 40.
                    CasoTamanho{"rihog_largura_fracionaria", false, {3, 40, 10, 5, true}, 30, 85},
                    CasoTamanho{"ruhog_padrao", true, {5, 40, 20, 37, true}, 100, 117},
                    CasoTamanho{"ruhog_7x3", true, {7, 12, 3, 9, true}, 21, 33}),
    [](const testing::TestParamInfo<CasoTamanho>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- tables

struct CasoAnel {
  const char* nome;
  bool ruhog;
  int naneis, raio;
  int x, y;
  float anel;  // -1: no ring
};

class Anel : public testing::TestWithParam<CasoAnel> {};

TEST_P(Anel, PixelFallsInItsRing) {
  const CasoAnel& c = GetParam();
  const auto h = cria(c.ruhog, {c.naneis, c.raio, 8, 3, true});
  EXPECT_EQ(entrada(*h, c.x, c.y)[1], c.anel);
}

// RIHOG 5 rings of 40: width 8, ring k holds 8k < d <= 8(k + 1).
// RUHOG 4 rings of 10: outer radii 5, 5 sqrt 2, 5 sqrt 3, 10 (each + epsilon).
INSTANTIATE_TEST_SUITE_P(
    Hog, Anel,
    testing::Values(CasoAnel{"rihog_centro", false, 5, 40, 0, 0, -1},
                    CasoAnel{"rihog_exato_8", false, 5, 40, 8, 0, 0},
                    CasoAnel{"rihog_logo_depois_de_8", false, 5, 40, 8, 1, 1},
                    CasoAnel{"rihog_exato_40_pitagoras", false, 5, 40, 24, 32, 4},
                    CasoAnel{"rihog_fora", false, 5, 40, 40, 1, -1},
                    CasoAnel{"ruhog_exato_5", true, 4, 10, 3, 4, 0},
                    CasoAnel{"ruhog_exato_5_raiz2", true, 4, 10, 5, 5, 1},
                    CasoAnel{"ruhog_depois_de_5_raiz2", true, 4, 10, 6, 5, 2},
                    CasoAnel{"ruhog_1_anel_borda", true, 1, 10, 0, 10, 0},
                    // sqrt(1) * 10 / sqrt(2) rounds below sqrt(50): only the
                    // epsilon margin keeps these pixels in the inner ring.
                    CasoAnel{"ruhog_epsilon_5_5", true, 2, 10, 5, 5, 0},
                    CasoAnel{"ruhog_epsilon_8_aneis", true, 8, 16, 4, -4, 0}),
    [](const testing::TestParamInfo<CasoAnel>& i) { return std::string(i.param.nome); });

TEST(Tabela, AnglesGrowCounterClockwiseWithYUp) {
  const RIHOG h(5, 40, 20, 37, true);
  EXPECT_FLOAT_EQ(entrada(h, 5, 0)[0], 0.0f);
  EXPECT_NEAR(entrada(h, 0, 5)[0], 90.0f, 0.01f);  // above the centre: a smaller row index
  EXPECT_NEAR(entrada(h, -5, 0)[0], 180.0f, 0.01f);
  EXPECT_NEAR(entrada(h, 0, -5)[0], 270.0f, 0.01f);
  EXPECT_NEAR(entrada(h, 3, 3)[0], 45.0f, 0.01f);
}

TEST(Tabela, EqualAreaRingsHoldAboutTheSamePixelCount) {
  const RUHOG ru(5, 40, 20, 37, true);
  const RIHOG ri(5, 40, 20, 37, true);
  ASSERT_EQ(ru.contagem().size(), 5u);
  int total = 0;
  for (int n : ru.contagem()) total += n;
  for (int n : ru.contagem()) EXPECT_NEAR(n, total / 5.0, total * 0.03) << "anel com " << n;
  // Equal-width rings grow outwards instead.
  EXPECT_GT(ri.contagem()[4], 5 * ri.contagem()[0]);
}

// ---------------------------------------------------------------- quantiza

struct CasoBin {
  double angulo;
  int bin;
};

TEST(Quantiza, BinsAreCentredOnMultiplesOfTheStep) {
  const RIHOG h(5, 40, 20, 37, true);  // step 18: bin 0 covers [-9, 9)
  const std::vector<CasoBin> casos = {{0.0, 0},     {8.999, 0},  {9.0, 1},   {26.999, 1}, {27.0, 2},
                                      {180.0, 10},  {350.99, 19}, {351.0, 0}, {359.999, 0}};
  for (const CasoBin& c : casos) EXPECT_EQ(h.quantiza(c.angulo), c.bin) << c.angulo;
}

TEST(Quantiza, AnglesOutsideTheCircleStopNamingTheDescriptor) {
  const RIHOG ri;
  const RUHOG ru;
  for (double a : {-0.001, 360.0, std::nan("")}) {
    EXPECT_EQ(teste::mensagemDe([&] { ri.quantiza(a); }), "Erro RIHOG:quantiza-1 fora de 0 a 360") << a;
    EXPECT_EQ(teste::mensagemDe([&] { ru.quantiza(a); }), "Erro RUHOG:quantiza-1 fora de 0 a 360") << a;
  }
}

// ---------------------------------------------------------------- histogram

// A patch whose grey level grows (or falls) with the distance from the centre:
// every gradient is radial, so all the weight lands in one relative bin.
cv::Mat_<uchar> patchRadial(int lado, bool cresce) {
  cv::Mat_<uchar> p(lado, lado);
  const int c = (lado - 1) / 2;
  for (int l = 0; l < lado; ++l)
    for (int k = 0; k < lado; ++k) {
      const double d = std::hypot(l - c, k - c);
      p(l, k) = cv::saturate_cast<uchar>(cresce ? 20 + 3 * d : 235 - 3 * d);
    }
  return p;
}

struct CasoRadial {
  const char* nome;
  bool ruhog;
  bool cresce;
  int bin;  // of 8 bins: 0 outwards, 4 inwards
};

class Radial : public testing::TestWithParam<CasoRadial> {};

TEST_P(Radial, RadialGradientsFillOneRelativeBin) {
  const CasoRadial& c = GetParam();
  const auto h = cria(c.ruhog, {4, 20, 8, 5, false});
  cv::Mat_<float> hist;
  h->rihog(patchRadial(h->ladoPatch(), c.cresce), hist);
  ASSERT_EQ(hist.rows, 4);
  ASSERT_EQ(hist.cols, 8);
  for (int anel = 0; anel < 4; ++anel) {
    const double total = cv::sum(hist.row(anel))[0];
    ASSERT_GT(total, 0.0);
    EXPECT_GT(hist(anel, c.bin) / total, 0.85) << "anel " << anel;
    // Per ring pixel: a slope of 3 grey levels per pixel gives a difference
    // of about 6 over the two-pixel span.
    EXPECT_NEAR(total, 6.0, 1.0) << "anel " << anel;
  }
}

INSTANTIATE_TEST_SUITE_P(Hog, Radial,
                         testing::Values(CasoRadial{"rihog_para_fora", false, true, 0},
                                         CasoRadial{"rihog_para_dentro", false, false, 4},
                                         CasoRadial{"ruhog_para_fora", true, true, 0},
                                         CasoRadial{"ruhog_para_dentro", true, false, 4}),
                         [](const testing::TestParamInfo<CasoRadial>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- rows

class Linhas : public testing::TestWithParam<bool> {};  // RUHOG?

TEST_P(Linhas, PlainRowsAreNonNegativeAndInvariantRowsHaveZeroMean) {
  const cv::Mat_<uchar> img = teste::textura(160, 160, 11);
  const std::vector<cv::KeyPoint> kps = keypointsEmGrade(160, 30, 24.0f);
  cv::Mat bruto, inv;
  cria(GetParam(), {5, 40, 20, 37, false})->compute(img, kps, bruto);
  cria(GetParam(), {5, 40, 20, 37, true})->compute(img, kps, inv);
  for (int i = 0; i < bruto.rows; ++i) {
    double minimo, maximo;
    cv::minMaxLoc(bruto.row(i), &minimo, &maximo);
    EXPECT_GE(minimo, 0.0);
    EXPECT_GT(maximo, 0.0);
    EXPECT_NEAR(cv::mean(inv.row(i))[0], 0.0, 1e-5);
    // The invariant row is the plain one centred and divided by its mean
    // square (not by its deviation).
    const cv::Mat centrada = bruto.row(i) - cv::mean(bruto.row(i))[0];
    const double v = centrada.dot(centrada) / centrada.cols;
    const cv::Mat esperada = centrada / v;
    EXPECT_LT(cv::norm(inv.row(i), esperada, cv::NORM_INF), 1e-4 * cv::norm(esperada, cv::NORM_INF));
  }
}

TEST_P(Linhas, FlatImageGivesZeroRows) {
  const cv::Mat_<uchar> img = teste::uniforme(100, 100, 140);
  for (bool bcinv : {false, true}) {
    cv::Mat d;
    cria(GetParam(), {5, 40, 20, 37, bcinv})->compute(img, {cv::KeyPoint(50, 50, 30), cv::KeyPoint(5, 95, 60)}, d);
    EXPECT_EQ(cv::countNonZero(d), 0) << "bcinv=" << bcinv;
  }
}

// Rotating the image by 90 degrees about a keypoint leaves its descriptor
// nearly unchanged, and much closer than the descriptor of another keypoint.
TEST_P(Linhas, NinetyDegreeRotationBarelyChangesTheRow) {
  const teste::QuartoDeVolta q = teste::quartoDeVolta(30.0f, 90.0f);
  const auto h = cria(GetParam(), {5, 40, 20, 37, true});
  cv::Mat d1, d2;
  h->compute(q.img, q.k1, d1);
  h->compute(q.girada, q.k2, d2);
  for (int i = 0; i < d1.rows; ++i) {
    const double mesmo = cv::norm(d1.row(i), d2.row(i));
    const double outro = cv::norm(d1.row(i), d1.row((i + 1) % d1.rows));
    EXPECT_LT(mesmo, 0.1 * cv::norm(d1.row(i))) << "keypoint " << i;
    EXPECT_LT(mesmo, 0.2 * outro) << "keypoint " << i;
  }
}

TEST_P(Linhas, SameRowsWhateverTheThreadCountAndFiniteOnExtremeKeypoints) {
  teste::mesmasLinhasComThreads(*cria(GetParam(), {5, 40, 20, 37, true}), teste::textura(200, 200, 8),
                                keypointsEmGrade(200, 12, 18.0f));
  teste::linhasFinitasEmKeypointsExtremos(*cria(GetParam(), {3, 12, 8, 5, true}));
}

INSTANTIATE_TEST_SUITE_P(Hog, Linhas, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& i) { return i.param ? "RUHOG" : "RIHOG"; });

// ---------------------------------------------------------------- guards

TEST(OpcaoInvalida, StopsWithAClearMessage) {
  struct Caso {
    bool ruhog;
    Opcoes o;
    std::string mensagem;
  };
  const Caso casos[] = {
      {false, {0, 40, 20, 37, true}, "Erro: naneis deve ser positivo: 0"},
      {false, {5, 0, 20, 37, true}, "Erro: raio deve ser positivo: 0"},
      {false, {5, 40, 0, 37, true}, "Erro: nbins deve ser positivo: 0"},
      {false, {5, 40, 20, 36, true}, "Erro: ngauss deve ser impar e positivo: 36"},
      {false, {41, 40, 20, 37, true}, "Erro: anel sem pixels: 0 (naneis grande demais para o raio)"},
      {true, {2000, 40, 2, 37, true}, "Erro: anel sem pixels: 0 (naneis grande demais para o raio)"},
      {false, {5, 100000, 20, 37, true}, "Erro: raio e ngauss grandes demais: 100000 37 (lado do patch > 2049)"},
      {true, {50, 40, 100000, 3, true}, "Erro: naneis x nbins grande demais: 50 x 100000"},
  };
  for (const Caso& c : casos) EXPECT_EQ(teste::mensagemDe([&] { cria(c.ruhog, c.o); }), c.mensagem) << c.mensagem;
}

}  // namespace
