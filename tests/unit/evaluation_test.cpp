// Curves, ROC file, overlay and labels of the evaluation tools, in-process.
#include "evaluation/curvas.hpp"
#include "evaluation/opcoes.hpp"
#include "support/erro.hpp"
#include "support/texto.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {


const cv::Vec3b kVermelho(0, 0, 255);
const cv::Vec3b kBranco(255, 255, 255);
const cv::Vec3b kCinza(128, 128, 128);

// "WRRW" -> {false, true, true, false}
std::vector<bool> flags(const std::string& texto) {
  std::vector<bool> v;
  for (char c : texto) v.push_back(c == 'R');
  return v;
}

using teste::pixelsDaCor;

// ---- confusion counts and ROC points ---------------------------------------

struct CasoROC {
  const char* nome;
  const char* certos;
  std::vector<std::vector<int>> contagens;  // tp fp fn tn per step
};

class ConfusaoTest : public ::testing::TestWithParam<CasoROC> {};

TEST_P(ConfusaoTest, ContagensPassoAPasso) {
  const CasoROC& caso = GetParam();
  const auto contagens = evaluation::confusoes(flags(caso.certos));
  ASSERT_EQ(contagens.size(), caso.contagens.size());
  for (size_t k = 0; k < contagens.size(); ++k) {
    const auto& c = contagens[k];
    EXPECT_EQ((std::vector<int>{c.tp, c.fp, c.fn, c.tn}), caso.contagens[k]) << "passo " << k + 1;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Casos, ConfusaoTest,
    ::testing::Values(
        CasoROC{"ErradoCertoCertoErrado", "WRRW", {{0, 1, 2, 1}, {1, 1, 1, 1}, {2, 1, 0, 1}, {2, 2, 0, 0}}},
        CasoROC{"TodosCertos", "RRR", {{1, 0, 2, 0}, {2, 0, 1, 0}, {3, 0, 0, 0}}},
        CasoROC{"TodosErrados", "WW", {{0, 1, 0, 1}, {0, 2, 0, 0}}},
        CasoROC{"UmSo", "R", {{1, 0, 0, 0}}}),
    [](const auto& info) { return std::string(info.param.nome); });

// ---- the ROC file ----------------------------------------------------------

const char* const kCabecalhoROC = "//pos   x   y\n//pos fpr tpr\n";

struct CasoArquivoROC {
  const char* nome;
  const char* certos;
  std::string linhas;
};

class ArquivoROCTest : public ::testing::TestWithParam<CasoArquivoROC> {};

TEST_P(ArquivoROCTest, ConteudoExato) {
  const auto& caso = GetParam();
  teste::PastaTemp pasta;
  const std::vector<bool> c = flags(caso.certos);
  evaluation::impROC(evaluation::pontosROC(evaluation::confusoes(c)), c, pasta / "roc.txt");
  EXPECT_EQ(teste::leTexto(pasta / "roc.txt"), caso.linhas);
  EXPECT_EQ(pasta.conteudo(), std::vector<std::string>{"roc.txt"});
}

INSTANTIATE_TEST_SUITE_P(
    Casos, ArquivoROCTest,
    ::testing::Values(
        // No wrong match: fpr is NaN, printed as the processor converts it.
        CasoArquivoROC{"TodosCertos", "RR",
                       std::string("  2   2\n") + kCabecalhoROC + "  1 -2147483648  50\n  1 -2147483648 100\n"},
        CasoArquivoROC{"TodosErrados", "WW",
                       std::string("  2   2\n") + kCabecalhoROC + "  0  50 -2147483648\n  0 100 -2147483648\n"},
        // 1/8, 3/8, 5/8, 7/8 are exact ties: rounded to the even neighbour.
        CasoArquivoROC{"EmpatesParaOPar", "RWWWWWWWW",
                       std::string("  9   2\n") + kCabecalhoROC +
                           "  1   0 100\n  0  12 100\n  0  25 100\n  0  38 100\n  0  50 100\n"
                           "  0  62 100\n  0  75 100\n  0  88 100\n  0 100 100\n"}),
    [](const auto& info) { return std::string(info.param.nome); });

// ---- the ROC image ---------------------------------------------------------

cv::Mat_<cv::Vec3b> imagemROC(const char* certos, cv::Vec3b cor = kVermelho) {
  cv::Mat_<cv::Vec3b> img;
  evaluation::curvaROC(evaluation::pontosROC(evaluation::confusoes(flags(certos))), img, 8, cor);
  return img;
}

TEST(CurvaROC, QuatroCasamentosDesenhamAColuna400) {
  const cv::Mat_<cv::Vec3b> img = imagemROC("WRRW");
  ASSERT_EQ(img.size(), cv::Size(401, 401));
  // In-area points (tpr, fpr) = (.5, .5) and (1, .5): rows 400 and 0, column 400.
  const auto pts = pixelsDaCor(img, kVermelho);
  ASSERT_EQ(pts.size(), 401u);
  for (const cv::Point& p : pts) EXPECT_EQ(p.x, 400);
}

TEST(CurvaROC, SemPontosNaAreaOuUmSoNadaDesenha) {
  // All correct: fpr NaN. All wrong: tpr NaN. One correct match then wrong
  // ones beyond fpr 0.5: a single in-area point only places the pen.
  for (const char* certos : {"RRRR", "WWW", "R", "RW"}) {
    const cv::Mat_<cv::Vec3b> img = imagemROC(certos);
    EXPECT_TRUE(pixelsDaCor(img, kVermelho).empty()) << certos;
    EXPECT_EQ(img.size(), cv::Size(401, 401));
  }
}

TEST(CurvaROC, GradeCinzaACada80Pixels) {
  const cv::Mat_<cv::Vec3b> img = imagemROC("RRRR");
  for (int p = 0; p <= 400; p += 80) {
    EXPECT_EQ(img(p, 200), kCinza) << "linha " << p;
    EXPECT_EQ(img(200, p), kCinza) << "coluna " << p;
    // The fpr labels sit left of their grid line and leave it visible.
    EXPECT_EQ(img(img.rows - 8, p), kCinza) << "coluna " << p;
  }
  EXPECT_EQ(img(40, 200), kBranco);
  EXPECT_EQ(img(200, 40), kBranco);
  // Labels are black text on white boxes: the "1.0" at the top left, the
  // "0.1" along the bottom just left of column 80, "tpr", "fpr".
  auto temPreto = [&](cv::Rect r) { return !pixelsDaCor(img(r), cv::Vec3b(0, 0, 0)).empty(); };
  EXPECT_TRUE(temPreto(cv::Rect(1, 1, 24, 14)));
  EXPECT_TRUE(temPreto(cv::Rect(56, 386, 24, 14)));
  EXPECT_TRUE(temPreto(cv::Rect(1, 16, 24, 14)));
  EXPECT_TRUE(temPreto(cv::Rect(371, 370, 30, 14)));
  // The box hides the grid line under the "0.9" label at row 80.
  EXPECT_EQ(img(85, 1), kBranco);
}

// ---- the hit-rate image ----------------------------------------------------

cv::Mat_<cv::Vec3b> imagemAcerto(const char* certos, char eixox) {
  cv::Mat_<cv::Vec3b> img;
  evaluation::curvaAccRej(evaluation::taxasAcerto(flags(certos)), img, 4, kVermelho, eixox);
  return img;
}

TEST(CurvaAccRej, TodosCertosLinhaRetaNoTopo) {
  for (char eixox : {'a', 'r'}) {
    const cv::Mat_<cv::Vec3b> img = imagemAcerto("RRRR", eixox);
    ASSERT_EQ(img.size(), cv::Size(401, 401));
    const auto pts = pixelsDaCor(img, kVermelho);
    // x runs over 0, 25, 50, 75 percent: columns 0 ... 300 of row 0.
    ASSERT_EQ(pts.size(), 301u) << eixox;
    for (const cv::Point& p : pts) EXPECT_EQ(p.y, 0);
  }
}

TEST(CurvaAccRej, VerticesNosDoisEixosEspelhados) {
  // Hit rates 1, .5, 2/3, .75, .6 -> rows 0, 200, 133, 100, 160.
  const int linhas[] = {0, 200, 133, 100, 160};
  const cv::Mat_<cv::Vec3b> a = imagemAcerto("RWRRW", 'a'), r = imagemAcerto("RWRRW", 'r');
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(a(linhas[i], 80 * i), kVermelho) << i;        // i / n
    EXPECT_EQ(r(linhas[i], 80 * (4 - i)), kVermelho) << i;  // (n - 1 - i) / n
  }
  EXPECT_EQ(pixelsDaCor(a, kVermelho).size(), pixelsDaCor(r, kVermelho).size());
  for (const cv::Point& p : pixelsDaCor(a, kVermelho)) EXPECT_LE(p.x, 320);
}

TEST(CurvaAccRej, UmCasamentoNadaDesenhaEEixosDiferemSoNoNome) {
  const cv::Mat_<cv::Vec3b> a = imagemAcerto("W", 'a'), r = imagemAcerto("W", 'r');
  EXPECT_TRUE(pixelsDaCor(a, kVermelho).empty());
  EXPECT_TRUE(pixelsDaCor(r, kVermelho).empty());
  cv::Mat diferenca;
  cv::compare(a.reshape(1), r.reshape(1), diferenca, cv::CMP_NE);
  const cv::Rect onde = cv::boundingRect(diferenca);
  ASSERT_GT(onde.area(), 0);
  // Only inside the axis-name box at (rows - 31, cols - 80).
  EXPECT_GE(onde.y, 401 - 31);
  EXPECT_LT(onde.y + onde.height, 401 - 31 + 15);
  EXPECT_GE(onde.x / 3, 401 - 80);
}

TEST(CurvaAccRej, EixoInvalidoParaNaGuarda) {
  cv::Mat_<cv::Vec3b> img;
  EXPECT_EQ(teste::mensagemDe([&] { evaluation::curvaAccRej({1.0}, img, 4, kVermelho, 'x'); }),
            "Erro curvaAccRej: eixox invalido");
}

// ---- labels ----------------------------------------------------------------

TEST(PutTxt, CaixaNoCantoETextoRecortadoNaBorda) {
  const cv::Vec3b fundo(50, 60, 70), preto(0, 0, 0);
  cv::Mat_<cv::Vec3b> img(40, 60, fundo);
  tvm::putTxt(img, 5, 10, "0.5", preto, 1, true, kBranco);
  cv::Mat_<uchar> tocado(img.size(), uchar(0));
  for (int r = 0; r < img.rows; ++r)
    for (int c = 0; c < img.cols; ++c) tocado(r, c) = img(r, c) != fundo;
  const cv::Rect caixa = cv::boundingRect(tocado);
  EXPECT_EQ(caixa.tl(), cv::Point(10, 5));
  // Small enough for the 24 x 14 slots of the graph labels.
  EXPECT_LE(caixa.width, 24);
  EXPECT_LE(caixa.height, 14);
  EXPECT_GE(pixelsDaCor(img, preto).size(), 10u);
  EXPECT_EQ(pixelsDaCor(img, preto).size() + pixelsDaCor(img, kBranco).size(), size_t(caixa.area()));

  // A box starting off the image shows its right part only; wholly outside
  // it changes nothing.
  cv::Mat_<cv::Vec3b> corte(40, 60, fundo);
  tvm::putTxt(corte, -5, -12, "0.5", preto, 1, true, kBranco);
  EXPECT_EQ(corte(0, 0), kBranco);
  cv::Mat_<cv::Vec3b> fora(40, 60, fundo);
  for (auto [r, c] : {std::pair{-20, 0}, std::pair{0, -30}, std::pair{40, 0}, std::pair{0, 60}})
    tvm::putTxt(fora, r, c, "0.5", preto, 1, true, kBranco);
  EXPECT_EQ(pixelsDaCor(fora, fundo).size(), 40u * 60u);

  // Unboxed: the background between the glyphs stays.
  cv::Mat_<cv::Vec3b> semCaixa(40, 60, fundo);
  tvm::putTxt(semCaixa, 5, 10, "0.5", preto, 1, false, kBranco);
  EXPECT_TRUE(pixelsDaCor(semCaixa, kBranco).empty());
  EXPECT_EQ(pixelsDaCor(semCaixa, preto).size(), pixelsDaCor(img, preto).size());
}

// ---- keyword options -------------------------------------------------------

struct CasoOpcao {
  const char* nome;
  std::vector<std::string> palavras;
  int chaves;
  std::string erro;  // empty: accepted
  double dist;
  cv::Vec3b cor;
  char eixox;
  std::string arquivo;
};

CasoOpcao recusa(const char* nome, std::vector<std::string> palavras, int chaves, std::string erro) {
  return {nome, std::move(palavras), chaves, std::move(erro), 0.0, cv::Vec3b(), ' ', ""};
}

class OpcoesTest : public ::testing::TestWithParam<CasoOpcao> {};

TEST_P(OpcoesTest, LeOuRecusa) {
  const CasoOpcao& caso = GetParam();
  teste::Palavras p(caso.palavras);
  evaluation::OpcoesAvaliacao op;
  const std::string msg = teste::mensagemDe([&] { op = evaluation::leOpcoes(p.n(), p.argv(), caso.chaves); });
  if (!caso.erro.empty()) {
    EXPECT_EQ(msg, caso.erro);
    return;
  }
  ASSERT_EQ(msg, "(sem erro)");
  EXPECT_DOUBLE_EQ(op.dist, caso.dist);
  EXPECT_EQ(op.cor, caso.cor);
  EXPECT_EQ(op.eixox, caso.eixox);
  EXPECT_EQ(op.arquivo, caso.arquivo);
}

using namespace evaluation;
const int kRoc = kDist | kCor | kArquivo, kAcc = kDist | kCor | kEixox;
const cv::Vec3b kPadrao(0, 0, 255);

INSTANTIATE_TEST_SUITE_P(
    Casos, OpcoesTest,
    ::testing::Values(
        CasoOpcao{"Nenhuma", {}, kRoc, "", 15.0, kPadrao, 'r', ""},
        CasoOpcao{"ArquivoComCaixa", {"arquivo=Roc.TXT"}, kRoc, "", 15.0, kPadrao, 'r', "Roc.TXT"},
        CasoOpcao{"EixoPelaPrimeiraLetra", {"eixox=axis"}, kAcc, "", 15.0, kPadrao, 'a', ""},
        recusa("EixoVazio", {"eixox="}, kAcc, "Erro: eixox deve ser a ou r"),
        recusa("ChaveEmMaiusculas", {"DIST=3"}, kRoc, "Erro: Palavra desconhecida DIST"),
        recusa("ArquivoNaoEDoMatlab", {"arquivo=a.txt"}, kDist, "Erro: Palavra desconhecida arquivo")),
    [](const auto& info) { return std::string(info.param.nome); });

}  // namespace
