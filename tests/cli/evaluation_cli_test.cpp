// FiltMat, MatROC, MatAcert, Matlab and SobrROC run as the real binary.
#include "formats/match_file.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using teste::PastaTemp;
using teste::roda;
using teste::semTempo;

const cv::Vec3b kVermelho(0, 0, 255);

// A match file whose match i pairs (20 + 10 i, 30) in image 1 with the same
// point moved `distancias[i]` pixels along x in image 2: under the identity
// transform and dist 15, 3 is a correct match and 40 a wrong one.
void escreveCasamentos(const std::string& arquivo, const std::vector<double>& distancias) {
  std::vector<cv::DMatch> matches;
  std::vector<cv::KeyPoint> k1, k2;
  for (size_t i = 0; i < distancias.size(); ++i) {
    const float x = 20.0f + 10.0f * i;
    k1.emplace_back(x, 30.0f, 8.0f);
    k2.emplace_back(x + static_cast<float>(distancias[i]), 30.0f, 8.0f);
    matches.emplace_back(int(i), int(i), float(i));
  }
  formats::impMatch(matches, k1, k2, arquivo);
}

// Match file m.txt and identity transform h.txt in the folder.
void prepara(const PastaTemp& pasta, const std::vector<double>& distancias) {
  escreveCasamentos(pasta / "m.txt", distancias);
  teste::salvaMat33(cv::Matx33d::eye(), pasta / "h.txt");
}

const std::vector<double> kErradoCertoCertoErrado = {40, 3, 3, 40};

using teste::pixelsDaCor;

cv::Mat_<cv::Vec3b> leCor(const std::string& arquivo) { return cv::imread(arquivo, cv::IMREAD_COLOR); }

// ---- FiltMat -----------------------------------------------------------

struct CasoFilt {
  const char* nome;
  std::vector<double> distancias;
  std::vector<std::string> dist;  // optional positional tolerance
  std::string linha;
  int certos;
};

class FiltMatTest : public ::testing::TestWithParam<CasoFilt> {};

TEST_P(FiltMatTest, TaxasEArquivoFiltrado) {
  const CasoFilt& caso = GetParam();
  PastaTemp pasta;
  prepara(pasta, caso.distancias);
  std::vector<std::string> args = {"FiltMat", "m.txt", "h.txt"};
  args.insert(args.end(), caso.dist.begin(), caso.dist.end());
  args.push_back("f.txt");
  if (caso.dist.empty()) args.insert(args.begin() + 3, "15");
  auto e = roda(args, pasta.caminho());
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(semTempo(e.out), caso.linha);
  EXPECT_EQ(e.err, "");

  std::vector<cv::DMatch> m;
  std::vector<cv::KeyPoint> k1, k2;
  formats::leMatch(m, k1, k2, pasta / "f.txt");
  ASSERT_EQ(int(m.size()), caso.certos);
  // Kept in their input order, with their distance column unchanged.
  for (size_t i = 1; i < m.size(); ++i) EXPECT_LT(m[i - 1].distance, m[i].distance);

  // Filtering the filtered file again finds nothing wrong.
  args[1] = "f.txt";
  args.back() = "g.txt";
  e = roda(args, pasta.caminho());
  EXPECT_EQ(e.out.rfind("Total=" + std::to_string(caso.certos) + " erros=0(", 0), 0u) << e.out;
  EXPECT_EQ(teste::leTexto(pasta / "g.txt"), teste::leTexto(pasta / "f.txt"));
}

INSTANTIATE_TEST_SUITE_P(
    Casos, FiltMatTest,
    ::testing::Values(
        CasoFilt{"QuatroCasamentos", kErradoCertoCertoErrado, {}, "Total=4 erros=2(50.0%) acertos=2(50.0%)\n", 2},
        // Exactly 15 pixels away is still correct.
        CasoFilt{"LimiteInclusivo", {0, 3, 15, 15.5}, {"15"}, "Total=4 erros=1(25.0%) acertos=3(75.0%)\n", 3},
        CasoFilt{"DistZeroSoExatos", {0, 3, 0, 40, 1}, {"0"}, "Total=5 erros=3(60.0%) acertos=2(40.0%)\n", 2},
        CasoFilt{"DistNegativaNenhum", {0, 3}, {"-1"}, "Total=2 erros=2(100.0%) acertos=0( 0.0%)\n", 0},
        // Only a third shows a rate computed in whole numbers.
        CasoFilt{"UmTerco", {1, 40, 50}, {"15"}, "Total=3 erros=2(66.7%) acertos=1(33.3%)\n", 1}),
    [](const auto& info) { return std::string(info.param.nome); });

TEST(FiltMat, ArquivoVazioTaxasNaNESaidaDeDuasLinhas) {
  PastaTemp pasta;
  prepara(pasta, {});
  const auto e = roda({"FiltMat", "m.txt", "h.txt", "15", "f.txt"}, pasta.caminho());
  EXPECT_EQ(e.status, 0) << e.err;
  // 0/0 prints as the C library prints a NaN; on x86-64 its sign bit is set.
  const std::string linha = semTempo(e.out);
  EXPECT_TRUE(linha == "Total=0 erros=0(-nan%) acertos=0(-nan%)\n" ||
              linha == "Total=0 erros=0( nan%) acertos=0( nan%)\n")
      << linha;
  const std::string filtrado = teste::leTexto(pasta / "f.txt");
  EXPECT_EQ(filtrado, teste::leTexto(pasta / "m.txt"));
  EXPECT_EQ(std::count(filtrado.begin(), filtrado.end(), '\n'), 2);
  EXPECT_EQ(filtrado.rfind("0 15\n//dist-ratio ", 0), 0u);
}

TEST(FiltMat, SemArquivoDeSaidaSoImprime) {
  PastaTemp pasta;
  prepara(pasta, kErradoCertoCertoErrado);
  const auto e = roda({"filtmat", "m.txt", "h.txt"}, pasta.caminho());
  EXPECT_EQ(semTempo(e.out), "Total=4 erros=2(50.0%) acertos=2(50.0%)\n");
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"h.txt", "m.txt"}));
}

// ---- MatROC --------------------------------------------------------------

TEST(MatROC, QuatroCasamentosImagemEArquivo) {
  PastaTemp pasta;
  prepara(pasta, kErradoCertoCertoErrado);
  const auto e = roda({"MatROC", "m.txt", "h.txt", "r.png", "arquivo=roc.txt"}, pasta.caminho());
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(semTempo(e.out), "");
  EXPECT_EQ(teste::leTexto(pasta / "roc.txt"),
            "  4   2\n//pos   x   y\n//pos fpr tpr\n  0  50   0\n  1  50  50\n  1  50 100\n  0 100 100\n");
  EXPECT_EQ(leCor(pasta / "r.png").size(), cv::Size(401, 401));
}

TEST(MatROC, CorEDistNaMesmaChamada) {
  PastaTemp pasta;
  // With dist 50 every match is correct: no wrong one, nothing in the area.
  prepara(pasta, kErradoCertoCertoErrado);
  auto e = roda({"matroc", "m.txt", "h.txt", "r.png", "cor=255,0,0", "dist=50"}, pasta.caminho());
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_TRUE(pixelsDaCor(leCor(pasta / "r.png"), cv::Vec3b(255, 0, 0)).empty());
  e = roda({"matroc", "m.txt", "h.txt", "r.png", "cor=255,0,0", "dist=15"}, pasta.caminho());
  EXPECT_EQ(pixelsDaCor(leCor(pasta / "r.png"), cv::Vec3b(255, 0, 0)).size(), 401u);
  EXPECT_TRUE(pixelsDaCor(leCor(pasta / "r.png"), kVermelho).empty());
}

// ---- Matlab --------------------------------------------------------------

TEST(Matlab, UmaLinhaDeFlags) {
  PastaTemp pasta;
  prepara(pasta, {3, 40, 15});
  auto e = roda({"Matlab", "m.txt", "h.txt", "o.mat"}, pasta.caminho());
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(semTempo(e.out), "");
  EXPECT_EQ(teste::leTexto(pasta / "o.mat"), "1 0 1 \n");
  e = roda({"Matlab", "m.txt", "h.txt", "o.mat", "dist=40"}, pasta.caminho());
  EXPECT_EQ(teste::leTexto(pasta / "o.mat"), "1 1 1 \n");
}

// ---- SobrROC -------------------------------------------------------------

TEST(SobrROC, PixelsNaoBrancosPorCimaNaOrdem) {
  PastaTemp pasta;
  cv::Mat_<cv::Vec3b> a(6, 5, cv::Vec3b(255, 255, 255)), b = a.clone(), c = a.clone();
  a(0, 0) = cv::Vec3b(0, 0, 255);
  a(1, 1) = cv::Vec3b(0, 0, 255);
  b(1, 1) = cv::Vec3b(255, 255, 254);  // not pure white: copied
  b(2, 2) = cv::Vec3b(255, 0, 0);
  c(2, 2) = cv::Vec3b(0, 255, 0);
  teste::salva(a, pasta / "r1.png");
  teste::salva(b, pasta / "r2.png");
  teste::salva(c, pasta / "r3.png");
  const auto e = roda({"SobrROC", "s.png", "r1.png", "r[23].png"}, pasta.caminho());
  EXPECT_EQ(e.status, 0) << e.err;
  const cv::Mat_<cv::Vec3b> s = leCor(pasta / "s.png");
  ASSERT_EQ(s.size(), a.size());
  EXPECT_EQ(s(0, 0), cv::Vec3b(0, 0, 255));  // later white pixels leave it
  EXPECT_EQ(s(1, 1), cv::Vec3b(255, 255, 254));
  EXPECT_EQ(s(2, 2), cv::Vec3b(0, 255, 0));
  EXPECT_EQ(pixelsDaCor(s, cv::Vec3b(255, 255, 255)).size(), 27u);

  // One input comes out unchanged.
  roda({"SobrROC", "u.png", "r2.png"}, pasta.caminho());
  EXPECT_EQ(cv::norm(leCor(pasta / "u.png"), b, cv::NORM_INF), 0.0);
}

}  // namespace
