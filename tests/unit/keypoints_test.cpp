#include "keypoints/canvas.hpp"
#include "keypoints/key_detect.hpp"
#include "keypoints/key_edit.hpp"
#include "keypoints/key_rand.hpp"
#include "support/erro.hpp"

#include "tests/common/erros.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>
#include <set>
#include <string>

namespace {

using keypoints::ParamRand;

// ---------------------------------------------------------------- the canvas rule

struct CasoCanvas {
  const char* nome;
  float x, y, size;
  bool intersecta;
};

class Canvas : public testing::TestWithParam<CasoCanvas> {};

// Image 100 columns x 80 rows.
TEST_P(Canvas, LeftTopTouchFitsRightBottomTouchDoesNot) {
  const CasoCanvas& c = GetParam();
  EXPECT_EQ(keypoints::intersectaCanvas(c.x, c.y, c.size, 100, 80), c.intersecta);
}

INSTANTIATE_TEST_SUITE_P(
    Casos, Canvas,
    testing::Values(CasoCanvas{"TocaEsquerda", 5, 40, 10, false}, CasoCanvas{"PassaEsquerda", 4.99f, 40, 10, true},
                    CasoCanvas{"TocaDireita", 95, 40, 10, true}, CasoCanvas{"QuaseDireita", 94.99f, 40, 10, false},
                    CasoCanvas{"TocaTopo", 50, 5, 10, false}, CasoCanvas{"PassaTopo", 50, 4.5f, 10, true},
                    CasoCanvas{"TocaFundo", 50, 75, 10, true}, CasoCanvas{"QuaseFundo", 50, 74.5f, 10, false},
                    CasoCanvas{"RaioImpar", 5.5f, 5.5f, 11, false},
                    CasoCanvas{"TamanhoZeroNoLimite", 100, 40, 0, true}),
    [](const testing::TestParamInfo<CasoCanvas>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- KeySurf's two configurations

TEST(SurfDoKeySurf, AThresholdAlsoDropsALayerAndExtends) {
  struct Caso {
    std::optional<double> limiar;
    double hessian;
    int camadas;
    bool extended;
  };
  for (const Caso c : {Caso{std::nullopt, 100, 3, false}, Caso{8000.0, 8000, 2, true}, Caso{100.0, 100, 2, true}}) {
    const features::SURF s = keypoints::surfDoKeySurf(c.limiar);
    EXPECT_EQ(s.hessianThreshold(), c.hessian);
    EXPECT_EQ(s.nOctaveLayers(), c.camadas);
    EXPECT_EQ(s.extended(), c.extended);
  }
}

// ---------------------------------------------------------------- KeyCgSize / KeyGrande work

TEST(MudaTamanho, NegativeFactorIsAccepted) {
  std::vector<cv::KeyPoint> negativo = {cv::KeyPoint(1, 2, 3.0f)};
  ASSERT_TRUE(keypoints::mudaTamanho(negativo, -2));  // a negative factor is the user's choice
  EXPECT_EQ(negativo[0].size, -6.0f);
}

// ---------------------------------------------------------------- KeyRand's generator

struct Pares {
  std::vector<cv::KeyPoint> a, b;
};

Pares gera(cv::Size s, const cv::Matx33d& M, int n, const ParamRand& p = ParamRand()) {
  Pares r;
  keypoints::geraPares(s, M, n, p, r.a, r.b);
  return r;
}

cv::Matx33d translacao(double tx, double ty) { return cv::Matx33d(1, 0, tx, 0, 1, ty, 0, 0, 1); }

TEST(GeraPares, NonPositiveNGivesNothing) {
  for (int n : {0, -5}) {
    const Pares p = gera({100, 100}, cv::Matx33d::eye(), n);
    EXPECT_TRUE(p.a.empty()) << n;
    EXPECT_TRUE(p.b.empty()) << n;
  }
}

TEST(GeraPares, IdentityCopiesWithAnglesFoldedToMinus180To180) {
  const Pares p = gera({120, 90}, cv::Matx33d::eye(), 400);
  ASSERT_EQ(p.a.size(), 400u);
  ASSERT_EQ(p.b.size(), 400u);
  bool viuDobra = false;
  for (size_t i = 0; i < p.a.size(); ++i) {
    const cv::KeyPoint &a = p.a[i], &b = p.b[i];
    EXPECT_FALSE(keypoints::intersectaCanvas(a.pt.x, a.pt.y, a.size, 120, 90));
    EXPECT_EQ(a.pt.x, std::floor(a.pt.x));
    EXPECT_GE(a.size, 30.0f);
    EXPECT_LE(a.size, 39.0f);
    EXPECT_EQ(a.size, std::floor(a.size));
    EXPECT_GE(a.angle, 0.0f);
    EXPECT_LE(a.angle, 359.0f);

    EXPECT_EQ(b.pt, a.pt);
    EXPECT_NEAR(b.size, a.size, 1e-4);
    const float esperado = a.angle > 180 ? a.angle - 360 : a.angle;
    EXPECT_NEAR(b.angle, esperado, 1e-3) << a.angle;
    if (a.angle > 180) viuDobra = true;
  }
  EXPECT_TRUE(viuDobra);
}

TEST(GeraPares, TranslatedPartnerMustFitInImageAsFrame) {
  const int W = 100, H = 80;
  const double tx = 30, ty = -12;
  const Pares p = gera({W, H}, translacao(tx, ty), 200);
  ASSERT_EQ(p.a.size(), 200u);
  for (size_t i = 0; i < p.a.size(); ++i) {
    const cv::KeyPoint &a = p.a[i], &b = p.b[i];
    EXPECT_FLOAT_EQ(b.pt.x, a.pt.x + tx);
    EXPECT_FLOAT_EQ(b.pt.y, a.pt.y + ty);
    EXPECT_NEAR(b.size, a.size, 1e-4);
    // Both circles inside the W x H frame: a alone could sit anywhere.
    EXPECT_LT(b.pt.x + 0.5 * b.size, W);
    EXPECT_GE(b.pt.y - 0.5 * b.size, 0);
    EXPECT_GE(a.pt.x - 0.5 * a.size, 0);
  }
}

TEST(GeraPares, QuarterTurnAddsNinetyDegrees) {
  // Counter-clockwise as seen on screen (y down) about the image centre.
  const double c = 0.5 * (100 - 1);
  const cv::Matx33d M(0, 1, 0, -1, 0, 2 * c, 0, 0, 1);
  const Pares p = gera({100, 100}, M, 200);
  ASSERT_EQ(p.a.size(), 200u);
  for (size_t i = 0; i < p.a.size(); ++i) {
    const cv::KeyPoint &a = p.a[i], &b = p.b[i];
    EXPECT_NEAR(b.pt.x, a.pt.y, 1e-4);
    EXPECT_NEAR(b.pt.y, 2 * c - a.pt.x, 1e-4);
    EXPECT_NEAR(b.size, a.size, 1e-3);
    double d = std::fmod(b.angle - (a.angle + 90.0) + 720.0, 360.0);
    if (d > 180) d -= 360;
    EXPECT_NEAR(d, 0.0, 1e-3) << a.angle << " -> " << b.angle;
    EXPECT_GE(b.angle, -180.0f);
    EXPECT_LE(b.angle, 180.0f);
  }
}

TEST(GeraPares, PerturbationsAreWholeAndBounded) {
  ParamRand q;
  q.pertPt = 2;
  q.pertDiam = 3;
  q.pertDeg = 5;
  const Pares p = gera({150, 150}, cv::Matx33d::eye(), 300, q);
  ASSERT_EQ(p.a.size(), 300u);
  std::set<int> dx, dd, dg;
  for (size_t i = 0; i < p.a.size(); ++i) {
    const cv::KeyPoint &a = p.a[i], &b = p.b[i];
    const double ex = b.pt.x - a.pt.x, ed = b.size - a.size;
    const double base = a.angle > 180 ? a.angle - 360 : a.angle;
    const double eg = b.angle - base;
    EXPECT_EQ(ex, std::round(ex));
    EXPECT_NEAR(ed, std::round(ed), 1e-3);
    EXPECT_NEAR(eg, std::round(eg), 1e-3);
    dx.insert(static_cast<int>(ex));
    dd.insert(static_cast<int>(std::lround(ed)));
    dg.insert(static_cast<int>(std::lround(eg)));
    EXPECT_FALSE(keypoints::intersectaCanvas(b.pt.x, b.pt.y, b.size, 150, 150));
  }
  EXPECT_EQ(dx, (std::set<int>{-2, -1, 0, 1, 2}));
  EXPECT_EQ(dd, (std::set<int>{-3, -2, -1, 0, 1, 2, 3}));
  EXPECT_EQ(*dg.begin(), -5);
  EXPECT_EQ(*dg.rbegin(), 5);
}

TEST(GeraPares, HopelessCasesStopWithAMessage) {
  struct Caso {
    const char* nome;
    cv::Size s;
    cv::Matx33d M;
    ParamRand p;
    const char* inicio;
  };
  ParamRand iguaisDiam;
  iguaisDiam.diamMin = iguaisDiam.diamMax = 30;
  ParamRand invertidos;
  invertidos.diamMin = 40;
  invertidos.diamMax = 30;
  ParamRand grandes;
  grandes.diamMin = 200;
  grandes.diamMax = 210;
  const Caso casos[] = {
      {"diamMax igual", {100, 100}, cv::Matx33d::eye(), iguaisDiam, "Erro: diamMax deve ser maior que diamMin"},
      {"diamMax menor", {100, 100}, cv::Matx33d::eye(), invertidos, "Erro: diamMax deve ser maior que diamMin"},
      {"nao cabe", {100, 100}, cv::Matx33d::eye(), grandes, "Erro: nenhum keypoint cabe na imagem"},
      {"tudo para fora", {100, 100}, translacao(500, 0), ParamRand(), "Erro: nenhum keypoint cabe na imagem"},
      // w = 0 everywhere: the partner is not a number and must not be kept
      {"infinito", {100, 100}, cv::Matx33d(1, 0, 0, 0, 1, 0, 0, 0, 0), ParamRand(),
       "Erro: nenhum keypoint cabe na imagem"},
  };
  for (const Caso& c : casos) {
    const std::string m = teste::mensagemDe([&] { gera(c.s, c.M, 3, c.p); });
    EXPECT_EQ(m.rfind(c.inicio, 0), 0u) << c.nome << ": " << m;
  }
}

}  // namespace
