// The descriptor tools run as a user runs them: widths, options, the SIFT
// fallback and the stores written (messages are in mensagens_cli_test).
#include "descriptors/forapro.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

#include <functional>
#include <string>
#include <vector>

namespace {

const cv::Mat_<uchar>& imagem() {
  static const cv::Mat_<uchar> img = teste::textura(160, 160, 21);
  return img;
}

// Twelve keypoints well inside the image.
std::vector<cv::KeyPoint> keypoints() {
  std::vector<cv::KeyPoint> kps;
  for (int i = 0; i < 12; ++i)
    kps.emplace_back(45.0f + 6.0f * i, 115.0f - 5.0f * i, 10.0f + 3.0f * i, 30.0f * i, 0.0f, 0, -1);
  return kps;
}

// A folder with a.png (the texture) and k.xml (the twelve keypoints).
struct Cenario {
  teste::PastaTemp pasta;

  Cenario() {
    teste::salva(imagem(), pasta / "a.png");
    formats::impKeyPoints(pasta / "k.xml", keypoints());
  }

  teste::Execucao roda(const std::vector<std::string>& args) const { return teste::roda(args, pasta.caminho()); }

  void leSaida(std::vector<cv::KeyPoint>& kps, cv::Mat& d, const std::string& nome = "d.xml") const {
    formats::leDescritores(pasta / nome, kps, d);
  }
};

const std::string k12 = "KeyPoints k=12\n";

struct CasoLargura {
  const char* nome;
  std::vector<std::string> args;
  int colunas;
};

class DescritoresLargura : public ::testing::TestWithParam<CasoLargura> {};

TEST_P(DescritoresLargura, UmaLinhaPorKeypoint) {
  const CasoLargura& caso = GetParam();
  const Cenario c;
  const teste::Execucao e = c.roda(caso.args);
  ASSERT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(teste::semTempo(e.out), k12);
  EXPECT_EQ(e.err, "");
  std::vector<cv::KeyPoint> kps;
  cv::Mat d;
  c.leSaida(kps, d);
  EXPECT_EQ(d.cols, caso.colunas);
  EXPECT_EQ(d.type(), CV_32F);
  EXPECT_EQ(d.rows, static_cast<int>(kps.size()));
  if (caso.args[0] == "DesSurf") {
    EXPECT_GT(d.rows, 0);  // SURF may drop keypoints too near the border
  } else {
    ASSERT_EQ(kps.size(), 12u);
    for (size_t i = 0; i < kps.size(); ++i) EXPECT_EQ(kps[i].pt, keypoints()[i].pt);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Tabela, DescritoresLargura,
    ::testing::Values(CasoLargura{"simp_padrao", {"DesSimp", "a.png", "d.xml", "key=k.xml"}, 127},
                      CasoLargura{"simp_c1", {"DesSimp", "a.png", "d.xml", "key=k.xml", "camadas=1"}, 7},
                      CasoLargura{"simp_c3", {"DesSimp", "a.png", "d.xml", "camadas=3", "key=k.xml"}, 37},
                      CasoLargura{"simp_c4", {"DesSimp", "a.png", "d.xml", "key=k.xml", "CAMADAS=4"}, 61},
                      CasoLargura{"simp_c6_inplace", {"DesSimp", "a.png", "d.xml", "key=k.xml", "modo=i"}, 127},
                      CasoLargura{"riff_padrao", {"DesRiff", "a.png", "d.xml", "key=k.xml"}, 100},
                      CasoLargura{"riff_n2", {"DesRiff", "a.png", "d.xml", "key=k.xml", "naneis=2"}, 50},
                      CasoLargura{"riff_n3_w5", {"DesRiff", "a.png", "d.xml", "key=k.xml", "naneis=3", "larguraAnel=5"},
                                  75},
                      CasoLargura{"sift", {"DesSift", "a.png", "d.xml", "k.xml"}, 128},
                      CasoLargura{"surf", {"DesSurf", "a.png", "d.xml", "k.xml"}, 64}),
    [](const auto& info) { return std::string(info.param.nome); });

// The options reach the descriptor: the rows equal an in-process run.
struct CasoOpcoes {
  const char* nome;
  std::vector<std::string> args;  // after the image and the output name
  int colunas;
  // The same descriptor computed in-process.
  std::function<void(const cv::Mat_<uchar>&, const std::vector<cv::KeyPoint>&, cv::Mat&)> referencia;
};

class Opcoes : public testing::TestWithParam<CasoOpcoes> {};

TEST_P(Opcoes, StoreHoldsTheKeypointsAndTheRowsOfThoseOptions) {
  const CasoOpcoes& c = GetParam();
  const Cenario cena;
  std::vector<std::string> args = {c.args[0], "a.png", "d.xml"};
  args.insert(args.end(), c.args.begin() + 1, c.args.end());
  const teste::Execucao e = teste::roda(args, cena.pasta.caminho());
  EXPECT_EQ(teste::semTempo(e.out), k12);
  EXPECT_EQ(e.err, "");
  ASSERT_EQ(e.status, 0);
  std::vector<cv::KeyPoint> kps;
  cv::Mat d;
  formats::leDescritores(cena.pasta / "d.xml", kps, d);
  ASSERT_EQ(kps.size(), keypoints().size());
  for (size_t i = 0; i < kps.size(); ++i) {
    EXPECT_EQ(kps[i].pt, keypoints()[i].pt);
    EXPECT_EQ(kps[i].angle, keypoints()[i].angle);
  }
  ASSERT_EQ(d.rows, 12);
  ASSERT_EQ(d.cols, c.colunas);
  ASSERT_EQ(d.type(), CV_32F);
  cv::Mat esperado;
  c.referencia(imagem(), keypoints(), esperado);
  EXPECT_EQ(cv::norm(d, esperado, cv::NORM_INF), 0.0);
}

INSTANTIATE_TEST_SUITE_P(
    Tabela, Opcoes,
    testing::Values(
        CasoOpcoes{"rihog_padrao", {"desrihog", "key=k.xml"}, 100,
                   [](auto& i, auto& k, auto& d) { RIHOG().compute(i, k, d); }},
        CasoOpcoes{"rihog_4x8_sem_bcinv",
                   {"desrihog", "nbins=8", "key=k.xml", "bcinv=false", "naneis=4"},
                   32,
                   [](auto& i, auto& k, auto& d) { RIHOG(4, 40, 8, 37, false).compute(i, k, d); }},
        CasoOpcoes{"ruhog_chaves_maiusculas",
                   {"DesRUHOG", "key=k.xml", "RAIO=20", "nGauss=9"},
                   100,
                   [](auto& i, auto& k, auto& d) { RUHOG(5, 20, 20, 9, true).compute(i, k, d); }},
        CasoOpcoes{"forapro_padrao", {"desforapro", "key=k.xml"}, 15,
                   [](auto& i, auto& k, auto& d) { Forapro().compute(i, k, d); }},
        CasoOpcoes{"forapro_grupos",
                   {"desforapro", "key=k.xml", "radang=0", "cirvet=false", "nrad=3", "raio=20"},
                   3,
                   [](auto& i, auto& k, auto& d) { Forapro(3, 4, 20, false, true, false).compute(i, k, d); }}),
    [](const testing::TestParamInfo<CasoOpcoes>& i) { return std::string(i.param.nome); });

TEST(DescritoresCli, SemOpcaoGravaStoreVazioSemContagem) {
  for (const char* tool : {"DesSimp", "DesRiff", "desrihog", "desruhog", "desforapro"}) {
    const Cenario c;
    const teste::Execucao e = c.roda({tool, "a.png", "d.xml"});
    ASSERT_EQ(e.status, 0) << tool << ": " << e.err;
    EXPECT_EQ(teste::semTempo(e.out), "") << tool;
    std::vector<cv::KeyPoint> kps;
    cv::Mat d;
    c.leSaida(kps, d);
    EXPECT_TRUE(kps.empty()) << tool;
    EXPECT_EQ(d.rows, 0) << tool;
  }
}

TEST(DescritoresCli, ComOpcaoSemKeyDetectaComSift) {
  std::vector<cv::KeyPoint> sift;
  cv::SIFT::create(0, 3, 0.04, 10.0, 1.6)->detect(imagem(), sift);
  ASSERT_GT(sift.size(), 5u);
  const std::string contagem = "KeyPoints k=" + std::to_string(sift.size()) + "\n";
  struct Caso {
    std::vector<std::string> args;
    int colunas;
  };
  const Caso casos[] = {{{"DesSimp", "a.png", "d.xml", "camadas=6"}, 127},
                        {{"DesRiff", "a.png", "d.xml", "naneis=4"}, 100},
                        {{"desforapro", "a.png", "d.xml", "raio=10"}, 15},
                        {{"DesSift", "a.png", "d.xml"}, 128}};
  for (const Caso& caso : casos) {
    const Cenario c;
    const teste::Execucao e = c.roda(caso.args);
    ASSERT_EQ(e.status, 0) << caso.args[0] << ": " << e.err;
    EXPECT_EQ(teste::semTempo(e.out), contagem) << caso.args[0];
    std::vector<cv::KeyPoint> kps;
    cv::Mat d;
    c.leSaida(kps, d);
    EXPECT_EQ(kps.size(), sift.size()) << caso.args[0];
    EXPECT_EQ(d.rows, static_cast<int>(sift.size())) << caso.args[0];
    EXPECT_EQ(d.cols, caso.colunas) << caso.args[0];
  }
}

TEST(DescritoresCli, DesSiftIgualAoSiftDaOpenCV) {
  // Keypoints as SIFT detects them (octave and layer packed in `octave`) and
  // as another detector would give them (octave 0).
  cv::Ptr<cv::SIFT> sift = cv::SIFT::create(0, 3, 0.04, 10.0, 1.6);
  std::vector<cv::KeyPoint> detectados;
  sift->detect(imagem(), detectados);
  for (const std::vector<cv::KeyPoint>& dados : {detectados, keypoints()}) {
    const Cenario c;
    formats::impKeyPoints(c.pasta / "dados.xml", dados);
    const teste::Execucao e = c.roda({"DesSift", "a.png", "d.xml", "dados.xml"});
    ASSERT_EQ(e.status, 0) << e.err;

    std::vector<cv::KeyPoint> esperados = formats::leKeyPoints(c.pasta / "dados.xml");
    cv::Mat descEsperados;
    sift->compute(imagem(), esperados, descEsperados);

    std::vector<cv::KeyPoint> kps;
    cv::Mat d;
    c.leSaida(kps, d);
    ASSERT_EQ(kps.size(), esperados.size());
    ASSERT_EQ(d.size(), descEsperados.size());
    EXPECT_EQ(cv::norm(d, descEsperados, cv::NORM_INF), 0.0);
  }
}

TEST(DescritoresCli, ModosDoSimple) {
  const Cenario c;
  const std::vector<std::string> base = {"DesSimp", "a.png", "", "key=k.xml"};
  struct Caso {
    const char* saida;
    const char* opcao;  // nullptr: none
  };
  const Caso copia[] = {{"c0.xml", nullptr}, {"c1.xml", "modo=copy"}, {"c2.xml", "modo=c"}, {"c3.xml", "modo="}};
  const Caso inplace[] = {{"i0.xml", "modo=inplace"}, {"i1.xml", "modo=i"}, {"i2.xml", "MODO=i"}};
  auto roda = [&](const Caso& caso) {
    std::vector<std::string> args = base;
    args[2] = caso.saida;
    if (caso.opcao) args.push_back(caso.opcao);
    const teste::Execucao e = c.roda(args);
    EXPECT_EQ(e.status, 0) << caso.saida << ": " << e.err;
    std::vector<cv::KeyPoint> kps;
    cv::Mat d;
    c.leSaida(kps, d, caso.saida);
    return d;
  };
  const cv::Mat refCopia = roda(copia[0]), refInplace = roda(inplace[0]);
  ASSERT_EQ(refCopia.rows, 12);
  for (const Caso& caso : copia) EXPECT_EQ(cv::norm(roda(caso), refCopia, cv::NORM_INF), 0.0) << caso.saida;
  for (const Caso& caso : inplace) EXPECT_EQ(cv::norm(roda(caso), refInplace, cv::NORM_INF), 0.0) << caso.saida;
  EXPECT_GT(cv::norm(refCopia, refInplace, cv::NORM_INF), 0.1);
}

}  // namespace
