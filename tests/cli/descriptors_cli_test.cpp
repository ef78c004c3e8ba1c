// DesSift, DesSurf, DesSimp and DesRiff run as a user runs them.
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

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

// A folder with a.png (texture), plana.png (one grey level), k.xml (the
// twelve keypoints) and ruim.xml (the same with keypoint 2 of size 0).
struct Cenario {
  teste::PastaTemp pasta;
  std::vector<std::string> entradas;

  Cenario() {
    teste::salva(imagem(), pasta / "a.png");
    teste::salva(teste::uniforme(160, 160, 77), pasta / "plana.png");
    formats::impKeyPoints(pasta / "k.xml", keypoints());
    std::vector<cv::KeyPoint> ruins = keypoints();
    ruins[2].size = 0.0f;
    formats::impKeyPoints(pasta / "ruim.xml", ruins);
    entradas = pasta.conteudo();
  }

  teste::Execucao roda(const std::vector<std::string>& args) const { return teste::roda(args, pasta.caminho()); }

  void leSaida(std::vector<cv::KeyPoint>& kps, cv::Mat& d, const std::string& nome = "d.xml") const {
    formats::leDescritores(pasta / nome, kps, d);
  }
};

struct CasoFalha {
  const char* nome;
  std::vector<std::string> args;
  std::string out, err;
};

void PrintTo(const CasoFalha& c, std::ostream* os) { *os << c.nome; }

// stderr without the lines OpenCV's own logger writes ("[ERROR:0@0.01] ...",
// when a store does not open): those are the library's, not the tool's.
std::string semLogOpenCV(const std::string& err) {
  std::string limpo;
  size_t inicio = 0;
  while (inicio < err.size()) {
    size_t fim = err.find('\n', inicio);
    fim = fim == std::string::npos ? err.size() : fim + 1;
    const std::string linha = err.substr(inicio, fim - inicio);
    if (linha.rfind("[ERROR:", 0) != 0 && linha.rfind("[ WARN:", 0) != 0) limpo += linha;
    inicio = fim;
  }
  return limpo;
}

class DescritoresFalha : public ::testing::TestWithParam<CasoFalha> {};

// Every failure: the exact texts, status 1, and no output or temporary left.
TEST_P(DescritoresFalha, MensagemESemArquivo) {
  const CasoFalha& caso = GetParam();
  const Cenario c;
  const teste::Execucao e = c.roda(caso.args);
  EXPECT_EQ(e.out, caso.out);
  EXPECT_EQ(semLogOpenCV(e.err), caso.err);
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.sinal, 0);
  EXPECT_EQ(c.pasta.conteudo(), c.entradas);
}

const std::string usoSift = "DesSift a.pgm DesA.xml [KeyA.xml]\n";
const std::string usoSurf = "DesSurf a.pgm DesA.xml [KeyA.xml]\n";
const std::string usoSimp =
    "DesSimp a.pgm DesA.xml [key=KeyA.xml camadas=6 dgauss=11 modo=i/c]\n"
    "  Se keyA.xml nao for fornecido, usa-se SIFT.\n"
    "  camadas       = 1,  2,  3,  4,  5,   6\n"
    "  descriptorSize= 7, 19, 37, 61, 91, 127\n"
    "  dgauss deve ser impar. tnl=91.\n"
    "  modo=inplace ou copy (default).\n";
const std::string usoRiff =
    "DesRiff a.pgm DesA.xml [key=KeyA.xml naneis=4 larguraAnel=10]\n"
    "  Se keyA.xml nao for fornecido, usa-se SIFT.\n";
const std::string nArgs = "Erro: Numero de argumentos invalido\n";
const std::string k12 = "KeyPoints k=12\n";
const std::string ruim = "Erro: keypoint 2 com tamanho ou posicao invalida\n";
const std::string faixaRiff = "Erro: naneis e larguraAnel devem ser positivos com naneis*larguraAnel ate 1000\n";

INSTANTIATE_TEST_SUITE_P(
    Tabela, DescritoresFalha,
    ::testing::Values(
        CasoFalha{"sift_2_palavras", {"DesSift", "a.png"}, usoSift, nArgs},
        CasoFalha{"sift_5_palavras", {"DesSift", "a.png", "d.xml", "k.xml", "x"}, usoSift, nArgs},
        CasoFalha{"surf_2_palavras", {"dessurf", "a.png"}, usoSurf, nArgs},
        CasoFalha{"simp_2_palavras", {"DesSimp", "a.png"}, usoSimp, nArgs},
        CasoFalha{"riff_1_palavra", {"DesRiff"}, usoRiff, nArgs},
        CasoFalha{"sift_key_inexistente", {"DesSift", "a.png", "d.xml", "nao.xml"}, "",
                  "Erro abertura arquivo nao.xml\n"},
        CasoFalha{"simp_key_inexistente", {"DesSimp", "a.png", "d.xml", "key=nao.xml"}, "",
                  "Erro abertura arquivo nao.xml\n"},
        CasoFalha{"simp_dgauss_par", {"DesSimp", "a.png", "d.xml", "key=k.xml", "dgauss=10"}, k12,
                  "Erro: dGauss deve ser impar\n"},
        CasoFalha{"simp_modo_x", {"DesSimp", "a.png", "d.xml", "key=k.xml", "modo=x"}, k12,
                  "Erro: modo invalido\n"},
        CasoFalha{"simp_opcao_desconhecida", {"DesSimp", "a.png", "d.xml", "key=k.xml", "foo=1"}, k12,
                  "Erro: Argumento invalido foo 1\n"},
        CasoFalha{"simp_opcao_repetida", {"DesSimp", "a.png", "d.xml", "key=k.xml", "camadas=6", "camadas=5"}, k12,
                  "Erro: Argumento invalido camadas 5\n"},
        CasoFalha{"simp_camadas_0", {"DesSimp", "a.png", "d.xml", "key=k.xml", "camadas=0"}, k12,
                  "Erro: Desvio<epsilon\n"},
        CasoFalha{"simp_plana", {"DesSimp", "plana.png", "d.xml", "key=k.xml"}, k12, "Erro: Desvio<epsilon\n"},
        CasoFalha{"riff_naneis_0", {"DesRiff", "a.png", "d.xml", "key=k.xml", "naneis=0"}, k12, faixaRiff},
        CasoFalha{"riff_largura_texto", {"DesRiff", "a.png", "d.xml", "key=k.xml", "larguraAnel=x"}, k12,
                  "Erro: numero inteiro invalido x\n"},
        CasoFalha{"simp_keypoint_ruim", {"DesSimp", "a.png", "d.xml", "key=ruim.xml"}, k12, ruim},
        CasoFalha{"riff_keypoint_ruim", {"DesRiff", "a.png", "d.xml", "key=ruim.xml"}, k12, ruim},
        CasoFalha{"sift_keypoint_ruim", {"DesSift", "a.png", "d.xml", "ruim.xml"}, k12, ruim},
        CasoFalha{"surf_keypoint_ruim", {"DesSurf", "a.png", "d.xml", "ruim.xml"}, k12, ruim}),
    [](const auto& info) { return std::string(info.param.nome); });

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

TEST(DescritoresCli, SemOpcaoGravaStoreVazioSemContagem) {
  for (const char* tool : {"DesSimp", "DesRiff"}) {
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
