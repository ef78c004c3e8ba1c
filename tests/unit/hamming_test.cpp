// vizinhosHamming against BFMatcher(NORM_HAMMING): every path, k = 1 and 2,
// the widths of the usual binary descriptors and awkward ones, empty and tiny
// inputs, and rows built so that most distances tie.
#include "matching/vizinhos_hamming.hpp"
#include "tests/common/mesmos_bits.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

#include <tuple>

namespace {

using Listas = std::vector<std::vector<cv::DMatch>>;
using matching::VetoresHamming;

// aleatorias: random bytes. repetidas: copies of 3 random rows, so nearly
// every distance ties and the tie rule decides. poucosBits: bytes 0 or 1,
// distances spread over a few small whole numbers, with many ties too.
// extremos: rows all 0x00 or all 0xFF, distances 0 or every bit: the largest
// counts per byte and per lane, ties everywhere.
enum class Tipo { aleatorias, repetidas, poucosBits, extremos };

cv::Mat linhas(int n, int bytes, Tipo tipo, int semente) {
  cv::RNG rng(semente);
  cv::Mat m(n, bytes, CV_8U);
  if (m.empty()) return m;
  if (tipo == Tipo::extremos) {
    for (int i = 0; i < n; ++i) m.row(i).setTo(rng.uniform(0, 2) * 255);
  } else if (tipo == Tipo::repetidas) {
    cv::Mat modelos(3, bytes, CV_8U);
    rng.fill(modelos, cv::RNG::UNIFORM, 0, 256);
    for (int i = 0; i < n; ++i) modelos.row(rng.uniform(0, 3)).copyTo(m.row(i));
  } else {
    rng.fill(m, cv::RNG::UNIFORM, 0, tipo == Tipo::poucosBits ? 2 : 256);
  }
  return m;
}

Listas delas(const cv::Mat& query, const cv::Mat& train, int k) {
  Listas l;
  cv::BFMatcher(cv::NORM_HAMMING, false).knnMatch(query, train, l, k);
  return l;
}

void esperaIguais(const Listas& nossas, const Listas& delas) {
  ASSERT_EQ(nossas.size(), delas.size());
  for (size_t i = 0; i < delas.size(); ++i) EXPECT_TRUE(teste::mesmosBits(nossas[i], delas[i])) << "consulta " << i;
}

const VetoresHamming kCaminhos[] = {VetoresHamming::melhor, VetoresHamming::escalar, VetoresHamming::avx2,
                                    VetoresHamming::avx512};

// Holds every available path, both k, to OpenCV's answer on one pair.
void comparaCaminhos(const cv::Mat& query, const cv::Mat& train) {
  for (int k : {1, 2}) {
    const Listas esperadas = delas(query, train, k);
    for (VetoresHamming v : kCaminhos) {
      if (!matching::disponivel(v)) continue;
      SCOPED_TRACE(testing::Message() << "k " << k << " caminho " << static_cast<int>(v));
      esperaIguais(matching::vizinhosHamming(query, train, k, v), esperadas);
    }
  }
}

TEST(Hamming, EqualsOpenCVsMatcherBitForBit) {
  // (query rows, train rows): empty sides, a train set smaller than k, a
  // few hundred rows (several query tiles, a partial last panel group).
  const std::pair<int, int> tamanhos[] = {{0, 5}, {5, 0}, {1, 1}, {3, 1}, {2, 3}, {3, 2}, {203, 301}};
  // Widths: none; BRIEF's, ORB's, AKAZE's, BRISK's and odd ones; past 31
  // words, where the AVX2 path's byte counts must be folded before 255.
  int semente = 1;
  for (int bytes : {0, 1, 8, 16, 32, 61, 64, 100, 256, 300})
    for (const auto& [nq, nt] : tamanhos)
      for (Tipo tipo : {Tipo::aleatorias, Tipo::repetidas, Tipo::poucosBits, Tipo::extremos}) {
        SCOPED_TRACE(testing::Message() << bytes << " bytes, " << nq << " x " << nt << ", tipo "
                                        << static_cast<int>(tipo));
        comparaCaminhos(linhas(nq, bytes, tipo, semente), linhas(nt, bytes, tipo, semente + 1));
        semente += 2;
      }
}

// The tie rule on one query byte 0x00, by hand: equal distances keep train
// order, a later equal row never displaces an earlier one, and a train set
// smaller than k gives a shorter list. OpenCV and every path agree with it.
TEST(Hamming, TiesKeepTrainOrder) {
  using Par = std::pair<int, float>;  // trainIdx, distance
  const std::tuple<std::vector<uchar>, int, std::vector<Par>> casos[] = {
      {{0x03, 0x01, 0x02, 0x01}, 2, {{1, 1.f}, {2, 1.f}}},
      {{0x07, 0x01, 0x03, 0x01}, 1, {{1, 1.f}}},
      {{0x01, 0x00, 0x00, 0x03}, 2, {{1, 0.f}, {2, 0.f}}},
      {{0xff}, 2, {{0, 8.f}}}};
  const cv::Mat query(1, 1, CV_8U, cv::Scalar(0));
  for (const auto& [bytes, k, pares] : casos) {
    const cv::Mat train = cv::Mat(bytes, true);
    Listas esperada(1);
    for (const auto& [j, d] : pares) esperada[0].emplace_back(0, j, 0, d);
    esperaIguais(delas(query, train, k), esperada);
    for (VetoresHamming v : kCaminhos)
      if (matching::disponivel(v)) esperaIguais(matching::vizinhosHamming(query, train, k, v), esperada);
  }
}

// Past one train block (3072 rows of 8 bytes, 768 of 32), several query
// tasks (64 rows) with a partial last one, rows that are views into wider
// matrices; on 1, 2 and 3 threads, so that a result that hung on the split
// would show.
TEST(Hamming, BlocksViewsAndThreadsChangeNothing) {
  const cv::Mat largas = linhas(400, 80, Tipo::aleatorias, 90);
  const std::tuple<const char*, cv::Mat, cv::Mat> casos[] = {
      {"Blocos8", linhas(150, 8, Tipo::poucosBits, 91), linhas(3100, 8, Tipo::poucosBits, 92)},
      {"Blocos32Repetidas", linhas(150, 32, Tipo::repetidas, 93), linhas(1700, 32, Tipo::repetidas, 93)},
      {"Blocos32", linhas(150, 32, Tipo::aleatorias, 94), linhas(1700, 32, Tipo::aleatorias, 95)},
      {"Vistas61", largas(cv::Rect(3, 0, 61, 130)), largas(cv::Rect(11, 130, 61, 270))}};
  const int antes = cv::getNumThreads();
  for (const auto& [nome, query, train] : casos)
    for (int threads : {1, 2, 3}) {
      SCOPED_TRACE(testing::Message() << nome << ", " << threads << " threads");
      cv::setNumThreads(threads);
      comparaCaminhos(query, train);
    }
  cv::setNumThreads(antes);
}

// Inputs outside the contract stop with OpenCV's exception, not a wrong
// answer: a third neighbour has no slot, and other types or widths have no
// Hamming distance here.
TEST(Hamming, RefusesWhatItCannotAnswer) {
  const cv::Mat orb = linhas(4, 32, Tipo::aleatorias, 3);
  const std::tuple<const char*, cv::Mat, cv::Mat, int> casos[] = {
      {"k3", orb, orb, 3}, {"k0", orb, orb, 0}, {"Float", cv::Mat(4, 32, CV_32F, 0.f), orb, 1},
      {"Larguras", orb, linhas(4, 31, Tipo::aleatorias, 4), 1}, {"DoisCanais", orb, cv::Mat(4, 16, CV_8UC2, cv::Scalar::all(0)), 1}};
  for (const auto& [nome, query, train, k] : casos)
    EXPECT_THROW(matching::vizinhosHamming(query, train, k), cv::Exception) << nome;
}

}  // namespace
