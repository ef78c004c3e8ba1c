#include "descriptors/simple.hpp"
#include "support/erro.hpp"
#include "tests/common/descritores.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

namespace {

// Keypoints well inside a 160 x 160 image, with varied sizes and angles.
std::vector<cv::KeyPoint> keypointsInternos() {
  std::vector<cv::KeyPoint> kps;
  for (int i = 0; i < 12; ++i)
    kps.emplace_back(50.0f + 5.0f * i, 110.0f - 4.0f * i, 12.0f + 3.0f * i, 30.0f * i);
  return kps;
}

double distanciaRelativa(const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b) / std::sqrt(a.total()); }

struct Camadas {
  int c, n, espacamento, raioExterno;
};

class SimpleCamadas : public ::testing::TestWithParam<Camadas> {};

TEST_P(SimpleCamadas, TamanhoEspacamentoEPadrao) {
  const Camadas t = GetParam();
  for (char modo : {'c', 'i'}) {
    const SIMPLE s(modo, t.c, 11);
    EXPECT_EQ(s.descriptorSize(), t.n);
    ASSERT_EQ(static_cast<int>(s.padrao().size()), t.n);
    if (t.c > 0) {
      EXPECT_EQ(s.espacamento(), t.espacamento);
    }
    double raioMax = 0;
    for (const cv::Point& p : s.padrao()) raioMax = std::max(raioMax, std::hypot(p.x, p.y));
    EXPECT_NEAR(raioMax, t.raioExterno, 0.75);
  }
}

INSTANTIATE_TEST_SUITE_P(Tabela, SimpleCamadas,
                         ::testing::Values(Camadas{0, 1, 0, 0}, Camadas{1, 7, 23, 23}, Camadas{2, 19, 15, 30},
                                           Camadas{3, 37, 11, 33}, Camadas{4, 61, 9, 36}, Camadas{5, 91, 8, 40},
                                           Camadas{6, 127, 6, 36}),
                         [](const auto& info) { return "c" + std::to_string(info.param.c); });

TEST(Simple, AnelGiradoPorFracaoDoPasso) {
  // Ring k turns by (k-1)/c of its step 2*pi/(6k): a real fraction, not an
  // integer division that would leave every ring starting at angle 0.
  const SIMPLE s('c', 2, 11);
  const auto& p = s.padrao();
  EXPECT_EQ(p[0], cv::Point(0, 0));
  EXPECT_EQ(p[1], cv::Point(15, 0));  // ring 1, j = 0, no turn
  // Ring 2, j = 0: turned by half of pi/6.
  EXPECT_EQ(p[7], cv::Point(29, 8));
}

TEST(Simple, ErrosDeConstrucao) {
  struct Caso {
    char modo;
    int c, dgauss;
    std::string mensagem;
  };
  const Caso casos[] = {
      {'x', 6, 11, "Erro: Modo invalido"},
      {'C', 6, 11, "Erro: Modo invalido"},
      {'c', 6, 10, "Erro: dGauss deve ser impar"},
      {'c', 6, -3, "Erro: dGauss deve ser impar"},
      {'c', 6, 100001, "Erro: dGauss maior que 1001"},
      {'c', -1, 11, "Erro: camadas fora da faixa 0 a 89: -1"},
      {'c', 90, 11, "Erro: camadas fora da faixa 0 a 89: 90"},
  };
  for (const Caso& caso : casos)
    EXPECT_EQ(teste::mensagemDe([&] { SIMPLE(caso.modo, caso.c, caso.dgauss); }), caso.mensagem)
        << caso.modo << " c=" << caso.c << " dgauss=" << caso.dgauss;
  EXPECT_EQ(teste::mensagemDe([] { SIMPLE('c', 6, 1); }), "(sem erro)");
}

TEST(Simple, LinhasNormalizadas) {
  for (char modo : {'c', 'i'}) {
    cv::Mat d;
    SIMPLE(modo, 6, 11).compute(teste::textura(160, 160, 5), keypointsInternos(), d);
    for (int r = 0; r < d.rows; ++r) {
      cv::Scalar media, desvio;
      cv::meanStdDev(d.row(r), media, desvio);
      EXPECT_NEAR(media[0], 0.0, 1e-5) << modo << " linha " << r;
      EXPECT_NEAR(desvio[0], 1.0, 1e-4) << modo << " linha " << r;
    }
  }
}

TEST(Simple, RegiaoPlanaOuUmSoValorParaORun) {
  // A flat neighbourhood, or a one-value row (c = 0), has no deviation to
  // normalise by: fatal, not a skipped keypoint.
  struct Caso {
    const char* nome;
    cv::Mat_<uchar> img;
    char modo;
    int c;
  };
  const Caso casos[] = {
      {"plana copy", teste::uniforme(160, 160, 90), 'c', 6},
      {"plana inplace", teste::uniforme(160, 160, 90), 'i', 6},
      {"c=0", teste::textura(160, 160, 2), 'c', 0},
  };
  for (const Caso& caso : casos) {
    cv::Mat d;
    EXPECT_EQ(teste::mensagemDe([&] { SIMPLE(caso.modo, caso.c, 11).compute(caso.img, keypointsInternos(), d); }),
              "Erro: Desvio<epsilon")
        << caso.nome;
  }
}

TEST(Simple, CopiaEInplaceSaoDescritoresDiferentes) {
  const cv::Mat_<uchar> img = teste::textura(160, 160, 7);
  cv::Mat copia, inplace;
  SIMPLE('c', 6, 11).compute(img, keypointsInternos(), copia);
  SIMPLE('i', 6, 11).compute(img, keypointsInternos(), inplace);
  ASSERT_EQ(copia.size(), inplace.size());
  EXPECT_GT(distanciaRelativa(copia, inplace), 0.1);
  // Inplace reads the blurred image: a 1-pixel kernel (no blur) must differ.
  cv::Mat semBlur;
  SIMPLE('i', 6, 1).compute(img, keypointsInternos(), semBlur);
  EXPECT_GT(distanciaRelativa(semBlur, inplace), 0.1);
}

TEST(Simple, SegueOAnguloDoKeypoint) {
  // The image turned by 90 degrees with the keypoint moved and its angle
  // turned with it gives nearly the same row; leaving the angle as it was
  // does not, so the angle really steers the pattern.
  const cv::Mat_<uchar> img = teste::textura(161, 161, 11);
  cv::Mat_<uchar> girada;
  const cv::Matx33d H = teste::gira(img, 90.0, girada);
  const double gamaGraus = std::atan2(H(1, 0), H(0, 0)) * 180.0 / CV_PI;

  std::vector<cv::KeyPoint> kps, kpsGirados, kpsSemGiro;
  for (int i = 0; i < 6; ++i) {
    const cv::KeyPoint k(60.0f + 8.0f * i, 70.0f + 4.0f * i, 20.0f + 4.0f * i, 25.0f + 50.0f * i);
    const cv::Point3d p = H * cv::Point3d(k.pt.x, k.pt.y, 1.0);
    kps.push_back(k);
    kpsGirados.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y), k.size,
                            static_cast<float>(k.angle - gamaGraus));
    kpsSemGiro.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y), k.size, k.angle);
  }
  for (char modo : {'c', 'i'}) {
    const SIMPLE s(modo, 6, 11);
    cv::Mat a, b, c;
    s.compute(img, kps, a);
    s.compute(girada, kpsGirados, b);
    s.compute(girada, kpsSemGiro, c);
    for (int r = 0; r < a.rows; ++r) {
      EXPECT_LT(distanciaRelativa(a.row(r), b.row(r)), 0.15) << modo << " linha " << r;
      EXPECT_GT(distanciaRelativa(a.row(r), c.row(r)), 0.4) << modo << " linha " << r;
    }
  }
}

TEST(Simple, IgualComUmOuVariosThreads) {
  std::vector<cv::KeyPoint> kps;
  for (int i = 0; i < 60; ++i) kps.emplace_back(20.0f + 2.0f * i, 140.0f - 2.0f * i, 8.0f + i, 6.0f * i);
  for (char modo : {'c', 'i'}) teste::mesmasLinhasComThreads(SIMPLE(modo, 6, 11), teste::textura(160, 160, 13), kps);
}

TEST(Simple, KeypointQueNaoSePodePosicionar) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const cv::KeyPoint ruins[] = {cv::KeyPoint(80, 80, 0.0f), cv::KeyPoint(80, 80, inf), cv::KeyPoint(nan, 80, 10.0f)};
  const cv::Mat_<uchar> img = teste::textura(160, 160, 17);
  for (const cv::KeyPoint& ruim : ruins) {
    std::vector<cv::KeyPoint> kps = keypointsInternos();
    kps.insert(kps.begin() + 3, ruim);
    for (char modo : {'c', 'i'}) {
      cv::Mat d;
      EXPECT_EQ(teste::mensagemDe([&] { SIMPLE(modo, 6, 11).compute(img, kps, d); }),
                "Erro: keypoint 3 com tamanho ou posicao invalida")
          << modo << " size=" << ruim.size << " x=" << ruim.pt.x << " y=" << ruim.pt.y;
    }
  }
}

}  // namespace
