#include "algoritmos/tabela.hpp"
#include "formats/stores.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "matching/vizinhos_l2.hpp"
#include "support/numeros.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <opencv2/core/hal/hal.hpp>

#include <cmath>
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

// Uniform in [0, 1), or integers 0 ... ate: small integer values, as in SIFT
// descriptors, make equal distances common and the tie rule visible.
cv::Mat aleatorios(int linhas, int colunas, int semente, int ate = 0) {
  cv::Mat m(linhas, colunas, CV_32F);
  cv::RNG(semente).fill(m, cv::RNG::UNIFORM, 0.0, ate > 0 ? ate + 1.0 : 1.0);
  if (ate > 0) m.forEach<float>([](float& v, const int*) { v = std::floor(v); });
  return m;
}

void esperaIguais(const Listas& nossas, const Listas& delas) {
  ASSERT_EQ(nossas.size(), delas.size());
  for (size_t i = 0; i < delas.size(); ++i) EXPECT_TRUE(teste::mesmosBits(nossas[i], delas[i])) << "consulta " << i;
}

TEST(Busca, BruteForceIsOpenCVsMatcherBitForBit) {
  cv::Mat repetidas = aleatorios(40, 128, 7);
  // Train rows a few units in the last place apart: distances nearly equal.
  cv::Mat quase(50, 64, CV_32F);
  for (int i = 0; i < quase.rows; ++i) {
    aleatorios(1, 64, 40).copyTo(quase.row(i));
    quase.at<float>(i, i % 64) = std::nextafter(quase.at<float>(i, i % 64), 2.f * (i % 3));
  }
  cv::Mat zeros = aleatorios(30, 128, 41, 255);
  zeros.rowRange(0, 5).setTo(0);
  repetidas.row(3).copyTo(repetidas.row(30));  // the same distance at two train indices
  repetidas.row(5).copyTo(repetidas.row(6));
  // Squares beyond FLT_MAX (the last case): OpenCV gives those queries no neighbour.
  const std::tuple<const char*, cv::Mat, cv::Mat> casos[] = {
      {"Sift128", aleatorios(203, 128, 1, 255), aleatorios(301, 128, 2, 255)},
      {"EmpatesFrequentes", aleatorios(150, 32, 3, 1), aleatorios(97, 32, 4, 1)},
      {"LinhasRepetidas", aleatorios(33, 128, 8), repetidas}, {"Surf64", aleatorios(61, 64, 5), aleatorios(250, 64, 6)},
      {"CaudaDe4", aleatorios(20, 100, 9), aleatorios(45, 100, 10)},
      {"MenosDe16", aleatorios(17, 3, 11), aleatorios(9, 3, 12)},
      {"UmPassoEMeio", aleatorios(17, 24, 13), aleatorios(9, 24, 14)},
      {"UmaLinhaDeTreino", aleatorios(5, 128, 15), aleatorios(1, 128, 16)},
      {"DistanciasInfinitas", aleatorios(6, 16, 17) * 1e20, aleatorios(7, 16, 18) * -1e20},
      // The product path's own boundaries: blocks of 1024 train rows, passes
      // over 256 rows, tasks of 96 queries, tiles of 12 by 32; whole numbers
      // too wide for exact sums; nearly equal distances; zero rows; large
      // and negative values.
      {"SiftEmVariosBlocos", aleatorios(300, 128, 19, 255), aleatorios(2100, 128, 20, 255)},
      {"InteirosLargos", aleatorios(70, 128, 21, 4000), aleatorios(300, 128, 22, 4000)},
      {"QuaseIguais", aleatorios(9, 64, 40), quase},
      {"Zeros", zeros.rowRange(0, 12), zeros},
      {"Grandes", aleatorios(20, 24, 23) * 1e12, aleatorios(40, 24, 24) * 1e12},
      {"Negativos", aleatorios(33, 17, 25) - 0.5, aleatorios(65, 17, 26) - 0.5}};
  for (const auto& [nome, query, train] : casos) {
    SCOPED_TRACE(nome);
    Listas nn, delas2, nossas1;
    cv::BFMatcher(cv::NORM_L2).knnMatch(query, train, nn, 1, cv::noArray(), true);
    cv::BFMatcher(cv::NORM_L2).knnMatch(query, train, delas2, 2);
    // What the tools call, on the widest vectors here, then every path.
    for (const cv::DMatch& m : casaNN(query, train, Busca::brute)) nossas1.push_back({m});
    esperaIguais(nossas1, nn);
    esperaIguais(casa2NN(query, train, Busca::brute), delas2);
    for (auto v : {matching::Vetores::escalar, matching::Vetores::avx2, matching::Vetores::avx512,
                   matching::Vetores::produto}) {
      if (!matching::disponivel(v)) continue;
      SCOPED_TRACE(static_cast<int>(v));
      esperaIguais(matching::vizinhosL2(query, train, 2, v), delas2);
      Listas nossas1v;
      for (const auto& l : matching::vizinhosL2(query, train, 1, v))
        if (!l.empty()) nossas1v.push_back(l);
      esperaIguais(nossas1v, nn);
    }
  }
  for (int n : {1, 15, 16, 17, 31, 32, 64, 100, 128, 129}) {
    const cv::Mat a = aleatorios(1, n, n) * 300, b = aleatorios(1, n, n + 1000) * 300;
    EXPECT_EQ(matching::somaQuadrados(a.ptr<float>(), b.ptr<float>(), n),
              cv::hal::normL2Sqr_(a.ptr<float>(), b.ptr<float>(), n))
        << n;
  }
}

// Ratios 0.5, 0.1, 1, 0.25, inf, inf, inf; d1 1, 0.5, 2, 4, 0, inf, 3. A second
// distance not above epsilon gives an infinite ratio, even over a zero first
// distance, and so do two overflowed distances.
const float kInf = std::numeric_limits<float>::infinity();
const Listas kSete = listas({{1, 2}, {0.5f, 5}, {2, 2}, {4, 16}, {0, 0}, {kInf, kInf}, {3, 1e-7f}});

std::pair<std::vector<int>, std::vector<float>> consultasEDistancias(const std::vector<cv::DMatch>& saida) {
  std::pair<std::vector<int>, std::vector<float>> r;
  for (const cv::DMatch& m : saida) r.first.push_back(m.queryIdx), r.second.push_back(m.distance);
  return r;
}

TEST(Ratio, ThresholdIsStrictAndOrdersByKey) {
  using Saida = std::pair<std::vector<int>, std::vector<float>>;  // queries, first column
  const Saida tres = {{1, 3, 0}, {0.1f, 0.25f, 0.5f}};
  const std::tuple<char, double, Saida> casos[] = {{'r', 0.8, tres},      {'r', 0.5, {{1, 3}, {0.1f, 0.25f}}},
                                                   {'r', 0.5000001, tres}, {'r', 0.0, {}},
                                                   {'r', 1.0, tres},       {'d', 0.8, {{1, 0, 3}, {0.5f, 1, 4}}}};
  for (const auto& [ordem, limiar, esperada] : casos) {
    std::vector<cv::DMatch> saida{cv::DMatch()};
    ratioTest(kSete, saida, ordem, limiar);
    EXPECT_EQ(consultasEDistancias(saida), esperada) << ordem << " " << limiar;
  }
}

// Acceptance rate: round(n * rate), ties to even; no threshold, so with rate 1
// everything is kept in key order, infinite ratios last. Nothing is printed:
// the sweep's workers call it.
TEST(Ratio, AcceptanceRateRoundsHalfToEven) {
  // n, rate, kept
  const std::tuple<size_t, double, size_t> casos[] = {{5, 0.5, 2}, {7, 0.5, 4}, {5, 0.0, 0}, {5, 1.0, 5},
                                                      {3, 0.5, 2}, {1, 0.5, 0}, {0, 0.5, 0}};
  for (const auto& [n, taxa, mantidos] : casos) {
    Listas grande(kSete.begin(), kSete.begin() + std::min<size_t>(n, 5));
    grande.resize(n, kSete[0]);
    std::vector<cv::DMatch> saida;
    testing::internal::CaptureStdout();
    acRateTest(grande, saida, 'r', taxa);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(saida.size(), mantidos) << n << " " << taxa;
  }
  const float inf = static_cast<float>(tvm::infinito);
  const std::pair<char, std::vector<float>> ordens[] = {{'r', {0.1f, 0.25f, 0.5f, 1, inf, inf, inf}},
                                                         {'d', {0, 0.5f, 1, 2, 3, 4, kInf}}};
  for (const auto& [ordem, coluna1] : ordens) {
    std::vector<cv::DMatch> saida;
    acRateTest(kSete, saida, ordem, 1.0);
    EXPECT_EQ(consultasEDistancias(saida).second, coluna1) << ordem;
  }
}

// The last word of a kind wins; a value out of range or an unknown word stops.
TEST(Opcoes, RatioWords) {
  const std::pair<std::vector<std::string>, std::string> casos[] = {
      {{}, "0.8 0.5 ratio r brute"}, {{"acrate=0.3", "ratio=0"}, "0 0.3 ratio r brute"},
      {{"ratio=0.5", "acrate=1", "ordem=dist", "flann"}, "0.5 1 acRate d flann"},
      {{"ordem=d", "ordem=ratio", "flann", "brute"}, "0.8 0.5 ratio r brute"},
      {{"ratio=1.5"}, "Erro: ratio fora do intervalo"}, {{"ratio=-0.1"}, "Erro: ratio fora do intervalo"},
      {{"acrate=2"}, "Erro: acRate fora do intervalo"}, {{"ordem="}, "Erro: ordem=NULO"},
      {{"ordem=x"}, "Erro: ordem deve ser r ou d"},     {{"Brute"}, "Erro: Palavra desconhecida Brute"}};
  for (const auto& [palavras, esperado] : casos) {
    teste::Palavras p(palavras);
    tvm::ISTR in = p.istr();
    OpcoesRatio o;
    std::string lido = teste::mensagemDe([&] { o = leOpcoesRatio(in); });
    if (lido == "(sem erro)")
      lido = cv::format("%g %g %s %c %s", o.ratio, o.acRate, o.modo == ModoRatio::ratio ? "ratio" : "acRate", o.ordem,
                        o.busca == Busca::flann ? "flann" : "brute");
    EXPECT_EQ(lido, esperado);
  }
}

// At the bound every squared distance is finite, for the exhaustive search
// and for FLANN, with the farthest rows (+v against -v) in the widest and
// narrowest stores; past it the store is refused.
TEST(Stores, LargestValueKeepsDistancesFinite) {
  for (int colunas : {1, 8, 128, 1000}) {
    SCOPED_TRACE(colunas);
    // The float just below the bound (a plain cast may round above it).
    const float v = std::nextafter(static_cast<float>(maiorValorDescritor(colunas)), 0.0f);
    cv::Mat query(2, colunas, CV_32F, cv::Scalar(v)), train(3, colunas, CV_32F, cv::Scalar(-v));
    query.row(1).setTo(-v);
    train.row(2).setTo(v / 2);
    for (Busca modo : {Busca::brute, Busca::flann}) {
      const std::vector<std::vector<cv::DMatch>> listas = casa2NN(query, train, modo);
      ASSERT_EQ(listas.size(), 2u);
      for (const auto& lista : listas) {
        ASSERT_EQ(lista.size(), 2u);
        for (const cv::DMatch& m : lista) EXPECT_TRUE(std::isfinite(m.distance)) << m.distance;
      }
    }
    teste::PastaTemp pasta;
    const std::vector<cv::KeyPoint> dois(2, cv::KeyPoint(1, 2, 3));
    formats::impDescritores(pasta / "a.xml", dois, query);
    EXPECT_EQ(teste::mensagemDe([&] { leParDescritores(pasta / "a.xml", pasta / "a.xml"); }), "(sem erro)");
    query.at<float>(1, colunas - 1) = -v * 1.001f;
    formats::impDescritores(pasta / "b.xml", dois, query);
    EXPECT_EQ(teste::mensagemDe([&] { leParDescritores(pasta / "a.xml", pasta / "b.xml"); }).rfind(
                  "Erro: descritores com valor ", 0),
              0u);
  }
}

// Binary rows, random or drawn from few values so that equal Hamming
// distances are the rule.
cv::Mat binarias(int linhas, int colunas, int semente, int valores = 256) {
  cv::Mat m(linhas, colunas, CV_8U);
  cv::RNG(semente).fill(m, cv::RNG::UNIFORM, 0, valores);
  return m;
}

// What the three tools compute, on binary rows: the exhaustive search is
// BFMatcher(NORM_HAMMING) bit for bit, the mutual matches are its 1-NN both
// ways; LSH's answers carry true Hamming distances.
TEST(Busca, BinaryRowsByHammingDistance) {
  const std::tuple<const char*, cv::Mat, cv::Mat> casos[] = {
      {"Orb", binarias(150, 32, 1), binarias(220, 32, 2)},
      {"EmpatesFrequentes", binarias(120, 32, 3, 2), binarias(90, 32, 4, 2)},
      {"Akaze61", binarias(40, 61, 5), binarias(70, 61, 6)},
      {"UmaLinhaDeTreino", binarias(5, 64, 7), binarias(1, 64, 8)}};
  for (const auto& [nome, query, train] : casos) {
    SCOPED_TRACE(nome);
    Listas ida, volta, delas2, nossas1;
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(query, train, ida, 1, cv::noArray(), true);
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(train, query, volta, 1, cv::noArray(), true);
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(query, train, delas2, 2);
    for (const cv::DMatch& m : casaNN(query, train, Busca::brute)) nossas1.push_back({m});
    esperaIguais(nossas1, ida);
    esperaIguais(casa2NN(query, train, Busca::brute), delas2);
    std::vector<cv::DMatch> mutuos;
    for (const auto& l : ida)
      if (volta[static_cast<size_t>(l[0].trainIdx)][0].trainIdx == l[0].queryIdx) mutuos.push_back(l[0]);
    std::stable_sort(mutuos.begin(), mutuos.end());
    EXPECT_TRUE(teste::mesmosBits(casaMutuos(query, train, Busca::brute), mutuos));
    for (const auto& lista : casa2NN(query, train, Busca::flann)) {
      ASSERT_LE(lista.size(), 2u);
      for (const cv::DMatch& m : lista)
        EXPECT_EQ(m.distance, cv::norm(query.row(m.queryIdx), train.row(m.trainIdx), cv::NORM_HAMMING));
      if (lista.size() == 2) {
        EXPECT_LE(lista[0].distance, lista[1].distance);
      }
    }
  }
  // Against itself LSH finds every row at distance 0 (its own bucket).
  const cv::Mat orb = binarias(300, 32, 9);
  const std::vector<cv::DMatch> proprios = casaNN(orb, orb, Busca::flann);
  ASSERT_EQ(proprios.size(), 300u);
  for (const cv::DMatch& m : proprios) EXPECT_EQ(m.distance, 0.0f);
  EXPECT_EQ(teste::mensagemDe([&] { casaNN(orb, aleatorios(3, 32, 1), Busca::brute); }),
            "Erro: descritores de tipos diferentes");
}

// The pair of stores MatNN and MatRatio read; a count mismatch and a missing
// file are the messages' own cases.
TEST(Stores, PairChecks) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> dois(2, cv::KeyPoint(1, 2, 3));
  cv::Mat nan = aleatorios(2, 8, 9);
  nan.at<float>(1, 3) = std::numeric_limits<float>::quiet_NaN();
  const std::pair<std::string, cv::Mat> stores[] = {
      {"a.xml", aleatorios(2, 8, 6)}, {"largo.xml", aleatorios(2, 9, 7)}, {"f64.xml", cv::Mat::zeros(2, 8, CV_64F)},
      {"nan.xml", nan}, {"bin.xml", cv::Mat(2, 32, CV_8U, cv::Scalar(7))}};
  for (const auto& [nome, d] : stores) formats::impDescritores(pasta / nome, dois, d);
  const std::pair<std::string, std::string> casos[] = {
      {"a.xml", "(sem erro)"},
      {"largo.xml", "Erro: descritores de tamanhos diferentes em " + pasta / "a.xml (8) e " + pasta / "largo.xml (9)"},
      {"f64.xml", "Erro: descritores nao sao float de 32 bits nem binarios de 8 bits em " + pasta / "f64.xml"},
      {"bin.xml", "Erro: descritores de tipos diferentes em " + pasta / "a.xml (float) e " + pasta / "bin.xml (binarios)"},
      {"nan.xml", "Erro: descritores com valor nao finito em " + pasta / "nan.xml"},
  };
  for (const auto& [nome, mensagem] : casos)
    EXPECT_EQ(teste::mensagemDe([&] { leParDescritores(pasta / "a.xml", pasta / nome); }), mensagem) << nome;
}

// The sweep's shared searches: for every set of exhaustive matchers, the
// passes merged for the set give each matcher exactly its answer alone, on
// float and binary rows with ties (repeated rows) and on empty sides.
TEST(Passes, EachSetOfMatchersReadsItsOwnAnswers) {
  cv::Mat f1(60, 16, CV_32F), f2(50, 16, CV_32F), b1(60, 32, CV_8U), b2(50, 32, CV_8U);
  cv::RNG rng(3);
  rng.fill(f1, cv::RNG::UNIFORM, 0, 4);
  rng.fill(f2, cv::RNG::UNIFORM, 0, 4);
  rng.fill(b1, cv::RNG::UNIFORM, 0, 256);
  rng.fill(b2, cv::RNG::UNIFORM, 0, 256);
  for (cv::Mat* m : {&f1, &f2, &b1, &b2}) {
    m->row(1).copyTo(m->row(7));  // two train rows at one distance from every query
    m->row(3).copyTo(m->row(20));
  }
  const cv::Mat vazia1(0, 16, CV_32F);
  const std::vector<std::pair<cv::Mat, cv::Mat>> pares = {
      {f1, f2}, {b1, b2}, {f2, f1}, {vazia1, f2}, {f1, vazia1}, {f1, f2.rowRange(0, 1)}};
  const std::vector<std::vector<std::string>> conjuntos = {
      {"nn"}, {"ratio"}, {"mutuo"}, {"nn", "ratio"}, {"nn", "mutuo"}, {"ratio", "mutuo"}, {"nn", "ratio", "mutuo"}};
  for (const auto& [a, b] : pares)
    for (const auto& nomes : conjuntos) {
      std::vector<algoritmos::Casador> cas;
      int kIda = 0;
      bool volta = false;
      for (const std::string& n : nomes) {
        tvm::ISTR nenhuma(0, nullptr);
        cas.push_back(algoritmos::criaCasador(n, nenhuma));
        ASSERT_TRUE(cas.back().dasPasses) << n;
        kIda = std::max(kIda, cas.back().kIda);
        volta = volta || cas.back().volta;
      }
      const Passes p = calculaPasses(a, b, kIda, volta);
      for (const algoritmos::Casador& c : cas) {
        SCOPED_TRACE(c.nome + " de " + testing::PrintToString(nomes) + ", " + std::to_string(a.rows) + "x" +
                     std::to_string(b.rows) + (a.type() == CV_8U ? " binarios" : " float"));
        std::vector<cv::DMatch> sozinho, juntos;
        // A failure (the ratio test on no lists at all) must be the same failure.
        const std::string falha = teste::mensagemDe([&] { sozinho = c.casa(a, b); });
        ASSERT_EQ(teste::mensagemDe([&] { juntos = c.dasPasses(p); }), falha);
        ASSERT_EQ(juntos.size(), sozinho.size());
        // A side with no rows has no match, and no failure, whatever the matcher.
        if (a.empty() || b.empty()) {
          EXPECT_EQ(falha, "(sem erro)");
        }
        for (size_t i = 0; i < juntos.size(); ++i) {
          EXPECT_EQ(juntos[i].queryIdx, sozinho[i].queryIdx) << i;
          EXPECT_EQ(juntos[i].trainIdx, sozinho[i].trainIdx) << i;
          EXPECT_EQ(juntos[i].distance, sozinho[i].distance) << i;
        }
      }
    }
}

}  // namespace
