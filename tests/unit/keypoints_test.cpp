#include "keypoints/canvas.hpp"
#include "keypoints/key_detect.hpp"
#include "keypoints/key_edit.hpp"
#include "keypoints/key_rand.hpp"
#include "tests/common/erros.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <set>
#include <string>
#include <tuple>

namespace {

using keypoints::ParamRand;

// Image 100 columns x 80 rows: touching the left or top edge fits, reaching
// the right or bottom limit does not.
TEST(Canvas, LeftTopTouchFitsRightBottomTouchDoesNot) {
  // (x, y, size, reaches outside): touching and just past each edge, an odd
  // radius, a zero size on the right limit.
  const std::tuple<float, float, float, bool> casos[] = {
      {5, 40, 10, false}, {4.99f, 40, 10, true}, {95, 40, 10, true}, {94.99f, 40, 10, false},
      {50, 5, 10, false}, {50, 4.5f, 10, true},  {50, 75, 10, true}, {50, 74.5f, 10, false},
      {5.5f, 5.5f, 11, false}, {100, 40, 0, true}};
  for (const auto& [x, y, size, fora] : casos)
    EXPECT_EQ(keypoints::intersectaCanvas(x, y, size, 100, 80), fora) << x << " " << y << " " << size;
}

TEST(SurfDoKeySurf, AThresholdAlsoDropsALayerAndExtends) {
  for (const std::optional<double> limiar : {std::optional<double>(), {8000.0}, {100.0}}) {
    const features::SURF s = keypoints::surfDoKeySurf(limiar);
    EXPECT_EQ(s.hessianThreshold(), limiar.value_or(100.0));
    EXPECT_EQ(s.nOctaveLayers(), limiar ? 2 : 3);
    EXPECT_EQ(s.extended(), limiar.has_value());
  }
}

TEST(MudaTamanho, NegativeFactorIsAccepted) {
  std::vector<cv::KeyPoint> negativo = {cv::KeyPoint(1, 2, 3.0f)};
  ASSERT_TRUE(keypoints::mudaTamanho(negativo, -2));  // a negative factor is the user's choice
  EXPECT_EQ(negativo[0].size, -6.0f);
}

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
  for (int n : {0, -5}) EXPECT_TRUE(gera({100, 100}, cv::Matx33d::eye(), n).b.empty()) << n;
}

TEST(GeraPares, PartnerIsTheMappedKeypointAndBothFitImageA) {
  struct Caso {
    const char* nome;
    cv::Size s;
    cv::Matx33d M;
    double giro;  // degrees the transform adds to the angle
  };
  // The quarter turn is counter-clockwise as seen on screen (y down) about the image centre.
  const Caso casos[] = {{"identidade", {120, 90}, cv::Matx33d::eye(), 0},
                        {"translacao", {100, 80}, translacao(30, -12), 0},
                        {"quarto de volta", {100, 100}, cv::Matx33d(0, 1, 0, -1, 0, 99, 0, 0, 1), 90}};
  for (const Caso& c : casos) {
    const Pares p = gera(c.s, c.M, 300);
    ASSERT_TRUE(p.a.size() == 300 && p.b.size() == 300) << c.nome;
    bool viuDobra = false;
    for (size_t i = 0; i < p.a.size(); ++i) {
      const cv::KeyPoint &a = p.a[i], &b = p.b[i];
      SCOPED_TRACE(std::string(c.nome) + " " + std::to_string(i));
      // Drawn as whole numbers: diameter 30..39, angle 0..359.
      EXPECT_TRUE(a.pt.x == std::floor(a.pt.x) && a.pt.y == std::floor(a.pt.y) && a.size == std::floor(a.size) &&
                  a.angle == std::floor(a.angle));
      EXPECT_TRUE(a.size >= 30 && a.size <= 39 && a.angle >= 0 && a.angle <= 359) << a.size << " " << a.angle;
      const cv::Point3d m = c.M * cv::Point3d(a.pt.x, a.pt.y, 1.0);
      EXPECT_NEAR(b.pt.x, m.x, 1e-4);
      EXPECT_NEAR(b.pt.y, m.y, 1e-4);
      EXPECT_NEAR(b.size, a.size, 1e-3);
      // atan2's angle, folded to -180..180.
      EXPECT_TRUE(b.angle >= -180 && b.angle <= 180) << b.angle;
      double d = std::fmod(b.angle - (a.angle + c.giro) + 720.0, 360.0);
      EXPECT_NEAR(d > 180 ? d - 360 : d, 0.0, 1e-3) << a.angle << " -> " << b.angle;
      viuDobra |= b.angle < 0;
      // Both circles inside a frame the size of image a.
      EXPECT_FALSE(keypoints::intersectaCanvas(a.pt.x, a.pt.y, a.size, c.s.width, c.s.height));
      EXPECT_FALSE(keypoints::intersectaCanvas(b.pt.x, b.pt.y, b.size, c.s.width, c.s.height));
    }
    EXPECT_TRUE(viuDobra) << c.nome;
  }
}

// A perturbation as large as the diameters themselves: partners whose
// diameter would reach zero or below are dropped, never written.
TEST(GeraPares, PerturbedDiametersStayPositive) {
  ParamRand q;
  std::tie(q.diamMin, q.diamMax, q.pertDiam) = std::tuple(1, 6, 8);
  const Pares p = gera({150, 150}, cv::Matx33d::eye(), 300, q);
  ASSERT_EQ(p.b.size(), 300u);
  float menor = p.b[0].size;
  for (const cv::KeyPoint& b : p.b) menor = std::min(menor, b.size);
  EXPECT_GT(menor, 0.0f);
  EXPECT_LE(menor, 1.0f);  // the smallest whole diameter the perturbation can leave
}

TEST(GeraPares, PerturbationsAreWholeAndBounded) {
  ParamRand q;
  std::tie(q.pertPt, q.pertDiam, q.pertDeg) = std::tuple(2, 3, 5);
  const Pares p = gera({150, 150}, cv::Matx33d::eye(), 300, q);
  ASSERT_EQ(p.a.size(), 300u);
  std::set<int> dx, dd, dg;
  for (size_t i = 0; i < p.a.size(); ++i) {
    const cv::KeyPoint &a = p.a[i], &b = p.b[i];
    const double ex = b.pt.x - a.pt.x, ed = b.size - a.size, eg = b.angle - (a.angle > 180 ? a.angle - 360 : a.angle);
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

// Equal diameters and a drawing that never fits have their exact messages in
// mensagens_cli_test; these are the other ways to a hopeless request.
TEST(GeraPares, HopelessCasesStopWithAMessage) {
  struct Caso {
    const char* nome;
    cv::Matx33d M;
    ParamRand p;
    const char* inicio;
  };
  ParamRand invertidos, zero, negativos, pertEnorme;
  std::tie(invertidos.diamMin, invertidos.diamMax) = std::tuple(40, 30);
  std::tie(zero.diamMin, zero.diamMax) = std::tuple(0, 10);
  std::tie(negativos.diamMin, negativos.diamMax) = std::tuple(-100, -50);
  // Every partner's diameter lands far outside the frame or at or below zero.
  pertEnorme.pertDiam = 1000000000;
  const Caso casos[] = {
      {"diamMax menor", cv::Matx33d::eye(), invertidos, "Erro: diamMax deve ser maior que diamMin"},
      {"diamMin zero", cv::Matx33d::eye(), zero, "Erro: diamMin deve ser ao menos 1, diamMin=0"},
      {"diametros negativos", cv::Matx33d::eye(), negativos, "Erro: diamMin deve ser ao menos 1, diamMin=-100"},
      {"pertDiam enorme", cv::Matx33d::eye(), pertEnorme, "Erro: nenhum keypoint cabe na imagem"},
      {"tudo para fora", translacao(500, 0), ParamRand(), "Erro: nenhum keypoint cabe na imagem"},
      // w = 0 everywhere: the partner is not a number and must not be kept
      {"infinito", cv::Matx33d(1, 0, 0, 0, 1, 0, 0, 0, 0), ParamRand(), "Erro: nenhum keypoint cabe na imagem"},
  };
  for (const Caso& c : casos) {
    const std::string m = teste::mensagemDe([&] { gera({100, 100}, c.M, 3, c.p); });
    EXPECT_EQ(m.rfind(c.inicio, 0), 0u) << c.nome << ": " << m;
  }
}

}  // namespace
