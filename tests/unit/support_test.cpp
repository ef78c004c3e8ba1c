// The support library: argument stream, number conversions, files, images,
// drawing primitives and the shared generator.
#include "support/argumentos.hpp"
#include "support/arquivos.hpp"
#include "support/desenho.hpp"
#include "support/erro.hpp"
#include "support/img.hpp"
#include "support/imagem.hpp"
#include "support/numeros.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using Stream = teste::Palavras;

std::vector<std::string> todosTokens(tvm::ISTR in) {
  std::vector<std::string> tokens;
  for (std::string t = tvm::leStr(in); t != "eof"; t = tvm::leStr(in)) tokens.push_back(t);
  return tokens;
}

struct CasoTokens {
  const char* nome;
  std::vector<std::string> words;
  std::vector<std::string> tokens;
};

class Tokens : public testing::TestWithParam<CasoTokens> {};

TEST_P(Tokens, CutAtBlanksEqualsAndCommas) {
  Stream s(GetParam().words);
  EXPECT_EQ(todosTokens(s.istr()), GetParam().tokens);
}

INSTANTIATE_TEST_SUITE_P(
    Argumentos, Tokens,
    testing::Values(CasoTokens{"vazio", {}, {}},
                    CasoTokens{"chaveValor", {"ratio=0.8"}, {"ratio", "0.8"}},
                    CasoTokens{"cor", {"cor=0,0,255"}, {"cor", "0", "0", "255"}},
                    CasoTokens{"valorVazio", {"modo="}, {"modo", ""}},
                    CasoTokens{"brancosDentro", {"a=1 b=2", "brute"}, {"a", "1", "b", "2", "brute"}},
                    CasoTokens{"brancosRepetidos", {"  x  ", ""}, {"x"}}),
    [](const testing::TestParamInfo<CasoTokens>& info) { return std::string(info.param.nome); });

TEST(Argumentos, SeekArgIgnoresKeyCaseAndConsumesKeyAndValue) {
  Stream s({"diamMin=12", "SEED=3"});
  tvm::ISTR in = s.istr();
  int diam = 30, seed = 7, pert = 5;
  tvm::seekArg(in, "diammin", diam);
  tvm::seekArg(in, "seed", seed);
  tvm::seekArg(in, "pertpt", pert);
  EXPECT_EQ(diam, 12);
  EXPECT_EQ(seed, 3);
  EXPECT_EQ(pert, 5);  // absent: the default survives
  EXPECT_EQ(in.resto(), "");
}

TEST(Argumentos, LeftoverNamesWhatNoLookUpTook) {
  struct Caso {
    std::vector<std::string> words;
    std::string resto;
  };
  const Caso casos[] = {
      {{"camadas=3", "camadas=4"}, "camadas 4"},  // repeated option: one stays
      {{"foo=1"}, "foo 1"},                       // unknown option
      {{"camadas"}, "camadas"},                   // key without a value
      {{}, ""},
  };
  for (const Caso& c : casos) {
    Stream s(c.words);
    tvm::ISTR in = s.istr();
    int camadas = 6;
    tvm::seekArg(in, "camadas", camadas);
    EXPECT_EQ(in.resto(), c.resto);
  }
  Stream vazio({"camadas="});  // an empty value of an int option is refused
  tvm::ISTR in = vazio.istr();
  int camadas = 6;
  EXPECT_EQ(teste::mensagemDe([&] { tvm::seekArg(in, "camadas", camadas); }), "Erro: numero inteiro invalido ");
}

TEST(Argumentos, TypedLookUps) {
  Stream s({"bcinv=false", "modo=Inplace", "key=Dir/KeyA.XML", "ratio=0.25"});
  tvm::ISTR in = s.istr();
  bool bcinv = true;
  std::string modo = "c", key;
  double ratio = 0.8;
  EXPECT_TRUE(tvm::seekFileName(in, "key", key));
  tvm::seekArg(in, "bcinv", bcinv);
  tvm::seekArg(in, "modo", modo);
  tvm::seekArg(in, "ratio", ratio);
  EXPECT_EQ(key, "Dir/KeyA.XML");
  EXPECT_FALSE(bcinv);
  EXPECT_EQ(modo, "Inplace");
  EXPECT_DOUBLE_EQ(ratio, 0.25);
  EXPECT_FALSE(tvm::seekFileName(in, "key", key));
}

TEST(Argumentos, BadValuesStopWithTheValueNamed) {
  Stream s({"bcinv=talvez", "cor=0,300,0"});
  tvm::ISTR in = s.istr();
  bool bcinv = true;
  EXPECT_EQ(teste::mensagemDe([&] { tvm::seekArg(in, "bcinv", bcinv); }), "Erro: valor booleano invalido talvez");
  EXPECT_EQ(tvm::leStr(in), "cor");
  uchar b = 0, g = 0;
  tvm::leNum(in, b);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(teste::mensagemDe([&] { tvm::leNum(in, g); }), "Erro: valor fora de 0 a 255 300");
  double r = -1;
  tvm::leNum(in, r);
  EXPECT_EQ(r, 0.0);
  EXPECT_EQ(teste::mensagemDe([&] { tvm::leNum(in, r); }), "Erro: falta um valor numerico");
}

TEST(Argumentos, ConvArgAcceptsOnlyWholeFiniteNumbers) {
  struct Caso {
    const char* texto;
    bool inteiroOk;
    bool realOk;
  };
  const Caso casos[] = {
      {"42", true, true},   {"-7", true, true},    {" 3 ", true, true},  {"0.02", false, true},
      {"1e3", false, true}, {"12abc", false, false}, {"", false, false}, {"nan", false, false},
      {"inf", false, false}, {"1e999", false, false}, {"99999999999", false, true},
  };
  for (const Caso& c : casos) {
    int i = 0;
    double d = 0;
    EXPECT_EQ(tvm::textoParaInt(c.texto, i), c.inteiroOk) << c.texto;
    EXPECT_EQ(tvm::textoParaDouble(c.texto, d), c.realOk) << c.texto;
  }
  int n = 0;
  EXPECT_EQ(teste::mensagemDe([&] { tvm::convArg(n, "dez"); }), "Erro: numero inteiro invalido dez");
}

TEST(Numeros, FileNumbersSkipCommentLines) {
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "n.txt", "3 15\n//dist-ratio k1.pt.x 99\n  // outro 7\n2.5e+00 -4\nnan\n");
  tvm::Arquivo f(pasta / "n.txt", "r");
  int a = 0, b = 0, e = 0;
  float c = 0;
  double d = 0;
  ASSERT_TRUE(tvm::leNum(f.get(), a));
  ASSERT_TRUE(tvm::leNum(f.get(), b));
  ASSERT_TRUE(tvm::leNum(f.get(), c));
  ASSERT_TRUE(tvm::leNum(f.get(), e));
  EXPECT_EQ(a, 3);
  EXPECT_EQ(b, 15);
  EXPECT_FLOAT_EQ(c, 2.5f);
  EXPECT_EQ(e, -4);
  EXPECT_FALSE(tvm::leNum(f.get(), d));  // "nan" is not a number a file may hold
  EXPECT_FALSE(tvm::leNum(f.get(), d));  // end of file
}

TEST(Numeros, Normal01ReturnsTheDeviationItRemoved) {
  cv::Mat_<float> m = (cv::Mat_<float>(1, 4) << 1, 3, 5, 7);
  EXPECT_NEAR(tvm::normal01(m, 0.0, 1.0), std::sqrt(5.0), 1e-12);
  EXPECT_NEAR(cv::mean(m)[0], 0.0, 1e-6);
  EXPECT_NEAR(cv::norm(m) / 2.0, 1.0, 1e-6);  // deviation 1 over 4 values

  cv::Mat_<float> plano(1, 5, 9.0f);
  EXPECT_LT(tvm::normal01(plano, 0.0, 1.0), tvm::epsilon);
  EXPECT_EQ(plano(0, 2), 9.0f);  // a flat row is not scaled
}

TEST(Numeros, GeneratorIsTheStandardMersenneTwister) {
  tvm::myrandom.srand(5489);
  // The first output of std::mt19937 with its default seed, halved to 31 bits.
  EXPECT_EQ(tvm::myrandom.rand(), static_cast<int>(3499211612u >> 1));
  // Re-seeding restarts the sequence.
  tvm::myrandom.srand(5489);
  EXPECT_EQ(tvm::myrandom.rand(), static_cast<int>(3499211612u >> 1));
}

TEST(Arquivos, SafeOutputAppearsOnlyWhenConfirmed) {
  teste::PastaTemp pasta;
  {
    tvm::SaidaSegura saida(pasta / "a.txt");
    teste::escreveTexto(saida.temporario(), "meio");
  }
  EXPECT_TRUE(pasta.conteudo().empty());
  {
    tvm::SaidaSegura saida(pasta / "a.txt");
    EXPECT_NE(saida.temporario().find("a.txt"), std::string::npos);  // keeps the extension
    teste::escreveTexto(saida.temporario(), "todo");
    saida.confirma();
  }
  EXPECT_EQ(pasta.conteudo(), std::vector<std::string>{"a.txt"});
  EXPECT_EQ(teste::leTexto(pasta / "a.txt"), "todo");
}

TEST(Arquivos, WildCards) {
  teste::PastaTemp pasta;
  for (const char* nome : {"r2.png", "r1.png", "x.txt"}) teste::escreveTexto(pasta / nome, "");
  std::vector<std::string> nomes;
  tvm::vsWildCard(pasta / "r*.png", nomes, false);
  tvm::vsWildCard(pasta / "falta.png", nomes, false);
  tvm::vsWildCard(pasta / "z*.png", nomes, false);
  EXPECT_EQ(nomes, (std::vector<std::string>{pasta / "r1.png", pasta / "r2.png", pasta / "falta.png"}));
  EXPECT_EQ(teste::mensagemDe([&] { tvm::vsWildCard(pasta / "z*.png", nomes, true); }),
            "Erro: nenhum arquivo para " + (pasta / "z*.png"));
}

TEST(Imagem, WriteReadRoundTripAndFailures) {
  teste::PastaTemp pasta;
  cv::Mat_<cv::Vec3b> cor(3, 4, cv::Vec3b(10, 20, 30));
  cor(1, 2) = cv::Vec3b(200, 100, 0);
  tvm::imp(cor, pasta / "c.png");
  cv::Mat_<cv::Vec3b> lida;
  tvm::le(lida, pasta / "c.png");
  EXPECT_EQ(cv::norm(lida, cor, cv::NORM_INF), 0.0);
  cv::Mat_<uchar> cinza;
  tvm::le(cinza, pasta / "c.png");
  EXPECT_EQ(cinza.size(), cor.size());

  teste::escreveTexto(pasta / "lixo.png", "isto nao e png");
  EXPECT_EQ(teste::mensagemDe([&] { tvm::le(cinza, pasta / "lixo.png"); }),
            "Erro abertura arquivo " + (pasta / "lixo.png"));
  EXPECT_EQ(teste::mensagemDe([&] { tvm::imp(cor, pasta / "nao/existe.png"); }),
            "Erro abertura arquivo " + (pasta / "nao/existe.png"));
  EXPECT_EQ(teste::mensagemDe([&] { tvm::imp(cor, pasta / "sem_extensao"); }),
            "Erro abertura arquivo " + (pasta / "sem_extensao"));
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"c.png", "lixo.png"}));  // no temporaries left
}

TEST(Imagem, GlueAndConvert) {
  cv::Mat_<uchar> cima(2, 3, uchar(10)), baixo(4, 5, uchar(20));
  const cv::Mat_<uchar> junta = tvm::grudaV(cima, baixo, 0, 255);
  ASSERT_EQ(junta.size(), cv::Size(5, 6));
  EXPECT_EQ(junta(1, 2), 10);
  EXPECT_EQ(junta(1, 4), 255);  // beside the narrower top image
  EXPECT_EQ(junta(2, 4), 20);

  cv::Mat_<cv::Vec3b> cor;
  tvm::converte(junta, cor);
  EXPECT_EQ(cor(5, 0), cv::Vec3b(20, 20, 20));
  cv::Mat_<std::complex<float>> complexa;
  tvm::converte(junta, complexa);
  EXPECT_EQ(complexa(0, 0), std::complex<float>(10.0f, 0.0f));
}

TEST(Img, ViewGuardsAndClamps) {
  EXPECT_EQ(teste::mensagemDe([] { tvm::IMG_<uchar> v{cv::Mat_<uchar>()}; }), "Erro: IMG_::constructor _mat nulo");
  cv::Mat_<uchar> m(4, 5);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 5; ++c) m(r, c) = static_cast<uchar>(10 * r + c);
  tvm::IMG_<uchar> v(m, 77);
  EXPECT_EQ(v.n, 20);
  EXPECT_EQ(v.lc, 1);
  EXPECT_EQ(v.cc, 2);
  EXPECT_EQ(v.atc(-1, 0), 77);
  EXPECT_EQ(v.atx(-3, 9), 4);
  EXPECT_EQ(v.atx(8, -2), 30);
  v(2, 3) = 99;
  EXPECT_EQ(m(2, 3), 99);  // a view, not a copy
}

TEST(Desenho, SegmentsAreClippedAndJoinTheirEnds) {
  cv::Mat_<cv::Vec3b> img(20, 30, cv::Vec3b(255, 255, 255));
  const cv::Vec3b preto(0, 0, 0);
  tvm::reta(img, 5, 2, 5, 12, preto, 1);
  for (int c = 2; c <= 12; ++c) EXPECT_EQ(img(5, c), preto) << c;
  EXPECT_EQ(img(5, 13), cv::Vec3b(255, 255, 255));
  EXPECT_EQ(img(4, 7), cv::Vec3b(255, 255, 255));

  // Far outside on both ends: clipped, not walked pixel by pixel.
  tvm::reta(img, 10, -2000000000, 10, 2000000000, preto, 1);
  EXPECT_EQ(cv::countNonZero(img.reshape(1).row(10) == 0), 30 * 3);

  cv::Mat_<cv::Vec3b> grossa(20, 30, cv::Vec3b(255, 255, 255));
  tvm::reta(grossa, 0, 0, 19, 0, preto, 3);
  EXPECT_EQ(grossa(10, 1), preto);
  EXPECT_EQ(grossa(10, 2), cv::Vec3b(255, 255, 255));

  cv::Mat_<cv::Vec3b> pena(20, 30, cv::Vec3b(255, 255, 255));
  tvm::moveTo(0, 0);
  tvm::lineTo(pena, 19, 19, preto);
  tvm::lineTo(pena, 19, 29, preto);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(pena(i, i), preto) << i;
  EXPECT_EQ(pena(19, 29), preto);
}

}  // namespace
