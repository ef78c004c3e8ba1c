// The matching and judging tools on the real binary: the match files, rates and
// curves they write (curves and ROC file are unit-tested; here options reach them).
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <string>
#include <vector>

namespace {

using teste::rodaBem;

// Query i sits at 100 i on the first axis; image 2 holds, for each query, one
// point a[i] above and one b[i] below it, so the best distance is a[i], the
// second b[i] and the ratios 0.25, 0.5, 0.75, 1 (in query order 2, 0, 3, 1).
// Query 1 is equidistant from its two points, so either may be its match.
const float kA[] = {1, 2, 1, 3}, kB[] = {2, 2, 4, 4};

void criaStores(const teste::PastaTemp& pasta) {
  std::vector<cv::KeyPoint> k1, k2;
  cv::Mat d1 = cv::Mat::zeros(4, 8, CV_32F), d2 = cv::Mat::zeros(8, 8, CV_32F);
  for (int j = 0; j < 8; ++j) {
    const int i = j / 2;
    if (j % 2 == 0) k1.emplace_back(static_cast<float>(i), 0.0f, 1.0f);
    d1.at<float>(i, 0) = 100.0f * i;
    k2.emplace_back(static_cast<float>(j), 1.0f, 1.0f);
    d2.at<float>(j, 0) = 100.0f * i + (j % 2 == 0 ? kA[i] : -kB[i]);
  }
  formats::impDescritores(pasta / "d1.xml", k1, d1);
  formats::impDescritores(pasta / "d2.xml", k2, d2);
  formats::impDescritores(pasta / "vazio.xml", {}, cv::Mat());
}

TEST(MatNNEMatRatio, WriteBestFirst) {
  const std::string kInicio = "Matches_iniciais=4 Matches_finals=";
  const struct {
    std::vector<std::string> args;
    std::string out;                            // without the time line
    std::vector<std::pair<float, int>> linhas;  // column 1 and the query index (k1.pt.x)
  } casos[] = {
      {{"MatNN", "d1.xml", "d2.xml", "m.txt"}, "", {{1, 0}, {1, 2}, {2, 1}, {3, 3}}},
      {{"matnn", "d1.xml", "d2.xml", "m.txt", "flann", "brute"}, "", {{1, 0}, {1, 2}, {2, 1}, {3, 3}}},
      {{"MatNN", "d1.xml", "d2.xml", "m.txt", "flann"}, "", {{1, 0}, {1, 2}, {2, 1}, {3, 3}}},
      {{"MatRatio", "d1.xml", "d2.xml", "m.txt"}, kInicio + "3 taxa_aceite=75.00%\n", {{0.25f, 2}, {0.5f, 0}, {0.75f, 3}}},
      {{"MatRatio", "d1.xml", "d2.xml", "m.txt", "ratio=0.75", "flann"}, kInicio + "2 taxa_aceite=50.00%\n", {{0.25f, 2}, {0.5f, 0}}},
      {{"MatRatio", "d1.xml", "d2.xml", "m.txt", "ordem=dist"}, kInicio + "3 taxa_aceite=75.00%\n", {{1, 0}, {1, 2}, {3, 3}}},
      {{"MatRatio", "d1.xml", "d2.xml", "m.txt", "acrate=0.5"}, "Vou apagar 2 casamentos\n" + kInicio + "2 taxa_aceite=50.00%\n", {{0.25f, 2}, {0.5f, 0}}},
      {{"MatRatio", "d1.xml", "d2.xml", "m.txt", "ratio=0.1", "acrate=1", "ordem=r"}, "Vou apagar 0 casamentos\n" + kInicio + "4 taxa_aceite=100.00%\n", {{0.25f, 2}, {0.5f, 0}, {0.75f, 3}, {1, 1}}},
      {{"MatRatio", "d1.xml", "d2.xml", "m.txt", "acrate=0"}, "Vou apagar 4 casamentos\n" + kInicio + "0 taxa_aceite= 0.00%\n", {}},
      {{"MatNN", "vazio.xml", "d2.xml", "m.txt"}, "", {}},
      {{"MatRatio", "vazio.xml", "d2.xml", "m.txt", "flann"}, "Matches_iniciais=0 Matches_finals=0 taxa_aceite= 0.00%\n", {}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    teste::PastaTemp pasta;
    criaStores(pasta);
    EXPECT_EQ(teste::rodaBem(c.args, pasta.caminho()), c.out);
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    formats::leMatch(m, k1, k2, pasta / "m.txt");
    ASSERT_EQ(m.size(), c.linhas.size());
    for (size_t i = 0; i < m.size(); ++i) {
      const int q = c.linhas[i].second;
      EXPECT_EQ(m[i].distance, c.linhas[i].first) << i;
      EXPECT_EQ(k1[i].pt.x, q);
      EXPECT_TRUE(q == 1 || k2[i].pt.x == 2 * q) << "the nearest neighbour is the point above";
    }
    EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"d1.xml", "d2.xml", "m.txt", "vazio.xml"}));
  }
}

// Match file m.txt (see escreveCasamentos) and identity transform h.txt.
void prepara(const teste::PastaTemp& pasta, const std::vector<double>& desvios) {
  teste::escreveCasamentos(pasta / "m.txt", desvios);
  teste::salvaMat33(cv::Matx33d::eye(), pasta / "h.txt");
}

size_t pixels(const std::string& arquivo, cv::Vec3b cor) {
  return teste::pixelsDaCor(cv::imread(arquivo, cv::IMREAD_COLOR), cor).size();
}

TEST(FiltMat, TaxasEArquivoFiltrado) {
  const struct {
    std::vector<double> desvios;
    const char* dist;
    std::string linha;
  } casos[] = {
      {{40, 3, 3, 40}, "15", "Total=4 erros=2(50.0%) acertos=2(50.0%)\n"},
      {{0, 3, 15, 15.5}, "15", "Total=4 erros=1(25.0%) acertos=3(75.0%)\n"},  // exactly 15 away is correct
      {{0, 3, 0, 40, 1}, "0", "Total=5 erros=3(60.0%) acertos=2(40.0%)\n"},
      {{0, 3}, "-1", "Total=2 erros=2(100.0%) acertos=0( 0.0%)\n"},
      {{1, 40, 50}, "15", "Total=3 erros=2(66.7%) acertos=1(33.3%)\n"},  // a rate in whole numbers would show
      // 0/0 prints as the C library prints a NaN; on x86-64 its sign bit is set.
      {{}, "15", "Total=0 erros=0( nan%) acertos=0( nan%)\n"},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    prepara(pasta, c.desvios);
    std::string linha = rodaBem({"FiltMat", "m.txt", "h.txt", c.dist, "f.txt"}, pasta.caminho());
    for (size_t p; (p = linha.find("-nan")) != std::string::npos;) linha[p] = ' ';
    EXPECT_EQ(linha, c.linha);
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    formats::leMatch(m, k1, k2, pasta / "f.txt");
    const std::string certos = std::to_string(m.size());
    EXPECT_NE(c.linha.find("acertos=" + certos + "("), std::string::npos) << certos;
    // Kept in their input order, with their distance column unchanged; filtering again (default dist 15,
    // no output file) finds nothing wrong and writes nothing.
    for (size_t i = 1; i < m.size(); ++i) EXPECT_LT(m[i - 1].distance, m[i].distance);
    EXPECT_EQ(rodaBem({"filtmat", "f.txt", "h.txt"}, pasta.caminho()).rfind("Total=" + certos + " erros=0(", 0), 0u);
    EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"f.txt", "h.txt", "m.txt"}));
  }
}

TEST(MatROC, ArquivoCorEDist) {
  teste::PastaTemp pasta;
  prepara(pasta, {40, 3, 3, 40});
  EXPECT_EQ(rodaBem({"MatROC", "m.txt", "h.txt", "r.png", "arquivo=roc.txt"}, pasta.caminho()), "");
  EXPECT_EQ(teste::leTexto(pasta / "roc.txt"),
            "  4   2\n//pos   x   y\n//pos fpr tpr\n  0  50   0\n  1  50  50\n  1  50 100\n  0 100 100\n");
  EXPECT_EQ(cv::imread(pasta / "r.png").size(), cv::Size(401, 401));
  // With dist 50 every match is correct: no wrong one, nothing in the area.
  teste::rodaComAvisos({"matroc", "m.txt", "h.txt", "r.png", "cor=255,0,0", "dist=50"}, pasta.caminho(),
                       {"a curva ROC nao passa pela janela do grafico (fpr de 0 a 0.5, tpr de 0.5 a 1): r.png mostra "
                        "so a grade"});
  EXPECT_EQ(pixels(pasta / "r.png", {255, 0, 0}), 0u);
  rodaBem({"matroc", "m.txt", "h.txt", "r.png", "cor=255,0,0", "dist=15"}, pasta.caminho());
  EXPECT_EQ(pixels(pasta / "r.png", {255, 0, 0}), 401u);
  EXPECT_EQ(pixels(pasta / "r.png", {0, 0, 255}), 0u);
}

// 30 matches, every one right under the identity, judged against a shift of
// 40 pixels written in the wrong direction and against a file for another
// pair: the figures printed stay those of the file as given.
TEST(FiltMat, AvisaQuandoAMatrizNaoEDestePar) {
  const struct {
    cv::Matx33d verdade, arquivo;
    std::string linha, aviso;
  } casos[] = {
      {cv::Matx33d(1, 0, 40, 0, 1, 0, 0, 0, 1), cv::Matx33d(1, 0, -40, 0, 1, 0, 0, 0, 1),
       "Total=30 erros=30(100.0%) acertos=0( 0.0%)\n",
       "com h.txt lida da imagem 2 para a imagem 1 acertariam 30 de 30 casamentos, e nao 0: a matriz deve levar a "
       "imagem 1 para a imagem 2"},
      {cv::Matx33d::eye(), cv::Matx33d(1, 0, 0, 0, 1, 900, 0, 0, 1), "Total=30 erros=30(100.0%) acertos=0( 0.0%)\n",
       "h.txt leva 30 de 30 keypoints da imagem 1 para fora da regiao dos keypoints da imagem 2: e' a matriz deste "
       "par?"},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    for (int i = 0; i < 30; ++i) {
      k1.emplace_back(20.0f + 10.0f * i, 30.0f, 8.0f);
      const cv::Vec3d q = c.verdade * cv::Vec3d(k1.back().pt.x, k1.back().pt.y, 1.0);
      k2.emplace_back(static_cast<float>(q[0]), static_cast<float>(q[1]), 8.0f);
      m.emplace_back(i, i, static_cast<float>(i));
    }
    formats::impMatch(m, k1, k2, pasta / "m.txt");
    teste::salvaMat33(c.arquivo, pasta / "h.txt");
    EXPECT_EQ(teste::rodaComAvisos({"FiltMat", "m.txt", "h.txt"}, pasta.caminho(), {c.aviso}), c.linha);
  }
}

TEST(Matlab, UmaLinhaDeFlags) {
  teste::PastaTemp pasta;
  prepara(pasta, {3, 40, 15});
  EXPECT_EQ(rodaBem({"Matlab", "m.txt", "h.txt", "o.mat"}, pasta.caminho()), "");
  EXPECT_EQ(teste::leTexto(pasta / "o.mat"), "1 0 1 \n");
  rodaBem({"Matlab", "m.txt", "h.txt", "o.mat", "dist=40"}, pasta.caminho());
  EXPECT_EQ(teste::leTexto(pasta / "o.mat"), "1 1 1 \n");
}

TEST(SobrROC, PixelsNaoBrancosPorCimaNaOrdem) {
  teste::PastaTemp pasta;
  cv::Mat_<cv::Vec3b> a(6, 5, cv::Vec3b(255, 255, 255)), b = a.clone(), c = a.clone();
  a(0, 0) = a(1, 1) = cv::Vec3b(0, 0, 255);
  b(1, 1) = cv::Vec3b(255, 255, 254);  // not pure white: copied
  b(2, 2) = cv::Vec3b(255, 0, 0);
  c(2, 2) = cv::Vec3b(0, 255, 0);
  for (int i = 0; i < 3; ++i)
    teste::salva(std::vector<cv::Mat>{a, b, c}[i], pasta / ("r" + std::to_string(i + 1) + ".png"));
  EXPECT_EQ(rodaBem({"SobrROC", "s.png", "r1.png", "r[23].png"}, pasta.caminho()), "");
  const cv::Mat_<cv::Vec3b> s = cv::imread(pasta / "s.png");
  ASSERT_EQ(s.size(), a.size());
  EXPECT_EQ(s(0, 0), cv::Vec3b(0, 0, 255));  // later white pixels leave it
  EXPECT_EQ(s(1, 1), cv::Vec3b(255, 255, 254));
  EXPECT_EQ(s(2, 2), cv::Vec3b(0, 255, 0));
  EXPECT_EQ(pixels(pasta / "s.png", {255, 255, 255}), 27u);
  rodaBem({"SobrROC", "u.png", "r2.png"}, pasta.caminho());
  EXPECT_EQ(cv::norm(cv::imread(pasta / "u.png"), b, cv::NORM_INF), 0.0);  // one input comes out unchanged
}

}  // namespace
