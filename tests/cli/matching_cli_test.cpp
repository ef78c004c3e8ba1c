// MatNN and MatRatio on the real binary: count lines and the match files
// written (messages are in mensagens_cli_test).
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
  formats::impDescritores(pasta / "vazio.xml", {}, cv::Mat());
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
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"d1.xml", "d2.xml", "m.txt", "vazio.xml"}));
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

}  // namespace
