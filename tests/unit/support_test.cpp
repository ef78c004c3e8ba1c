// The support library: argument stream, number conversions, files, images,
// drawing primitives and the shared generator.
#include "support/argumentos.hpp"
#include "support/arquivos.hpp"
#include "support/desenho.hpp"
#include "support/erro.hpp"
#include "support/img.hpp"
#include "support/imagem.hpp"
#include "support/limites.hpp"
#include "support/numeros.hpp"
#include "support/processo.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

using Stream = teste::Palavras;

// Words cut at blanks, '=' and ','; after a look-up of "camadas", the tokens
// left and resto(): a repeated option leaves one, a key without a value stays.
TEST(Argumentos, TokensAndLeftover) {
  const std::tuple<std::vector<std::string>, std::vector<std::string>, std::string> casos[] = {
      {{}, {}, ""},
      {{"ratio=0.8"}, {"ratio", "0.8"}, "ratio 0.8"},
      {{"cor=0,0,255"}, {"cor", "0", "0", "255"}, "cor 0 0 255"},
      {{"a=1 b=2", "  x  ", ""}, {"a", "1", "b", "2", "x"}, "a 1 b 2 x"},
      {{"camadas=3", "camadas=4"}, {"camadas", "4"}, "camadas 4"},
      {{"camadas"}, {"camadas"}, "camadas"}};
  for (const auto& [palavras, tokens, resto] : casos) {
    Stream s(palavras);
    tvm::ISTR in = s.istr();
    int camadas = 6;
    tvm::seekArg(in, "camadas", camadas);
    EXPECT_EQ(in.resto(), resto);
    std::vector<std::string> lidos;
    for (std::string t = tvm::leStr(in); t != "eof"; t = tvm::leStr(in)) lidos.push_back(t);
    EXPECT_EQ(lidos, tokens) << resto;
  }
}

TEST(Argumentos, TypedLookUpsIgnoreKeyCase) {
  Stream s({"diamMin=12", "bcinv=false", "MODO=Inplace", "key=Dir/KeyA.XML", "ratio=0.25"});
  tvm::ISTR in = s.istr();
  int diam = 30, pert = 5;
  bool bcinv = true;
  std::string modo = "c", key;
  double ratio = 0.8;
  EXPECT_TRUE(tvm::seekArg(in, "key", key));
  tvm::seekArg(in, "diammin", diam);
  tvm::seekArg(in, "pertpt", pert);
  tvm::seekArg(in, "bcinv", bcinv);
  tvm::seekArg(in, "modo", modo);
  tvm::seekArg(in, "ratio", ratio);
  EXPECT_EQ(std::tie(diam, pert, bcinv, modo, key, ratio),
            std::make_tuple(12, 5, false, "Inplace", "Dir/KeyA.XML", 0.25));
  EXPECT_FALSE(tvm::seekArg(in, "key", key));
  EXPECT_EQ(in.resto(), "");
}

TEST(Argumentos, BadValuesStopWithTheValueNamed) {
  Stream s({"camadas=", "bcinv=talvez", "cor=0,300,0"});
  tvm::ISTR in = s.istr();
  int camadas = 6;
  bool bcinv = true;
  EXPECT_EQ(teste::mensagemDe([&] { tvm::seekArg(in, "camadas", camadas); }), "Erro: numero inteiro invalido ");
  EXPECT_EQ(teste::mensagemDe([&] { tvm::seekArg(in, "bcinv", bcinv); }), "Erro: valor booleano invalido talvez");
  EXPECT_EQ(tvm::leStr(in), "cor");
  uchar b = 1, g = 0;
  tvm::leNum(in, b);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(teste::mensagemDe([&] { tvm::leNum(in, g); }), "Erro: valor fora de 0 a 255 300");
  double r = -1;
  tvm::leNum(in, r);
  EXPECT_EQ(r, 0.0);
  EXPECT_EQ(teste::mensagemDe([&] { tvm::leNum(in, r); }), "Erro: falta um valor numerico");
}

// A list of numeric options: each field converted by its own type, looked
// up in the list's order (the first bad value named is the list's first).
TEST(Argumentos, OptionListByTypeAndOrder) {
  const std::tuple<std::vector<std::string>, int, double, std::string> casos[] = {
      {{}, 7, 0.5, "(sem erro)"},
      {{"B=2.5", "a=3"}, 3, 2.5, "(sem erro)"},
      {{"a=1.5"}, 7, 0.5, "Erro: numero inteiro invalido 1.5"},
      {{"b=x", "a=y"}, 7, 0.5, "Erro: numero inteiro invalido y"}};
  for (const auto& [palavras, a, b, mensagem] : casos) {
    Stream s(palavras);
    tvm::ISTR in = s.istr();
    int lidoA = 7;
    double lidoB = 0.5;
    EXPECT_EQ(teste::mensagemDe([&] { tvm::seekArgs(in, {{"a", lidoA}, {"b", lidoB}}); }), mensagem);
    EXPECT_EQ(std::tie(lidoA, lidoB), std::tie(a, b)) << mensagem;
  }
}

// The words of a command as /bin/sh itself makes them (it prints each one
// NUL-terminated), and the quoting of aspasShell undone.
TEST(Processo, ShellWordsAsTheShellMakesThem) {
  const std::string comandos[] = {
      "python3 /opt/modelos/extrai.py --uma {imagem} {saida}",
      "'/usr/bin/python3' '/tmp/a b/extrai.py' {imagem}",
      "\"/tmp/c d/x.py\" a\\ b 'it'\\''s' \"q\\\"uote\" \"a\\b\"",
      "  env  OMP_NUM_THREADS=1\tpython3 x.py  ",
      "a''b \"\" ''",
      ""};
  for (const std::string& comando : comandos) {
    SCOPED_TRACE(comando);
    FILE* sh = ::popen(("printf '%s\\0' " + comando).c_str(), "r");
    ASSERT_NE(sh, nullptr);
    std::vector<std::string> esperadas(1);
    for (int c; (c = std::fgetc(sh)) != EOF;) {
      if (c == 0) esperadas.emplace_back();
      else esperadas.back().push_back(char(c));
    }
    ASSERT_EQ(::pclose(sh), 0);
    esperadas.pop_back();
    // printf with no word still prints its format once.
    if (esperadas == std::vector<std::string>{""}) esperadas.clear();
    EXPECT_EQ(tvm::palavrasShell(comando), esperadas);
  }
  const std::string palavra = "/tmp/a b/it's \"x\"\\.py";
  EXPECT_EQ(tvm::palavrasShell("python3 " + tvm::aspasShell(palavra) + " {imagem}"),
            (std::vector<std::string>{"python3", palavra, "{imagem}"}));
}

TEST(Numeros, TextAndFileNumbers) {
  // Text, whether it is a whole int, whether it is a whole finite double.
  const std::tuple<const char*, bool, bool> casos[] = {
      {"42", true, true},    {"-7", true, true},     {" 3 ", true, true},   {"0.02", false, true},
      {"1e3", false, true},  {"12abc", false, false}, {"", false, false},   {"nan", false, false},
      {"inf", false, false}, {"1e999", false, false}, {"99999999999", false, true}};
  for (const auto& [texto, inteiroOk, realOk] : casos) {
    int i = 0;
    double d = 0;
    EXPECT_EQ(std::pair(tvm::textoParaInt(texto, i), tvm::textoParaDouble(texto, d)), std::pair(inteiroOk, realOk))
        << texto;
  }
  // Files: comment lines skipped, "nan" refused like the end of the file.
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "n.txt", "3 15\n//dist-ratio k1.pt.x 99\n  // outro 7\n2.5e+00 -4\nnan\n");
  tvm::Arquivo f(pasta / "n.txt", "r");
  int a = 0, b = 0, e = 0;
  float c = 0;
  double d = 0;
  EXPECT_TRUE(tvm::leNum(f.get(), a) && tvm::leNum(f.get(), b) && tvm::leNum(f.get(), c) && tvm::leNum(f.get(), e));
  EXPECT_EQ(std::tie(a, b, c, e), std::make_tuple(3, 15, 2.5f, -4));
  EXPECT_FALSE(tvm::leNum(f.get(), d) || tvm::leNum(f.get(), d));  // then the end of the file
}

TEST(Numeros, Normal01AndGenerator) {
  cv::Mat_<float> m = (cv::Mat_<float>(1, 4) << 1, 3, 5, 7);
  EXPECT_NEAR(tvm::normal01(m, 0.0, 1.0), std::sqrt(5.0), 1e-12);  // the deviation it removed
  EXPECT_NEAR(cv::mean(m)[0], 0.0, 1e-6);
  EXPECT_NEAR(cv::norm(m) / 2.0, 1.0, 1e-6);  // deviation 1 over 4 values
  cv::Mat_<float> plano(1, 5, 9.0f);
  EXPECT_LT(tvm::normal01(plano, 0.0, 1.0), tvm::epsilon);
  EXPECT_EQ(plano(0, 2), 9.0f);  // a flat row is not scaled

  // The standard Mersenne Twister: its first output for the default seed,
  // halved to 31 bits, again after re-seeding.
  for (int vez = 0; vez < 2; ++vez) EXPECT_EQ((tvm::myrandom.srand(5489), tvm::myrandom.rand()), int(3499211612u >> 1));
}

TEST(Arquivos, SafeOutputAppearsOnlyWhenConfirmedAndWildCards) {
  teste::PastaTemp pasta;
  for (const char* texto : {"meio", "todo"}) {
    tvm::SaidaSegura saida(pasta / "a.txt");
    teste::escreveTexto(saida.temporario(), texto);
    if (texto == std::string("meio")) continue;  // not confirmed: the temporary goes
    EXPECT_TRUE(pasta.conteudo().size() == 1 && pasta.conteudo()[0] != "a.txt");
    saida.confirma();
  }
  EXPECT_EQ(pasta.conteudo(), std::vector<std::string>{"a.txt"});
  EXPECT_EQ(teste::leTexto(pasta / "a.txt"), "todo");

  for (const char* nome : {"r2.png", "r1.png"}) teste::escreveTexto(pasta / nome, "");
  std::vector<std::string> nomes;
  for (const char* padrao : {"r*.png", "falta.png", "z*.png"}) tvm::vsWildCard(pasta / padrao, nomes, false);
  EXPECT_EQ(nomes, (std::vector<std::string>{pasta / "r1.png", pasta / "r2.png", pasta / "falta.png"}));
}

// grudaV and the grey-to-colour conversion are in every display test.
TEST(Imagem, WriteReadConvertAndFailures) {
  teste::PastaTemp pasta;
  cv::Mat_<cv::Vec3b> cor(3, 4, cv::Vec3b(10, 20, 30)), lida;
  cor(1, 2) = cv::Vec3b(200, 100, 0);
  tvm::imp(cor, pasta / "c.png");
  tvm::le(lida, pasta / "c.png");
  EXPECT_EQ(cv::norm(lida, cor, cv::NORM_INF), 0.0);
  teste::escreveTexto(pasta / "x.png", "isto nao e png");
  EXPECT_EQ(teste::mensagemDe([&] { tvm::le(lida, pasta / "x.png"); }), "Erro abertura arquivo " + pasta / "x.png");
  for (const char* nome : {"nao/existe.png", "sem_extensao"})
    EXPECT_EQ(teste::mensagemDe([&] { tvm::imp(cor, pasta / nome); }), "Erro abertura arquivo " + (pasta / nome));
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"c.png", "x.png"}));  // no temporaries left

  cv::Mat_<std::complex<float>> complexa;
  tvm::converte(cv::Mat_<uchar>(2, 3, uchar(10)), complexa);
  EXPECT_EQ(complexa(0, 0), std::complex<float>(10.0f, 0.0f));
}

// An environment variable set (or removed) for the life of the object.
class Variavel {
 public:
  Variavel(const char* nome, const std::optional<std::string>& valor) : nome_(nome) {
    if (const char* antes = std::getenv(nome)) antes_ = antes;
    valor ? ::setenv(nome, valor->c_str(), 1) : ::unsetenv(nome);
  }
  ~Variavel() { antes_ ? ::setenv(nome_, antes_->c_str(), 1) : ::unsetenv(nome_); }

 private:
  const char* nome_;
  std::optional<std::string> antes_;
};

TEST(Limites, EnvironmentRaisesOrLowersEachLimit) {
  const struct {
    std::optional<std::string> valor;
    int64_t pixels;  // -1: the value is refused
  } casos[] = {{std::nullopt, tvm::kMegapixelsPadrao * 1000000}, {"3", 3000000}, {"9223372036854", 9223372036854000000},
               {"0", -1}, {"-2", -1}, {"1e3", -1}, {"12 ", -1}, {"", -1}, {"9223372036855", -1}};
  for (const auto& c : casos) {
    SCOPED_TRACE(c.valor.value_or("(ausente)"));
    const Variavel v("QUIVELAR_MAX_MEGAPIXELS", c.valor);
    int64_t lido = -1;
    const std::string m = teste::mensagemDe([&] { lido = tvm::limitePixels(); });
    EXPECT_EQ(lido, c.pixels);
    if (c.pixels < 0) {
      EXPECT_EQ(m, "Erro: variavel de ambiente QUIVELAR_MAX_MEGAPIXELS invalida: '" + *c.valor +
                       "' (deve ser um inteiro positivo)");
    }
  }
  {
    const Variavel v("QUIVELAR_MAX_STORE_MB", std::nullopt);
    EXPECT_EQ(tvm::limiteStoreBytes(), tvm::kStoreMbPadrao * 1000000);
  }
  const Variavel v("QUIVELAR_MAX_STORE_MB", "7");
  EXPECT_EQ(tvm::limiteStoreBytes(), 7000000);
}

TEST(Limites, MemoryEstimateAgainstWhatIsAvailable) {
  {
    const Variavel v("QUIVELAR_MAX_MEMORIA_MB", std::nullopt);
    EXPECT_GT(tvm::memoriaDisponivel(), 0);  // this machine reports MemAvailable
  }
  const Variavel v("QUIVELAR_MAX_MEMORIA_MB", "50");
  EXPECT_EQ(tvm::memoriaDisponivel(), 50000000);
  EXPECT_EQ(teste::mensagemDe([] { tvm::verificaMemoria(50e6, "X em a.png"); }), "(sem erro)");
  EXPECT_EQ(teste::mensagemDe([] { tvm::verificaMemoria(50e6 + 1, "X em a.png"); }),
            "Erro: X em a.png precisaria de cerca de 50 MB, mais que os 50 MB de memoria disponivel "
            "(QUIVELAR_MAX_MEMORIA_MB muda o limite)");
}

// Each format the program decodes itself is refused on its header's size;
// the limit itself is allowed. (Formats left to the codec plug-in are in
// mensagens_cli_test: this process has OpenCV's codecs loaded already.)
TEST(Limites, ImagesOverThePixelLimitAreRefusedByTheirHeader) {
  const Variavel v("QUIVELAR_MAX_MEGAPIXELS", "1");
  teste::PastaTemp pasta;
  for (const char* extensao : {".png", ".jpg", ".pgm"}) {
    SCOPED_TRACE(extensao);
    const std::string cabe = pasta / (std::string("cabe") + extensao), grande = pasta / (std::string("g") + extensao);
    teste::salva(teste::uniforme(1000, 1000, 7), cabe);
    teste::salva(teste::uniforme(1000, 1001, 7), grande);
    cv::Mat_<uchar> lida;
    EXPECT_EQ(teste::mensagemDe([&] { tvm::le(lida, cabe); }), "(sem erro)");
    EXPECT_EQ(lida.size(), cv::Size(1000, 1000));
    EXPECT_EQ(teste::mensagemDe([&] { tvm::le(lida, grande); }),
              "Erro: imagem " + grande +
                  " de 1001x1000 pixels passa do limite de 1 megapixels (QUIVELAR_MAX_MEGAPIXELS muda o limite)");
  }
}

TEST(Img, ViewGuardsAndClamps) {
  EXPECT_EQ(teste::mensagemDe([] { tvm::IMG_<uchar> v{cv::Mat_<uchar>()}; }), "Erro: IMG_::constructor _mat nulo");
  cv::Mat_<uchar> m = (cv::Mat_<uchar>(4, 5) << 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19);
  tvm::IMG_<uchar> v(m, 77);
  EXPECT_EQ(std::tie(v.n, v.lc, v.cc), std::make_tuple(20, 1, 2));
  // Outside: atc gives the background, atx the nearest pixel.
  EXPECT_EQ(std::make_tuple(v.atc(-1, 0), v.atx(-3, 9), v.atx(8, -2)), std::make_tuple(77, 4, 15));
  v(2, 3) = 99;
  EXPECT_EQ(m(2, 3), 99);  // a view, not a copy
}

// Plain segments and the pen are drawn by the curve and match images (their
// tests check pixels); here the clipping and the width.
TEST(Desenho, SegmentsAreClippedAndWide) {
  const cv::Vec3b preto(0, 0, 0), branco(255, 255, 255);
  cv::Mat_<cv::Vec3b> img(20, 30, branco);
  // Far outside on both ends: clipped, not walked pixel by pixel.
  tvm::reta(img, 10, -2000000000, 10, 2000000000, preto, 1);
  EXPECT_EQ(cv::countNonZero(img.reshape(1).row(10) == 0), 30 * 3);
  EXPECT_EQ(cv::countNonZero(img.reshape(1) == 0), 30 * 3);
  tvm::reta(img, 0, 0, 19, 0, preto, 3);
  EXPECT_EQ(img(5, 1), preto);
  EXPECT_EQ(img(5, 2), branco);
}

}  // namespace
