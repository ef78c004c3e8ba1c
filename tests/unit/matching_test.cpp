#include "formats/stores.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "matching/vizinhos_l2.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <opencv2/core/hal/hal.hpp>

#include <cmath>
#include <functional>
#include <limits>

namespace {

using Listas = std::vector<std::vector<cv::DMatch>>;

// One 2-NN list per pair (d1, d2); query i's best neighbour is train row 10 + i.
Listas listas(const std::vector<std::pair<float, float>>& distancias) {
  Listas l;
  for (int i = 0; i < static_cast<int>(distancias.size()); ++i)
    l.push_back({cv::DMatch(i, 10 + i, distancias[i].first), cv::DMatch(i, 50 + i, distancias[i].second)});
  return l;
}

cv::Mat aleatorios(int linhas, int colunas, int semente) {
  cv::Mat m(linhas, colunas, CV_32F);
  cv::RNG(semente).fill(m, cv::RNG::UNIFORM, 0.0, 1.0);
  return m;
}

// Small integer values, as in SIFT descriptors, make equal distances common:
// the tie rule is then visible.
cv::Mat inteiros(int linhas, int colunas, int semente, int maximo) {
  cv::Mat m(linhas, colunas, CV_32F);
  cv::RNG(semente).fill(m, cv::RNG::UNIFORM, 0, maximo + 1);
  m.forEach<float>([](float& v, const int*) { v = std::floor(v); });
  return m;
}

struct CasoBF {
  const char* nome;
  cv::Mat query, train;
};

std::vector<CasoBF> casosBF() {
  cv::Mat repetidas = aleatorios(40, 128, 7);
  repetidas.row(3).copyTo(repetidas.row(30));  // the same distance at two train indices
  repetidas.row(5).copyTo(repetidas.row(6));
  return {
      {"Sift128", inteiros(203, 128, 1, 255), inteiros(301, 128, 2, 255)},
      {"EmpatesFrequentes", inteiros(150, 32, 3, 1), inteiros(97, 32, 4, 1)},
      {"LinhasRepetidas", aleatorios(33, 128, 8), repetidas},
      {"Surf64", aleatorios(61, 64, 5), aleatorios(250, 64, 6)},
      {"CaudaDe4", aleatorios(20, 100, 9), aleatorios(45, 100, 10)},
      {"MenosDe16", aleatorios(17, 3, 11), aleatorios(9, 3, 12)},
      {"UmPassoEMeio", aleatorios(17, 24, 13), aleatorios(9, 24, 14)},
      {"UmaLinhaDeTreino", aleatorios(5, 128, 15), aleatorios(1, 128, 16)},
      // Squares beyond FLT_MAX: OpenCV gives these queries no neighbour.
      {"DistanciasInfinitas", aleatorios(6, 16, 17) * 1e20, aleatorios(7, 16, 18) * -1e20},
  };
}

void esperaIguais(const Listas& nossas, const Listas& delas) {
  ASSERT_EQ(nossas.size(), delas.size());
  for (size_t i = 0; i < delas.size(); ++i) {
    ASSERT_EQ(nossas[i].size(), delas[i].size()) << i;
    for (size_t p = 0; p < delas[i].size(); ++p) {
      EXPECT_EQ(nossas[i][p].queryIdx, delas[i][p].queryIdx);
      EXPECT_EQ(nossas[i][p].trainIdx, delas[i][p].trainIdx) << i;
      EXPECT_EQ(nossas[i][p].imgIdx, delas[i][p].imgIdx);
      EXPECT_EQ(nossas[i][p].distance, delas[i][p].distance) << i;  // exact, not near
    }
  }
}

TEST(Busca, BruteForceIsOpenCVsMatcherBitForBit) {
  using matching::Vetores;
  for (const CasoBF& c : casosBF()) {
    SCOPED_TRACE(c.nome);
    Listas nn, delas2;
    cv::BFMatcher(cv::NORM_L2).knnMatch(c.query, c.train, nn, 1, cv::noArray(), true);
    cv::BFMatcher(cv::NORM_L2).knnMatch(c.query, c.train, delas2, 2);
    // What the tools call, on the widest vectors here, then every path.
    Listas nossas1;
    for (const cv::DMatch& m : casaNN(c.query, c.train, Busca::brute)) nossas1.push_back({m});
    esperaIguais(nossas1, nn);
    esperaIguais(casa2NN(c.query, c.train, Busca::brute), delas2);
    for (Vetores v : {Vetores::escalar, Vetores::avx2, Vetores::avx512}) {
      if (!matching::disponivel(v)) continue;
      SCOPED_TRACE(static_cast<int>(v));
      esperaIguais(matching::vizinhosL2(c.query, c.train, 2, v), delas2);
    }
  }
}

TEST(Busca, SquaredDistanceRoundsAsOpenCVs) {
  for (int n : {1, 15, 16, 17, 31, 32, 64, 100, 128, 129}) {
    const cv::Mat a = aleatorios(1, n, n) * 300, b = aleatorios(1, n, n + 1000) * 300;
    EXPECT_EQ(matching::somaQuadrados(a.ptr<float>(), b.ptr<float>(), n),
              cv::hal::normL2Sqr_(a.ptr<float>(), b.ptr<float>(), n))
        << n;
  }
}

TEST(Busca, FlannFindsNearNeighbours) {
  // Queries are permuted train rows plus tiny noise: the true neighbour is known.
  const cv::Mat t = aleatorios(500, 16, 3);
  cv::Mat q(t.rows, t.cols, CV_32F);
  for (int i = 0; i < t.rows; ++i) q.row(i) = t.row((i * 7) % t.rows) + 1e-4;
  const std::vector<cv::DMatch> nn = casaNN(q, t, Busca::flann);
  const Listas knn = casa2NN(q, t, Busca::flann);
  ASSERT_EQ(nn.size(), 500u);
  int certos = 0;
  for (int i = 0; i < q.rows; ++i) {
    certos += nn[i].trainIdx == (i * 7) % t.rows;
    ASSERT_EQ(knn[i].size(), 2u);
    EXPECT_LE(knn[i][0].distance, knn[i][1].distance);
  }
  EXPECT_GE(certos, 490);
}

// Ratios 0.5, 0.1, 1, 0.25, inf, inf, inf; d1 1, 0.5, 2, 4, 0, inf, 3. A second
// distance not above epsilon gives an infinite ratio, even over a zero first
// distance, and so do two overflowed distances.
const float kInf = std::numeric_limits<float>::infinity();
const Listas kSete = listas({{1, 2}, {0.5f, 5}, {2, 2}, {4, 16}, {0, 0}, {kInf, kInf}, {3, 1e-7f}});

TEST(Ratio, ThresholdIsStrictAndOrdersByKey) {
  struct Caso {
    char ordem;
    double limiar;
    std::vector<int> consultas;
    std::vector<float> coluna1;
  } casos[] = {
      {'r', 0.8, {1, 3, 0}, {0.1f, 0.25f, 0.5f}},
      {'r', 0.5, {1, 3}, {0.1f, 0.25f}},
      {'r', 0.5000001, {1, 3, 0}, {0.1f, 0.25f, 0.5f}},
      {'r', 0.0, {}, {}},
      {'r', 1.0, {1, 3, 0}, {0.1f, 0.25f, 0.5f}},
      {'d', 0.8, {1, 0, 3}, {0.5f, 1, 4}},
  };
  for (const Caso& c : casos) {
    std::vector<cv::DMatch> saida{cv::DMatch()};
    ratioTest(kSete, saida, c.ordem, c.limiar);
    std::vector<int> consultas;
    std::vector<float> coluna1;
    for (const cv::DMatch& m : saida) consultas.push_back(m.queryIdx), coluna1.push_back(m.distance);
    EXPECT_EQ(consultas, c.consultas) << c.ordem << " " << c.limiar;
    EXPECT_EQ(coluna1, c.coluna1) << c.ordem << " " << c.limiar;
  }
}

TEST(Ratio, AcceptanceRateRoundsHalfToEven) {
  struct Caso {
    size_t n;
    double taxa;
    size_t mantidos;
  } casos[] = {{5, 0.5, 2}, {7, 0.5, 4}, {5, 0.0, 0}, {5, 1.0, 5}, {3, 0.5, 2}, {1, 0.5, 0}, {0, 0.5, 0}};
  for (const Caso& c : casos) {
    Listas grande(kSete.begin(), kSete.begin() + std::min<size_t>(c.n, 5));
    while (grande.size() < c.n) grande.push_back(kSete[0]);
    std::vector<cv::DMatch> saida;
    testing::internal::CaptureStdout();
    acRateTest(grande, saida, 'r', c.taxa);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Vou apagar " + std::to_string(c.n - c.mantidos) + " casamentos\n");
    EXPECT_EQ(saida.size(), c.mantidos) << c.n << " " << c.taxa;
  }
  // No threshold: everything kept in key order, infinite ratios last.
  const float inf = static_cast<float>(tvm::infinito);
  const std::pair<char, std::vector<float>> ordens[] = {{'r', {0.1f, 0.25f, 0.5f, 1, inf, inf, inf}},
                                                         {'d', {0, 0.5f, 1, 2, 3, 4, kInf}}};
  for (const auto& o : ordens) {
    std::vector<cv::DMatch> saida;
    testing::internal::CaptureStdout();
    acRateTest(kSete, saida, o.first, 1.0);
    testing::internal::GetCapturedStdout();
    std::vector<float> coluna1;
    for (const cv::DMatch& m : saida) coluna1.push_back(m.distance);
    EXPECT_EQ(coluna1, o.second) << o.first;
  }
}

TEST(Ratio, Guards) {
  std::vector<cv::DMatch> s;
  OpcoesRatio modoEstranho;
  modoEstranho.modo = static_cast<ModoRatio>(7);
  const std::pair<std::function<void()>, std::string> casos[] = {
      {[&] { ratioTest(listas({{1, 2}}), s, 'x', 0.8); }, "Erro: ordem invalida"},
      {[&] { acRateTest(Listas{}, s, 'x', 0.5); }, "Erro: ordem invalida"},
      {[&] { acRateTest(kSete, s, 'r', 1.5); }, "Erro acRate invalido"},
      {[&] { acRateTest(kSete, s, 'r', -0.5); }, "Erro acRate invalido"},
      {[&] { selecionaRatio(kSete, modoEstranho); }, "Erro: modo invalido"},
      {[&] { casaNN(cv::Mat(), cv::Mat(), static_cast<Busca>(9)); }, "Erro modoMatch desconhecido"},
      {[&] { casa2NN(cv::Mat(), cv::Mat(), static_cast<Busca>(9)); }, "Erro: modoMatch invalido"},
  };
  for (const auto& c : casos) EXPECT_EQ(teste::mensagemDe(c.first), c.second);
}

using teste::Palavras;

TEST(Opcoes, RatioWordsLastWins) {
  struct Caso {
    std::vector<std::string> palavras;
    double ratio, acRate;
    ModoRatio modo;
    char ordem;
    Busca busca;
  } casos[] = {
      {{}, 0.8, 0.5, ModoRatio::ratio, 'r', Busca::brute},
      {{"ratio=0.5", "acrate=0.3"}, 0.5, 0.3, ModoRatio::acRate, 'r', Busca::brute},
      {{"acrate=0.3", "ratio=0"}, 0.0, 0.3, ModoRatio::ratio, 'r', Busca::brute},
      {{"acrate=1", "ordem=dist", "flann"}, 0.8, 1.0, ModoRatio::acRate, 'd', Busca::flann},
      {{"ordem=d", "ordem=ratio", "flann", "brute"}, 0.8, 0.5, ModoRatio::ratio, 'r', Busca::brute},
  };
  for (Caso& c : casos) {
    Palavras p(c.palavras);
    tvm::ISTR in = p.istr();
    const OpcoesRatio o = leOpcoesRatio(in);
    EXPECT_EQ(o.ratio, c.ratio);
    EXPECT_EQ(o.acRate, c.acRate);
    EXPECT_EQ(o.modo, c.modo);
    EXPECT_EQ(o.ordem, c.ordem);
    EXPECT_EQ(o.busca, c.busca);
  }
  Palavras nn({"flann", "brute", "flann"});
  tvm::ISTR in = nn.istr();
  EXPECT_EQ(leBuscaNN(in), Busca::flann);
}

TEST(Opcoes, RatioWordErrors) {
  const std::pair<std::vector<std::string>, std::string> casos[] = {
      {{"ratio=1.5"}, "Erro: ratio fora do intervalo"},
      {{"ratio=-0.1"}, "Erro: ratio fora do intervalo"},
      {{"acrate=2"}, "Erro: acRate fora do intervalo"},
      {{"ordem="}, "Erro: ordem=NULO"},
      {{"ordem=x"}, "Erro: ordem deve ser r ou d"},
      {{"Brute"}, "Erro: Palavra desconhecida Brute"},
  };
  for (auto c : casos) {
    Palavras p(c.first);
    tvm::ISTR in = p.istr();
    EXPECT_EQ(teste::mensagemDe([&] { leOpcoesRatio(in); }), c.second);
  }
}

TEST(Stores, PairChecks) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> dois(2, cv::KeyPoint(1, 2, 3));
  formats::impDescritores(pasta / "f32.xml", dois, aleatorios(2, 8, 6));
  formats::impDescritores(pasta / "largo.xml", dois, aleatorios(2, 9, 7));
  formats::impDescritores(pasta / "f64.xml", dois, cv::Mat::zeros(2, 8, CV_64F));
  formats::impDescritores(pasta / "u8.xml", dois, cv::Mat::zeros(2, 8, CV_8U));
  formats::impDescritores(pasta / "tres.xml", std::vector<cv::KeyPoint>(3), aleatorios(2, 8, 8));
  formats::impDescritores(pasta / "vazio.xml", {}, cv::Mat());
  cv::Mat nan = aleatorios(2, 8, 9);
  nan.at<float>(1, 3) = std::numeric_limits<float>::quiet_NaN();
  formats::impDescritores(pasta / "nan.xml", dois, nan);
  const std::pair<std::string, std::string> casos[] = {
      {"f32.xml", ""},
      {"vazio.xml", ""},
      {"largo.xml", "Erro: descritores de tamanhos diferentes em " + pasta / "f32.xml (8) e " + pasta / "largo.xml (9)"},
      {"f64.xml", "Erro: descritores nao sao float de 32 bits em " + pasta / "f64.xml"},
      {"u8.xml", "Erro: descritores nao sao float de 32 bits em " + pasta / "u8.xml"},
      {"nan.xml", "Erro: descritores com valor nao finito em " + pasta / "nan.xml"},
      {"tres.xml", "Erro: numero de keypoints != descritores"},
      {"falta.xml", "Erro abertura arquivo " + pasta / "falta.xml"},
  };
  for (const auto& c : casos) {
    const std::string m = teste::mensagemDe([&] { leParDescritores(pasta / "f32.xml", pasta / c.first); });
    EXPECT_EQ(m, c.second.empty() ? "(sem erro)" : c.second) << c.first;
  }
}

}  // namespace
