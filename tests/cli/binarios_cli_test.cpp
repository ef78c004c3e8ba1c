// The three matchers on binary descriptor stores (ORB's 32-byte rows, here
// with ties on purpose), through the real binary: the match file is the one
// BFMatcher(NORM_HAMMING)'s answers give, and a float store against a binary
// one stops naming both.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "matching/ratio.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

namespace {

using Listas = std::vector<std::vector<cv::DMatch>>;

std::vector<cv::KeyPoint> keypoints(int n) {
  std::vector<cv::KeyPoint> k;
  for (int i = 0; i < n; ++i) k.emplace_back(5.0f + i, 7.0f + 2 * i, 31.0f, 10.0f * i, 1.0f, 0, -1);
  return k;
}

TEST(Binarios, MatchersGiveBFMatchersHammingAnswers) {
  teste::PastaTemp pasta;
  cv::Mat d1(60, 32, CV_8U), d2(80, 32, CV_8U);
  cv::RNG(1).fill(d1, cv::RNG::UNIFORM, 0, 4);  // few values: many equal distances
  cv::RNG(2).fill(d2, cv::RNG::UNIFORM, 0, 4);
  const std::vector<cv::KeyPoint> k1 = keypoints(d1.rows), k2 = keypoints(d2.rows);
  formats::impDescritores(pasta / "d1.yml", k1, d1);
  formats::impDescritores(pasta / "d2.yml", k2, d2);

  Listas ida, volta, dois;
  cv::BFMatcher(cv::NORM_HAMMING).knnMatch(d1, d2, ida, 1);
  cv::BFMatcher(cv::NORM_HAMMING).knnMatch(d2, d1, volta, 1);
  cv::BFMatcher(cv::NORM_HAMMING).knnMatch(d1, d2, dois, 2);
  std::vector<cv::DMatch> nn, mutuos;
  for (const auto& l : ida) {
    nn.push_back(l[0]);
    if (volta[static_cast<size_t>(l[0].trainIdx)][0].trainIdx == l[0].queryIdx) mutuos.push_back(l[0]);
  }
  std::sort(nn.begin(), nn.end());  // as MatNN orders them, ties included
  std::stable_sort(mutuos.begin(), mutuos.end());
  OpcoesRatio opcoes;
  opcoes.ratio = 0.9;
  const std::pair<std::vector<std::string>, std::vector<cv::DMatch>> casos[] = {
      {{"matnn", "d1.yml", "d2.yml", "m.txt"}, nn},
      {{"matmutuo", "d1.yml", "d2.yml", "m.txt"}, mutuos},
      {{"matratio", "d1.yml", "d2.yml", "m.txt", "ratio=0.9"}, selecionaRatio(dois, opcoes)},
  };
  for (const auto& [args, esperados] : casos) {
    SCOPED_TRACE(args[0]);
    ASSERT_FALSE(esperados.empty());
    teste::rodaBem(args, pasta.caminho());
    formats::impMatch(esperados, k1, k2, pasta / "esperado.txt");
    EXPECT_EQ(teste::leTexto(pasta / "m.txt"), teste::leTexto(pasta / "esperado.txt"));
  }
  formats::impDescritores(pasta / "f.yml", k1, cv::Mat(d1.rows, 32, CV_32F, cv::Scalar(0.5)));
  const teste::Execucao e = teste::roda({"matnn", "f.yml", "d2.yml", "m.txt"}, pasta.caminho());
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.err, "Erro: descritores de tipos diferentes em f.yml (float) e d2.yml (binarios)\n");
}

}  // namespace
