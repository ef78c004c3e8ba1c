// Curves, ROC file, overlay, labels and warnings of the evaluation tools, in-process.
#include "evaluation/avisos.hpp"
#include "evaluation/curvas.hpp"
#include "evaluation/medidas_entrada.hpp"
#include "formats/match_file.hpp"
#include "evaluation/opcoes.hpp"
#include "support/texto.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <limits>
#include <string>
#include <vector>

namespace {

using teste::pixelsDaCor;
const cv::Vec3b kVermelho(0, 0, 255), kBranco(255, 255, 255), kCinza(128, 128, 128), kPreto(0, 0, 0);

// "WRRW" -> {false, true, true, false}
std::vector<bool> flags(const std::string& texto) {
  std::vector<bool> v;
  for (char c : texto) v.push_back(c == 'R');
  return v;
}

TEST(ArquivoROC, ConteudoExato) {
  const std::string cabecalho = "//pos   x   y\n//pos fpr tpr\n";
  const std::pair<const char*, std::string> casos[] = {
      // No wrong match: fpr is NaN, printed as the processor converts it.
      {"RR", "  2   2\n" + cabecalho + "  1 -2147483648  50\n  1 -2147483648 100\n"},
      {"WW", "  2   2\n" + cabecalho + "  0  50 -2147483648\n  0 100 -2147483648\n"},
      // 1/8, 3/8, 5/8, 7/8 are exact ties: rounded to the even neighbour.
      {"RWWWWWWWW", "  9   2\n" + cabecalho +
                        "  1   0 100\n  0  12 100\n  0  25 100\n  0  38 100\n  0  50 100\n"
                        "  0  62 100\n  0  75 100\n  0  88 100\n  0 100 100\n"}};
  teste::PastaTemp pasta;
  for (const auto& [certos, linhas] : casos) {
    evaluation::impROC(evaluation::pontosROC(evaluation::confusoes(flags(certos))), flags(certos), pasta / "roc.txt");
    EXPECT_EQ(teste::leTexto(pasta / "roc.txt"), linhas) << certos;
  }
  EXPECT_EQ(pasta.conteudo(), std::vector<std::string>{"roc.txt"});
}

cv::Mat_<cv::Vec3b> imagemROC(const char* certos) {
  cv::Mat_<cv::Vec3b> img;
  evaluation::curvaROC(evaluation::pontosROC(evaluation::confusoes(flags(certos))), img, 8, kVermelho);
  return img;
}

TEST(CurvaROC, PontosNaAreaGradeERotulos) {
  ASSERT_EQ(imagemROC("WRRW").size(), cv::Size(401, 401));
  // In-area points (tpr, fpr) = (.5, .5) and (1, .5): rows 400 and 0, column 400.
  const auto pts = pixelsDaCor(imagemROC("WRRW"), kVermelho);
  ASSERT_EQ(pts.size(), 401u);
  for (const cv::Point& p : pts) EXPECT_EQ(p.x, 400);
  // All correct: fpr NaN. All wrong: tpr NaN. One correct match then wrong
  // ones beyond fpr 0.5: a single in-area point only places the pen.
  for (const char* certos : {"RRRR", "WWW", "R", "RW"})
    EXPECT_TRUE(pixelsDaCor(imagemROC(certos), kVermelho).empty()) << certos;

  const cv::Mat_<cv::Vec3b> vazia = imagemROC("RRRR");
  for (int p = 0; p <= 400; p += 80) {
    EXPECT_EQ(vazia(p, 200), kCinza) << "linha " << p;
    EXPECT_EQ(vazia(200, p), kCinza) << "coluna " << p;
    // The fpr labels sit left of their grid line and leave it visible.
    EXPECT_EQ(vazia(vazia.rows - 8, p), kCinza) << "coluna " << p;
  }
  for (const cv::Point p : {cv::Point(200, 40), cv::Point(40, 200)}) EXPECT_EQ(vazia(p), kBranco) << p;
  // Labels are black text on white boxes: the "1.0" at the top left, the
  // "0.1" along the bottom just left of column 80, "tpr", "fpr".
  for (const cv::Rect r : {cv::Rect(1, 1, 24, 14), cv::Rect(56, 386, 24, 14), cv::Rect(1, 16, 24, 14),
                           cv::Rect(371, 370, 30, 14)})
    EXPECT_FALSE(pixelsDaCor(vazia(r), kPreto).empty()) << r;
  EXPECT_EQ(vazia(85, 1), kBranco);  // the box hides the grid line under the "0.9" label
}

cv::Mat_<cv::Vec3b> imagemAcerto(const char* certos, char eixox) {
  cv::Mat_<cv::Vec3b> img;
  evaluation::curvaAccRej(evaluation::taxasAcerto(flags(certos)), img, 4, kVermelho, eixox);
  return img;
}

TEST(CurvaAccRej, VerticesNosDoisEixosEspelhados) {
  // Hit rates 1, .5, 2/3, .75, .6 -> rows 0, 200, 133, 100, 160; x runs
  // over 0 ... 80 percent, never 100.
  const int linhas[] = {0, 200, 133, 100, 160};
  const cv::Mat_<cv::Vec3b> a = imagemAcerto("RWRRW", 'a'), r = imagemAcerto("RWRRW", 'r');
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(a(linhas[i], 80 * i), kVermelho) << i;        // i / n
    EXPECT_EQ(r(linhas[i], 80 * (4 - i)), kVermelho) << i;  // (n - 1 - i) / n
  }
  // One segment after another, sharing their ends: 200 + 80 + 80 + 80 + 1 pixels.
  EXPECT_EQ(pixelsDaCor(a, kVermelho).size() + pixelsDaCor(r, kVermelho).size(), 2 * 441u);
  for (const cv::Point& p : pixelsDaCor(a, kVermelho)) EXPECT_LE(p.x, 320);
  EXPECT_TRUE(pixelsDaCor(imagemAcerto("W", 'a'), kVermelho).empty());  // one point draws no line
}

TEST(PutTxt, CaixaNoCantoETextoRecortadoNaBorda) {
  const cv::Vec3b fundo(50, 60, 70);
  const auto escreve = [&](cv::Mat_<cv::Vec3b> img, int r, int c, bool caixa) {  // img shares its pixels
    tvm::putTxt(img, r, c, "0.5", kPreto, 1, caixa, kBranco);
    return img;
  };
  const auto nova = [&] { return cv::Mat_<cv::Vec3b>(40, 60, fundo); };
  const cv::Mat_<cv::Vec3b> img = escreve(nova(), 5, 10, true);
  cv::Mat intacto;
  cv::inRange(img, fundo, fundo, intacto);
  const cv::Rect caixa = cv::boundingRect(~intacto);
  // At the corner given, small enough for the 24 x 14 slots of the graph labels.
  EXPECT_TRUE(caixa.tl() == cv::Point(10, 5) && caixa.width <= 24 && caixa.height <= 14) << caixa;
  const size_t pretos = pixelsDaCor(img, kPreto).size();
  EXPECT_GE(pretos, 10u);
  EXPECT_EQ(pretos + pixelsDaCor(img, kBranco).size(), size_t(caixa.area()));
  // A box starting off the image shows its right part only; wholly outside
  // it changes nothing.
  EXPECT_EQ(escreve(nova(), -5, -12, true)(0, 0), kBranco);
  const cv::Mat_<cv::Vec3b> fora = nova();
  for (auto [r, c] : {std::pair{-20, 0}, std::pair{0, -30}, std::pair{40, 0}, std::pair{0, 60}})
    escreve(fora, r, c, true);
  EXPECT_EQ(pixelsDaCor(fora, fundo).size(), 40u * 60u);
}

// Dist, colour and the unknown words reach the tools' own tests; here what
// only the reader shows: the file name's case, the axis's first letter, an
// empty axis, a key's case.
TEST(Opcoes, LeOuRecusa) {
  using namespace evaluation;
  const std::tuple<std::string, int, std::string> casos[] = {
      {"arquivo=Roc.TXT", kArquivo, "(sem erro) Roc.TXT"}, {"eixox=axis", kEixox, "(sem erro) a"},
      {"eixox=", kEixox, "Erro: eixox deve ser a ou r"}, {"DIST=3", kDist, "Erro: Palavra desconhecida DIST"}};
  for (const auto& [palavra, chaves, esperado] : casos) {
    teste::Palavras p({palavra});
    OpcoesAvaliacao op;
    const std::string msg = teste::mensagemDe([&] { op = leOpcoes(p.n(), p.argv(), chaves); });
    EXPECT_EQ(msg == "(sem erro)" ? msg + " " + (op.arquivo.empty() ? std::string(1, op.eixox) : op.arquivo) : msg,
              esperado);
  }
}

// n matches on a 10 x n/10 grid of step 20 in image 1, each k2 exactly where
// `verdade` sends its k1.
formats::Casamentos casamentosSob(const cv::Matx33d& verdade, int n) {
  formats::Casamentos c;
  for (int i = 0; i < n; ++i) {
    const cv::Vec3d p(100.0 + 20.0 * (i % 10), 100.0 + 20.0 * (i / 10), 1.0);
    const cv::Vec3d q = verdade * p;
    c.keypoints1.emplace_back(static_cast<float>(p[0]), static_cast<float>(p[1]), 10.0f);
    c.keypoints2.emplace_back(static_cast<float>(q[0] / q[2]), static_cast<float>(q[1] / q[2]), 10.0f);
    c.matches.emplace_back(i, i, 0.0f);
  }
  return c;
}

TEST(AvisosTransformacao, SentidoInvertidoOuOutroPar) {
  const cv::Matx33d giro(0.8, -0.6, 300, 0.6, 0.8, -50, 0, 0, 1), longe(1, 0, 5000, 0, 1, 0, 0, 0, 1);
  const std::string invertida =
      "com h.txt lida da imagem 2 para a imagem 1 acertariam 40 de 40 casamentos, e nao 0: a matriz deve levar a "
      "imagem 1 para a imagem 2";
  const struct {
    const char* nome;
    cv::Matx33d verdade, arquivo;
    int n;
    std::vector<std::string> avisos;
  } casos[] = {
      {"certa", giro, giro, 40, {}},
      {"identidade", cv::Matx33d::eye(), cv::Matx33d::eye(), 40, {}},
      {"invertida", giro, giro.inv(), 40, {invertida}},
      {"invertidaComPoucos", giro, giro.inv(), 9, {}},
      {"outroPar", cv::Matx33d::eye(), longe, 40,
       {"h.txt leva 40 de 40 keypoints da imagem 1 para fora da regiao dos keypoints da imagem 2: e' a matriz deste "
        "par?"}},
      {"outroParComPoucos", cv::Matx33d::eye(), longe, 19, {}},
  };
  for (const auto& c : casos) {
    const formats::Casamentos m = casamentosSob(c.verdade, c.n);
    const cv::Mat H(c.arquivo);
    const std::vector<bool> certos = formats::julga(formats::inversa(H), m, 15.0);
    EXPECT_EQ(evaluation::avisosTransformacao(H, m, 15.0, certos, "h.txt"), c.avisos) << c.nome;
  }
}

TEST(AvisosTransformacao, CurvaROCNaJanelaDoGrafico) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    std::vector<evaluation::PontoROC> pontos;  // {tpr, fpr}
    bool naJanela;
  } casos[] = {
      {{{0.2, 0.1}, {0.4, 0.6}, {1.0, 1.0}}, false},
      {{{0.2, 0.1}, {0.5, 0.5}, {1.0, 1.0}}, true},  // a corner counts
      {{{0.9, 0.05}}, true},
      {{{nan, 0.1}, {nan, 0.2}}, false},
      {{{0.7, nan}}, false},
      {{}, false},
  };
  for (const auto& c : casos) EXPECT_EQ(evaluation::rocNaJanela(c.pontos), c.naJanela) << c.pontos.size();
}

// A match file's keypoints (seven digits) get the store's whole ones back
// when the text names one keypoint; two store keypoints that print the same
// and differ, or one not in the store, leave the read one as it is.
TEST(RestauraDaStore, SoQuandoOTextoNomeiaUm) {
  const cv::KeyPoint unico(123.456789f, 45.6789123f, 7.65432198f, 301.234567f, 0.0123456789f, 2, -1);
  // 10 plus 3 and 4 units in the last place: both print as 1.000000e+01.
  cv::KeyPoint gemeo1(10.f, 20.f, 3.f, 90.f, 0.5f, 1, -1);
  for (int i = 0; i < 3; ++i) gemeo1.pt.x = std::nextafter(gemeo1.pt.x, 11.f);
  cv::KeyPoint gemeo2 = gemeo1;
  gemeo2.pt.x = std::nextafter(gemeo1.pt.x, 11.f);
  const cv::KeyPoint fora(1.5f, 2.5f, 3.5f, 4.5f, 0.25f, 0, -1);
  const std::vector<cv::KeyPoint> store = {gemeo1, unico, gemeo2, unico};
  ASSERT_NE(formats::comoNoArquivo(unico).pt.x, unico.pt.x) << "the case needs a keypoint the text rounds";
  ASSERT_EQ(formats::comoNoArquivo(gemeo1).pt.x, 10.f);
  ASSERT_EQ(formats::comoNoArquivo(gemeo2).pt.x, 10.f);
  std::vector<cv::KeyPoint> lidos = {formats::comoNoArquivo(unico), formats::comoNoArquivo(gemeo2), fora};
  const std::vector<cv::KeyPoint> esperados = {unico, formats::comoNoArquivo(gemeo2), fora};
  evaluation::restauraDaStore(store, lidos);
  for (size_t i = 0; i < lidos.size(); ++i) {
    EXPECT_EQ(lidos[i].pt, esperados[i].pt) << i;
    EXPECT_EQ(lidos[i].size, esperados[i].size) << i;
    EXPECT_EQ(lidos[i].angle, esperados[i].angle) << i;
    EXPECT_EQ(lidos[i].response, esperados[i].response) << i;
  }
}

}  // namespace
