// The descriptor tools run as a user runs them: widths, options, the SIFT
// fallback and the stores written (messages are in mensagens_cli_test).
#include "descriptors/forapro.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "features/surf.hpp"
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

// The options reach the descriptor: the store holds the rows an in-process
// run with those options gives.
struct CasoOpcoes {
  const char* nome;
  std::vector<std::string> args;  // after the image and the output name
  int colunas;
  // The same descriptor computed in-process; it may drop keypoints.
  std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)> referencia;
};

class Opcoes : public testing::TestWithParam<CasoOpcoes> {};

TEST_P(Opcoes, StoreHoldsTheKeypointsAndTheRowsOfThoseOptions) {
  const CasoOpcoes& c = GetParam();
  const Cenario cena;
  std::vector<std::string> args = {c.args[0], "a.png", "d.xml"};
  args.insert(args.end(), c.args.begin() + 1, c.args.end());
  const teste::Execucao e = cena.roda(args);
  EXPECT_EQ(teste::semTempo(e.out), k12);
  EXPECT_EQ(e.err, "");
  ASSERT_EQ(e.status, 0);
  std::vector<cv::KeyPoint> kps, esperados = keypoints();
  cv::Mat d, esperado;
  cena.leSaida(kps, d);
  c.referencia(imagem(), esperados, esperado);
  ASSERT_FALSE(esperados.empty());
  ASSERT_EQ(kps.size(), esperados.size());
  for (size_t i = 0; i < kps.size(); ++i) {
    EXPECT_EQ(kps[i].pt, esperados[i].pt);
    EXPECT_EQ(kps[i].angle, esperados[i].angle);
  }
  ASSERT_EQ(d.cols, c.colunas);
  ASSERT_EQ(d.type(), CV_32F);
  ASSERT_EQ(d.size(), esperado.size());
  EXPECT_EQ(cv::norm(d, esperado, cv::NORM_INF), 0.0);
}

INSTANTIATE_TEST_SUITE_P(
    Tabela, Opcoes,
    testing::Values(
        CasoOpcoes{"simp_padrao", {"DesSimp", "key=k.xml"}, 127,
                   [](auto& i, auto& k, auto& d) { SIMPLE().compute(i, k, d); }},
        CasoOpcoes{"simp_c1_copy", {"DesSimp", "key=k.xml", "camadas=1", "modo=copy"}, 7,
                   [](auto& i, auto& k, auto& d) { SIMPLE('c', 1, 11).compute(i, k, d); }},
        CasoOpcoes{"simp_c4_inplace", {"DesSimp", "CAMADAS=4", "key=k.xml", "MODO=i", "dgauss=7"}, 61,
                   [](auto& i, auto& k, auto& d) { SIMPLE('i', 4, 7).compute(i, k, d); }},
        CasoOpcoes{"simp_modo_vazio", {"DesSimp", "key=k.xml", "modo="}, 127,
                   [](auto& i, auto& k, auto& d) { SIMPLE('c', 6, 11).compute(i, k, d); }},
        CasoOpcoes{"riff_padrao", {"DesRiff", "key=k.xml"}, 100,
                   [](auto& i, auto& k, auto& d) { RIFF().compute(i, k, d); }},
        CasoOpcoes{"riff_n3_w5", {"DesRiff", "key=k.xml", "naneis=3", "larguraAnel=5"}, 75,
                   [](auto& i, auto& k, auto& d) { RIFF(3, 5).compute(i, k, d); }},
        CasoOpcoes{"surf", {"DesSurf", "k.xml"}, 64,
                   [](auto& i, auto& k, auto& d) { features::SURF().compute(i, k, d); }},
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

}  // namespace
