// DesRihog, DesRUHOG and DesForapro on the real binary: usage blocks, the
// no-option run, options, the SIFT fallback, messages and the stores written.
#include "descriptors/forapro.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <functional>
#include <string>
#include <vector>

namespace {

const std::string kErroUso = "Erro: Numero de argumentos invalido\n";
const std::string kUsoHog = " a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]\n"
                            "  Se keyA.xml nao for fornecido, usa-se SIFT.\n"
                            "  bcinv=brightness-contrast invariant\n";
const std::string kUsoForapro =
    "DesForapro a.pgm DesA.xml [key=KeyA.xml nrad=4 ncir=4 raio=40 radang=1 radmag=1 cirvet=1]\n"
    "  Se keyA.xml nao for fornecido, usa-se SIFT.\n";

const std::vector<cv::KeyPoint> kKeypoints = {cv::KeyPoint(60, 60, 24, 30), cv::KeyPoint(30, 90, 16, 200),
                                              cv::KeyPoint(95, 25, 40, -1)};

// An image and a keypoint store in a fresh folder.
struct Cena {
  teste::PastaTemp pasta;
  cv::Mat_<uchar> imagem = teste::textura(120, 120, 31);
  Cena() {
    teste::salva(imagem, pasta / "a.png");
    formats::impKeyPoints(pasta / "k.xml", kKeypoints);
  }
};

// ---------------------------------------------------------------- usage

struct CasoUso {
  const char* nome;
  std::vector<std::string> args;
  std::string saida;
};

class Uso : public testing::TestWithParam<CasoUso> {};

TEST_P(Uso, FewerThanThreeWordsPrintsUsageAndStops) {
  const CasoUso& c = GetParam();
  teste::PastaTemp pasta;
  const teste::Execucao e = teste::roda(c.args, pasta.caminho());
  EXPECT_EQ(e.out, c.saida);
  EXPECT_EQ(e.err, kErroUso);
  EXPECT_EQ(e.status, 1);
  EXPECT_TRUE(pasta.conteudo().empty());
}

INSTANTIATE_TEST_SUITE_P(Descritores2, Uso,
                         testing::Values(CasoUso{"rihog_so_comando", {"DesRihog"}, "DesRihog" + kUsoHog},
                                         CasoUso{"ruhog_sem_saida", {"desruhog", "a.png"}, "DesRUHOG" + kUsoHog},
                                         CasoUso{"forapro_sem_saida", {"DesForapro", "a.png"}, kUsoForapro}),
                         [](const testing::TestParamInfo<CasoUso>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- no option

class SemOpcao : public testing::TestWithParam<const char*> {};

TEST_P(SemOpcao, WritesAStoreWithNoKeypointsAndPrintsNoCount) {
  Cena c;
  const teste::Execucao e = teste::roda({GetParam(), "a.png", "d.xml"}, c.pasta.caminho());
  EXPECT_EQ(teste::semTempo(e.out), "");
  EXPECT_EQ(e.err, "");
  ASSERT_EQ(e.status, 0);
  std::vector<cv::KeyPoint> kps = kKeypoints;
  cv::Mat d;
  formats::leDescritores(c.pasta / "d.xml", kps, d);
  EXPECT_TRUE(kps.empty());
  EXPECT_EQ(d.rows, 0);
}

INSTANTIATE_TEST_SUITE_P(Descritores2, SemOpcao, testing::Values("desrihog", "desruhog", "desforapro"));

// ---------------------------------------------------------------- options

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
  Cena cena;
  std::vector<std::string> args = {c.args[0], "a.png", "d.xml"};
  args.insert(args.end(), c.args.begin() + 1, c.args.end());
  const teste::Execucao e = teste::roda(args, cena.pasta.caminho());
  EXPECT_EQ(teste::semTempo(e.out), "KeyPoints k=3\n");
  EXPECT_EQ(e.err, "");
  ASSERT_EQ(e.status, 0);
  std::vector<cv::KeyPoint> kps;
  cv::Mat d;
  formats::leDescritores(cena.pasta / "d.xml", kps, d);
  ASSERT_EQ(kps.size(), kKeypoints.size());
  for (size_t i = 0; i < kps.size(); ++i) {
    EXPECT_EQ(kps[i].pt, kKeypoints[i].pt);
    EXPECT_EQ(kps[i].angle, kKeypoints[i].angle);
  }
  ASSERT_EQ(d.rows, 3);
  ASSERT_EQ(d.cols, c.colunas);
  ASSERT_EQ(d.type(), CV_32F);
  cv::Mat esperado;
  c.referencia(cena.imagem, kKeypoints, esperado);
  EXPECT_EQ(cv::norm(d, esperado, cv::NORM_INF), 0.0);
}

INSTANTIATE_TEST_SUITE_P(
    Descritores2, Opcoes,
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

TEST(Sift, WithOptionsButNoKeyStoreSiftFindsTheKeypoints) {
  Cena c;
  const teste::Execucao e = teste::roda({"desforapro", "a.png", "d.xml", "raio=10"}, c.pasta.caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  std::vector<cv::KeyPoint> kps;
  cv::Mat d;
  formats::leDescritores(c.pasta / "d.xml", kps, d);
  ASSERT_FALSE(kps.empty());
  EXPECT_EQ(teste::semTempo(e.out), "KeyPoints k=" + std::to_string(kps.size()) + "\n");
  EXPECT_EQ(d.rows, static_cast<int>(kps.size()));
  EXPECT_EQ(d.cols, 15);
}

// ---------------------------------------------------------------- failures

struct CasoErro {
  const char* nome;
  std::vector<std::string> args;  // after the image and the output name
  std::string saida;              // stdout before the time line
  std::string erro;
};

class Falha : public testing::TestWithParam<CasoErro> {};

TEST_P(Falha, StopsWithTheMessageAndWritesNothing) {
  const CasoErro& c = GetParam();
  Cena cena;
  std::vector<cv::KeyPoint> ruins = kKeypoints;
  ruins[1].size = 0.0f;
  formats::impKeyPoints(cena.pasta / "ruins.xml", ruins);
  std::vector<std::string> args = {c.args[0], "a.png", "d.xml"};
  args.insert(args.end(), c.args.begin() + 1, c.args.end());
  const teste::Execucao e = teste::roda(args, cena.pasta.caminho());
  EXPECT_EQ(e.out, c.saida);
  EXPECT_EQ(e.err, c.erro);
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(cena.pasta.conteudo(), (std::vector<std::string>{"a.png", "k.xml", "ruins.xml"}));
}

INSTANTIATE_TEST_SUITE_P(
    Descritores2, Falha,
    testing::Values(
        CasoErro{"rihog_opcao_desconhecida", {"desrihog", "key=k.xml", "foo=1"}, "KeyPoints k=3\n",
                 "Erro: Argumento invalido foo 1\n"},
        CasoErro{"rihog_ngauss_par", {"desrihog", "key=k.xml", "ngauss=36"}, "KeyPoints k=3\n",
                 "Erro: ngauss deve ser impar e positivo: 36\n"},
        CasoErro{"rihog_anel_vazio", {"desrihog", "key=k.xml", "naneis=12", "raio=10"}, "KeyPoints k=3\n",
                 "Erro: anel sem pixels: 0 (naneis grande demais para o raio)\n"},
        CasoErro{"ruhog_keypoint_sem_tamanho", {"desruhog", "key=ruins.xml"}, "KeyPoints k=3\n",
                 "Erro: keypoint 1 com tamanho ou posicao invalida\n"},
        CasoErro{"forapro_nrad_zero", {"desforapro", "key=k.xml", "nrad=0"}, "KeyPoints k=3\n",
                 "Erro: nrad deve ser positivo: 0\n"},
        CasoErro{"forapro_booleano_invalido", {"desforapro", "key=k.xml", "radang=talvez"}, "KeyPoints k=3\n",
                 "Erro: valor booleano invalido talvez\n"}),
    [](const testing::TestParamInfo<CasoErro>& i) { return std::string(i.param.nome); });

}  // namespace
