#include "descriptors/riff.hpp"
#include "support/erro.hpp"
#include "tests/common/descritores.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <functional>
#include <string>

namespace {

std::vector<cv::KeyPoint> keypointsVariados(int n) {
  std::vector<cv::KeyPoint> kps;
  for (int i = 0; i < n; ++i)
    kps.emplace_back(30.0f + (i * 37) % 100, 30.0f + (i * 53) % 100, 6.0f + (i % 9) * 5.0f, 40.0f * i);
  return kps;
}

struct Aneis {
  int naneis, largura;
};

class RiffAneis : public ::testing::TestWithParam<Aneis> {};

TEST_P(RiffAneis, LarguraLadoESomaDeCadaAnel) {
  const Aneis t = GetParam();
  const RIFF riff(t.naneis, t.largura);
  EXPECT_EQ(riff.descriptorSize(), 25 * t.naneis);
  EXPECT_EQ(riff.lado(), 2 * t.naneis * t.largura + 9);

  // Every pixel with 0 < d <= N*W is in exactly the ring ceil(d/W) - 1.
  const int lado = riff.lado(), meio = (lado - 1) / 2;
  std::vector<int> esperado(t.naneis, 0);
  for (int l = 0; l < lado; ++l)
    for (int c = 0; c < lado; ++c) {
      const double d = std::hypot(c - meio, meio - l);
      const int anel = static_cast<int>(std::ceil(d / t.largura)) - 1;
      const cv::Vec3w e = riff.lut(l, c);
      if (anel < 0 || anel >= t.naneis) {
        EXPECT_EQ(e, cv::Vec3w(0, 0, 65535)) << l << "," << c;
      } else {
        EXPECT_EQ(e[2], anel) << l << "," << c;
        ++esperado[anel];
      }
    }
  for (int k = 0; k < t.naneis; ++k) EXPECT_EQ(riff.pixelsNoAnel(k), esperado[k]) << "anel " << k;

  cv::Mat d;
  riff.compute(teste::textura(160, 160, 4), keypointsVariados(20), d);
  ASSERT_EQ(d.rows, 20);
  ASSERT_EQ(d.cols, 25 * t.naneis);
  ASSERT_EQ(d.type(), CV_32F);
  for (int r = 0; r < d.rows; ++r)
    for (int k = 0; k < t.naneis; ++k)
      EXPECT_NEAR(cv::sum(d.row(r).colRange(25 * k, 25 * k + 25))[0], 1.0, 1e-5) << "linha " << r << " anel " << k;
}

INSTANTIATE_TEST_SUITE_P(Tabela, RiffAneis,
                         ::testing::Values(Aneis{4, 10}, Aneis{2, 10}, Aneis{1, 1}, Aneis{3, 1}, Aneis{5, 7}),
                         [](const auto& info) {
                           return "n" + std::to_string(info.param.naneis) + "w" + std::to_string(info.param.largura);
                         });

TEST(Riff, OctantesRadialETangencial) {
  const RIFF riff(4, 10);
  const int m = (riff.lado() - 1) / 2;
  struct Caso {
    int dl, dc;  // offset from the centre: rows down, columns right
    int radial, tangencial;
  };
  const Caso casos[] = {
      {0, 5, 0, 2},   // right
      {-5, 5, 1, 3},  // up-right (y up)
      {-5, 0, 2, 4},  // up
      {0, -5, 4, 6},  // left
      {5, 0, 6, 0},   // down
      {5, 5, 7, 1},   // down-right
  };
  for (const Caso& caso : casos) {
    const cv::Vec3w e = riff.lut(m + caso.dl, m + caso.dc);
    EXPECT_EQ(e[0], caso.radial) << caso.dl << "," << caso.dc;
    EXPECT_EQ(e[1], caso.tangencial) << caso.dl << "," << caso.dc;
  }
}

TEST(Riff, PatchUniformeMostraOKernelDaDirecaoZero) {
  // On a uniform patch of level v the three antisymmetric differences are 0,
  // but direction 0's kernel [1, 0, side/2] gives v * (1 + side/2): large and
  // positive, and its negation (direction 4) large and negative. So a pixel
  // whose radial octant is 0 votes (4, 2), radial 4 votes (0, 2), tangential
  // 0 votes (2, 4), tangential 4 votes (2, 0) and all others (2, 2).
  const RIFF riff(3, 6);
  const int lado = riff.lado();
  const cv::Mat_<uchar> patch(lado, lado, uchar(100));
  std::vector<float> linha(riff.descriptorSize());
  riff.descreve(patch, linha.data());

  std::vector<float> esperado(riff.descriptorSize(), 0.0f);
  for (int l = 0; l < lado; ++l)
    for (int c = 0; c < lado; ++c) {
      const cv::Vec3w e = riff.lut(l, c);
      if (e[2] == 65535) continue;
      int nr = 2, nt = 2;
      if (e[0] == 0) nr = 4;
      if (e[0] == 4) nr = 0;
      if (e[1] == 0) nt = 4;
      if (e[1] == 4) nt = 0;
      esperado[e[2] * 25 + nr * 5 + nt] += 1.0f / riff.pixelsNoAnel(e[2]);
    }
  for (int i = 0; i < riff.descriptorSize(); ++i) EXPECT_NEAR(linha[i], esperado[i], 1e-5) << "entrada " << i;
  EXPECT_EQ(riff.derivada(&patch(lado / 2, lado / 2), 0), 100 * (1 + lado / 2));
  EXPECT_EQ(riff.derivada(&patch(lado / 2, lado / 2), 4), -100 * (1 + lado / 2));
}

TEST(Riff, NiveisDeQuantizacao) {
  // One ring of width 1: the four pixels beside the centre. On rows that
  // grow by `passo` upwards, the vertical difference is g = 2 * passo and
  // direction 0's kernel is far above 120 everywhere, so the four votes are
  // up (level(g), 0), down (level(-g), 4), right (4, level(g)) and left
  // (0, level(-g)), each 1/4.
  struct Caso {
    int passo, nivel;  // nivel = level(2 * passo); level(-g) is 4 - level(g)
  };
  const Caso casos[] = {{-61, 0}, {-60, 1}, {-21, 1}, {-20, 2}, {0, 2}, {20, 2}, {21, 3}, {60, 3}, {61, 4}};
  const RIFF riff(1, 1);
  const int lado = riff.lado(), m = (lado - 1) / 2;
  for (const Caso& caso : casos) {
    cv::Mat_<uchar> patch(lado, lado);
    for (int l = 0; l < lado; ++l) patch.row(l).setTo(cv::saturate_cast<uchar>(128 + caso.passo * (m - l)));
    std::vector<float> linha(riff.descriptorSize());
    riff.descreve(patch, linha.data());

    std::vector<float> esperado(25, 0.0f);
    const int oposto = 4 - caso.nivel;
    esperado[caso.nivel * 5 + 0] += 0.25f;
    esperado[oposto * 5 + 4] += 0.25f;
    esperado[4 * 5 + caso.nivel] += 0.25f;
    esperado[0 * 5 + oposto] += 0.25f;
    for (int i = 0; i < 25; ++i) EXPECT_FLOAT_EQ(linha[i], esperado[i]) << "passo " << caso.passo << " bin " << i;
  }
}

TEST(Riff, IgnoraOAnguloDoKeypoint) {
  const cv::Mat_<uchar> img = teste::textura(160, 160, 8);
  std::vector<cv::KeyPoint> kps = keypointsVariados(15), girados = kps;
  for (size_t i = 0; i < girados.size(); ++i) girados[i].angle = static_cast<float>(17 + 97 * i % 360);
  const RIFF riff;
  cv::Mat a, b;
  riff.compute(img, kps, a);
  riff.compute(img, girados, b);
  EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
}

TEST(Riff, IgualComUmOuVariosThreads) {
  teste::mesmasLinhasComThreads(RIFF(), teste::textura(160, 160, 9), keypointsVariados(80));
}

TEST(Riff, Erros) {
  struct Caso {
    const char* nome;
    std::function<void()> f;
    std::string mensagem;
  };
  const std::string faixa = "Erro: naneis e larguraAnel devem ser positivos com naneis*larguraAnel ate 1000";
  const cv::Mat_<uchar> img = teste::textura(100, 100, 1);
  const Caso casos[] = {
      {"naneis=0", [] { RIFF(0, 10); }, faixa},
      {"larguraAnel=0", [] { RIFF(4, 0); }, faixa},
      {"naneis<0", [] { RIFF(-2, 10); }, faixa},
      {"raio grande", [] { RIFF(100, 11); }, faixa},
      {"produto estoura", [] { RIFF(70000, 70000); }, faixa},
      {"patch de outro tamanho",
       [] {
         float linha[100];
         RIFF().descreve(cv::Mat_<uchar>(88, 89, uchar(0)), linha);
       },
       "Erro riff: tamanho imagem"},
      {"size 0",
       [&] {
         cv::Mat d;
         RIFF().compute(img, {cv::KeyPoint(50, 50, 10), cv::KeyPoint(50, 50, 0)}, d);
       },
       "Erro: keypoint 1 com tamanho ou posicao invalida"},
  };
  for (const Caso& caso : casos) EXPECT_EQ(teste::mensagemDe(caso.f), caso.mensagem) << caso.nome;
  EXPECT_EQ(teste::mensagemDe([] { RIFF(1000, 1); }), "(sem erro)");
}

}  // namespace
