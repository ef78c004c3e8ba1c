#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

namespace {

// Query i sits at 100 i on the first axis; image 2 holds, for each query, one
// point a[i] above and one b[i] below it, so the best distance is a[i], the
// second b[i] and the ratios 0.25, 0.5, 0.75, 1 (in query order 2, 0, 3, 1).
// Query 1 is equidistant from its two points, so either may be its match.
const float kA[] = {1, 2, 1, 3}, kB[] = {2, 2, 4, 4};

void criaStores(const teste::PastaTemp& pasta) {
  std::vector<cv::KeyPoint> k1, k2;
  cv::Mat d1 = cv::Mat::zeros(4, 8, CV_32F), d2 = cv::Mat::zeros(8, 8, CV_32F);
  for (int i = 0; i < 4; ++i) {
    k1.emplace_back(static_cast<float>(i), 0.0f, 1.0f);
    d1.at<float>(i, 0) = 100.0f * i;
    for (int lado = 0; lado < 2; ++lado) {
      const int j = 2 * i + lado;
      k2.emplace_back(static_cast<float>(j), 1.0f, 1.0f);
      d2.at<float>(j, 0) = 100.0f * i + (lado == 0 ? kA[i] : -kB[i]);
    }
  }
  formats::impDescritores(pasta / "d1.xml", k1, d1);
  formats::impDescritores(pasta / "d2.xml", k2, d2);
  formats::impDescritores(pasta / "um.xml", {k2[0]}, d2.row(0));
  formats::impDescritores(pasta / "vazio.xml", {}, cv::Mat());
  formats::impDescritores(pasta / "torto.xml", k2, d1);
}

struct Caso {
  std::string nome;
  std::vector<std::string> args;
  std::string out;  // without the time line
  std::vector<std::pair<float, int>> linhas;  // column 1 and the query index (k1.pt.x)
};

class MatchingCli : public testing::TestWithParam<Caso> {};

TEST_P(MatchingCli, WritesBestFirst) {
  teste::PastaTemp pasta;
  criaStores(pasta);
  const Caso& c = GetParam();
  const teste::Execucao e = teste::roda(c.args, pasta.caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(e.err, "");
  EXPECT_EQ(teste::semTempo(e.out), c.out);
  std::vector<cv::DMatch> m;
  std::vector<cv::KeyPoint> k1, k2;
  formats::leMatch(m, k1, k2, pasta / "m.txt");
  ASSERT_EQ(m.size(), c.linhas.size());
  for (size_t i = 0; i < m.size(); ++i) {
    EXPECT_EQ(m[i].distance, c.linhas[i].first) << i;
    const int q = c.linhas[i].second;
    EXPECT_EQ(k1[i].pt.x, q);
    if (q != 1) {
      EXPECT_EQ(k2[i].pt.x, 2 * q) << "the nearest neighbour is the point above";
    }
  }
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"d1.xml", "d2.xml", "m.txt", "torto.xml", "um.xml", "vazio.xml"}));
}

const std::string kInicio = "Matches_iniciais=4 Matches_finals=";
INSTANTIATE_TEST_SUITE_P(
    Casos, MatchingCli,
    testing::Values(
        Caso{"nn", {"MatNN", "d1.xml", "d2.xml", "m.txt"}, "", {{1, 0}, {1, 2}, {2, 1}, {3, 3}}},
        Caso{"nnFlannThenBrute", {"matnn", "d1.xml", "d2.xml", "m.txt", "flann", "brute"}, "", {{1, 0}, {1, 2}, {2, 1}, {3, 3}}},
        Caso{"nnFlann", {"MatNN", "d1.xml", "d2.xml", "m.txt", "flann"}, "", {{1, 0}, {1, 2}, {2, 1}, {3, 3}}},
        Caso{"ratioDefault", {"MatRatio", "d1.xml", "d2.xml", "m.txt"}, kInicio + "3 taxa_aceite=75.00%\n", {{0.25f, 2}, {0.5f, 0}, {0.75f, 3}}},
        Caso{"ratioStrict", {"MatRatio", "d1.xml", "d2.xml", "m.txt", "ratio=0.75", "flann"}, kInicio + "2 taxa_aceite=50.00%\n", {{0.25f, 2}, {0.5f, 0}}},
        Caso{"ratioDist", {"MatRatio", "d1.xml", "d2.xml", "m.txt", "ordem=dist"}, kInicio + "3 taxa_aceite=75.00%\n", {{1, 0}, {1, 2}, {3, 3}}},
        Caso{"acrateHalf", {"MatRatio", "d1.xml", "d2.xml", "m.txt", "acrate=0.5"}, "Vou apagar 2 casamentos\n" + kInicio + "2 taxa_aceite=50.00%\n", {{0.25f, 2}, {0.5f, 0}}},
        Caso{"acrateAll", {"MatRatio", "d1.xml", "d2.xml", "m.txt", "ratio=0.1", "acrate=1", "ordem=r"}, "Vou apagar 0 casamentos\n" + kInicio + "4 taxa_aceite=100.00%\n", {{0.25f, 2}, {0.5f, 0}, {0.75f, 3}, {1, 1}}},
        Caso{"acrateNone", {"MatRatio", "d1.xml", "d2.xml", "m.txt", "acrate=0"}, "Vou apagar 4 casamentos\n" + kInicio + "0 taxa_aceite= 0.00%\n", {}},
        Caso{"emptyQueryNN", {"MatNN", "vazio.xml", "d2.xml", "m.txt"}, "", {}},
        Caso{"emptyQueryRatio", {"MatRatio", "vazio.xml", "d2.xml", "m.txt", "flann"}, "Matches_iniciais=0 Matches_finals=0 taxa_aceite= 0.00%\n", {}}),
    [](const testing::TestParamInfo<Caso>& i) { return i.param.nome; });

TEST(MatchingCliFalhas, StopWithMessageAndNoOutput) {
  const std::string usoNN =
      "MatNN: Acha casamentos do des1 para des2 usando 1-NN\nMatNN des1.xml des2.xml match.txt [ brute | flann ]\n"
      "  match.txt estara ordenada pela distancia. menor=melhor\n  Default=brute\n";
  const std::string usoRatio =
      "MatRatio: Acha casamentos de des1 para des2 onde 1st/2nd>ratio\n"
      "MatRatio des1.xml des2.xml match.txt [ratio=val | acrate=val | ordem=r ou d | brute | flann ]\n"
      "  ratio: distancia_melhor/distancia_segundo_melhor. Limiariza pelo ratio e ordena por r/d\n"
      "  acrate: acceptance rate entre 0 e 1. Ordena por r/d e apaga.\n"
      "  ordem=r (ratio) ou d (distance).\n  Default: ratio=0.8 ordem=r brute\n";
  const struct {
    std::vector<std::string> args;
    std::string out, err;
  } casos[] = {
      {{"MatNN", "d1.xml", "d2.xml"}, usoNN, "Erro: Numero de argumentos invalido"},
      {{"MatRatio"}, usoRatio, "Erro: Numero de argumentos invalido"},
      {{"MatNN", "d1.xml", "falta.xml", "m.txt"}, "", "Erro abertura arquivo falta.xml"},
      {{"MatNN", "d1.xml", "d2.xml", "m.txt", "Flann"}, "", "Erro: Palavra desconhecida Flann"},
      {{"MatNN", "d1.xml", "vazio.xml", "m.txt"}, "", "Erro: nenhum descritor para casar em vazio.xml"},
      {{"MatRatio", "d1.xml", "torto.xml", "m.txt"}, "", "Erro: numero de keypoints != descritores"},
      {{"MatRatio", "d1.xml", "um.xml", "m.txt", "flann"}, "", "Erro acRateTest inesperado"},
      {{"MatRatio", "d1.xml", "vazio.xml", "m.txt", "acrate=0.5", "flann"}, "", "Erro acRateTest inesperado"},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    criaStores(pasta);
    const teste::Execucao e = teste::roda(c.args, pasta.caminho());
    EXPECT_EQ(e.status, 1) << c.err;
    EXPECT_EQ(e.out, c.out);
    // OpenCV may log its own line about a file it cannot open before ours.
    const std::string fim = c.err + "\n";
    EXPECT_TRUE(e.err.size() >= fim.size() && e.err.compare(e.err.size() - fim.size(), fim.size(), fim) == 0) << e.err;
    EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"d1.xml", "d2.xml", "torto.xml", "um.xml", "vazio.xml"}));
  }
}

}  // namespace
