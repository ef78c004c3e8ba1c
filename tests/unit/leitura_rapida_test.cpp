// The direct parser of stores and match files against the readers it
// replaces: every file the writers produce is taken and reads to the same
// bits; every text outside the writers' exact shapes is left to them.
#include "formats/leitura_rapida.hpp"
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <limits>
#include <random>

namespace {

// Values that stress the number conversion: integers, negative zero,
// subnormals, the float extremes, long mantissas.
std::vector<cv::KeyPoint> keypointsDificeis(int n) {
  using F = std::numeric_limits<float>;
  using I = std::numeric_limits<int>;
  std::mt19937 g(7);
  std::uniform_real_distribution<float> u(-1000.0f, 1000.0f);
  std::vector<cv::KeyPoint> k = {cv::KeyPoint(0.0f, -0.0f, 1.0f, 359.99998f, 1e-7f, 0, -1),
                                 cv::KeyPoint(F::max(), -F::max(), F::denorm_min(), F::min(), 3.0f, I::max(), I::min()),
                                 cv::KeyPoint(123456.789f, 0.1f, 2.5f, -1.0f, 16777217.0f, 9437440, 7)};
  while (static_cast<int>(k.size()) < n) k.emplace_back(u(g), u(g), u(g), u(g), u(g), 3, -1);
  return k;
}

// Float rows mix integers, sevenths and the extremes; uchar rows are random.
cv::Mat descritores(int rows, int cols, int tipo = CV_32F) {
  cv::Mat d(rows, cols, tipo);
  cv::randu(d, 0, 256);
  if (tipo == CV_32F) {
    d.forEach<float>([](float& v, const int* p) { v = (p[0] + p[1]) % 5 == 0 ? std::floor(v) / 7 : std::floor(v); });
    if (rows > 0 && cols > 2) d.at<float>(0, 0) = -0.0f, d.at<float>(0, 1) = 1e-42f, d.at<float>(0, 2) = -3.4e38f;
  }
  return d;
}

TEST(StoreEscrito, TakenAndReadToTheSameBitsAsFileStorage) {
  // Keypoint count and descriptors; no matrix: a keypoint store.
  const std::tuple<const char*, int, std::optional<cv::Mat>> casos[] = {
      {"SoKeyPoints", 40, std::nullopt},     {"Float", 40, descritores(40, 128)},
      {"UmaLinha", 1, descritores(1, 128)},   {"Uchar", 6, descritores(6, 32, CV_8U)},
      {"Vazio", 0, cv::Mat()},                {"SemLinhas", 0, cv::Mat(0, 128, CV_32F)},
      {"ListaVazia", 0, std::nullopt}};
  for (const auto& [nome, n, matriz] : casos)
    for (const std::string formato : {"xml", "yml", "yaml"}) {
      SCOPED_TRACE(nome + (" " + formato));
      teste::PastaTemp pasta;
      const std::string arquivo = pasta / ("s." + formato);
      const std::vector<cv::KeyPoint> kps = keypointsDificeis(n);
      matriz ? formats::impDescritores(arquivo, kps, *matriz) : formats::impKeyPoints(arquivo, kps);
      // Outputs already holding something, as a tool reusing them would.
      std::vector<cv::KeyPoint> rapidos(2), lentos(5), soKeyPoints;
      cv::Mat rapida = cv::Mat::ones(3, 3, CV_64F), lenta = cv::Mat::ones(3, 3, CV_64F);
      ASSERT_TRUE(formats::leStoreRapido(arquivo, rapidos, &rapida)) << teste::leTexto(arquivo);
      formats::leDescritoresFileStorage(arquivo, lentos, lenta);
      EXPECT_TRUE(teste::mesmosBits(rapidos, lentos) && rapidos.size() == kps.size());
      EXPECT_TRUE(teste::mesmosBits(rapida, lenta)) << rapida.size() << " " << lenta.size();
      ASSERT_TRUE(formats::leStoreRapido(arquivo, soKeyPoints, nullptr));
      EXPECT_TRUE(teste::mesmosBits(soKeyPoints, formats::leKeyPointsFileStorage(arquivo)));
    }
}

const char* const kYaml =
    "%YAML:1.0\n---\nkeypoints: [ 1., 2.5e+00, 3., -4., 5., 0, -1 ]\n"
    "descriptors: !!opencv-matrix\n   rows: 1\n   cols: 2\n   dt: f\n   data: [ 1., 2. ]\n";
const char* const kXml =
    "<?xml version=\"1.0\"?>\n<opencv_storage>\n<keypoints>\n  1. 2.5e+00 3. -4. 5. 0 -1</keypoints>\n"
    "<descriptors type_id=\"opencv-matrix\">\n  <rows>1</rows>\n  <cols>2</cols>\n  <dt>f</dt>\n  <data>\n"
    "    1. 2.</data></descriptors>\n</opencv_storage>\n";

// `texto` in a file named `nome`: whether the direct reader takes it (the
// same with descriptors and without) and the keypoints it read.
std::pair<bool, size_t> leRapido(const std::string& nome, const std::string& texto) {
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / nome, texto);
  std::vector<cv::KeyPoint> k, k2;
  cv::Mat d;
  const bool com = formats::leStoreRapido(pasta / nome, k, &d), sem = formats::leStoreRapido(pasta / nome, k2, nullptr);
  EXPECT_EQ(com, sem) << nome;
  return {com, k.size()};
}

TEST(StoreQuaseIgual, LeftToFileStorage) {
  // The unchanged texts are taken: the refusals below are the edits'.
  EXPECT_EQ(leRapido("s.yml", kYaml), std::pair(true, size_t(1)));
  EXPECT_EQ(leRapido("s.xml", kXml), std::pair(true, size_t(1)));
  const struct {
    const char* extensao;
    std::string de, para;
  } edicoes[] = {
      {"yml", "keypoints", "# nota\nkeypoints"}, {"yml", "2. ]\n", "2. ]\noutro: 1\n"},
      {"yml", "[ 1., 2.5e+00, 3., -4., 5., 0, -1 ]", "[ [ 1., 2., 3., 4., 5., 0, -1 ] ]"},
      {"yml", "dt: f", "dt: d"}, {"yml", "dt: f", "dt: 2f"},
      {"yml", "dt: f\n   data: [ 1., 2. ]", "dt: f\n   data: !!binary |\n     AAAA"},
      {"yml", "data: [ 1.,", "data: [ .Inf,"}, {"yml", "[ 1.,", "[ .Nan,"}, {"yml", "0, -1 ]", "0x10, -1 ]"},
      {"yml", "0, -1 ]", "010, -1 ]"}, {"yml", "2.5e+00", "2.5E+00"}, {"yml", "3.,", "+3.,"}, {"yml", "3.,", ".3,"},
      {"yml", "0, -1 ]", "4294967296, -1 ]"}, {"yml", "2.5e+00", "2.5e+400"}, {"yml", "[ 1.,", "[ 1e39,"},
      {"yml", "%YAML", "\xEF\xBB\xBF%YAML"}, {"yml", "   rows", "\trows"}, {"yml", "1 ]\n", "1 ]\r\n"},
      {"yml", "rows: 1", "rows: 2"}, {"yml", "[ 1., 2. ]", "[ 1., 2., 3. ]"}, {"yml", ", 0, -1 ]", ", 0 ]"},
      {"yml", "2. ]\n", "2. ]\n..."}, {"yml", "2. ]\n", "2. ]"}, {"yml", "3., -4.,", "3.,\n  -4.,"},
      {"yml", "3., -4.,", "3.,\n\n    -4.,"}, {"yml", "2. ]", "2., ]"},
      {"xml", "<keypoints>", "<!-- nota --><keypoints>"}, {"xml", "<keypoints>", "<keypoints a=\"1\">"},
      {"xml", "1. 2.</data>", "<![CDATA[1. 2.]]></data>"}, {"xml", "<data>", "<data type_id=\"binary\">"},
      {"xml", "<cols>2</cols>\n  <dt>f</dt>\n  <data>\n    1. 2.", "<cols>1</cols>\n  <dt>f</dt>\n  <data>\n    7."},
      {"xml", "<rows>1</rows>", "<rows>1.</rows>"}, {"xml", "</opencv_storage>", "<x>1</x>\n</opencv_storage>"},
      {"xml", "</opencv_storage>\n", "</opencv_storage>\n<opencv_storage></opencv_storage>\n"},
      {"xml", "3. -4.", "3.-4."}, {"xml", "3. -4.", "3.\t-4."}, {"xml", "3. -4.", std::string("3. \0-4.", 7)},
  };
  for (const auto& e : edicoes) {
    std::string texto = e.extensao[0] == 'y' ? kYaml : kXml;
    const size_t i = texto.find(e.de);
    ASSERT_NE(i, std::string::npos) << e.de;
    EXPECT_FALSE(leRapido(std::string("s.") + e.extensao, texto.replace(i, e.de.size(), e.para)).first) << texto;
  }
  // XML named .yml; compressed and other names, whatever they hold.
  for (const char* nome : {"s.yml", "s.xml.gz", "s.yml.gz", "s.txt", "s.XML"})
    EXPECT_FALSE(leRapido(nome, std::string(nome) == "s.yml.gz" ? kYaml : kXml).first) << nome;
  std::vector<cv::KeyPoint> k;
  EXPECT_FALSE(formats::leStoreRapido("/nao/ha/falta.yml", k, nullptr));
}

// Match files: what impMatch writes, and hand-written text in the forms
// tvm::leNum takes.
TEST(MatchRapido, SameBitsAsTheWordReader) {
  const std::vector<cv::KeyPoint> kps = keypointsDificeis(60);
  std::vector<cv::DMatch> ms;  // written by impMatch
  for (int i = 0; i < 30; ++i) ms.emplace_back(i, 59 - i, i == 0 ? 1e30f : i * 0.37f);
  const std::string linha = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
  // Text (empty: the one impMatch writes) and how many matches it holds.
  const std::pair<std::string, size_t> casos[] = {
      {"", ms.size()}, {"0 15\n", 0}, {"// antes\n2 15 // depois\n" + linha + "   // no meio\n" + linha, 2},
      {"1 15\n+1.5 .5 5. 1E5 -2e-3 007 -0 6 7 8 9 10 11 12 +13\n", 1},  // the forms strtod takes
      {"1\t15\r\n1\v2\f3 4 5 6 7 8 9 10 11 12 13 14 15", 1}, {"1 15\n" + linha + "isto nao e lido\n", 1},
      {"1 15\n1e-40 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", 1}};
  teste::PastaTemp pasta;
  for (const auto& [texto, casamentos] : casos) {
    texto.empty() ? formats::impMatch(ms, kps, kps, pasta / "m.txt") : teste::escreveTexto(pasta / "m.txt", texto);
    std::vector<cv::DMatch> m = {cv::DMatch(9, 9, 9.0f)}, mLento;
    std::vector<cv::KeyPoint> k1(3), k2, k1Lento, k2Lento(4);
    ASSERT_TRUE(formats::leMatchRapido(pasta / "m.txt", m, k1, k2)) << texto;
    formats::leMatchFscanf(mLento, k1Lento, k2Lento, pasta / "m.txt");
    EXPECT_EQ(m.size(), casamentos) << texto;
    EXPECT_TRUE(teste::mesmosBits(m, mLento) && teste::mesmosBits(k1, k1Lento) && teste::mesmosBits(k2, k2Lento))
        << texto;
  }
}

TEST(MatchRapido, OtherTextLeftToTheWordReader) {
  // A first number of each form, then whole texts.
  std::vector<std::string> casos = {"1 15\n1 2 3 4 5 6 7.5 8 9 10 11 12 13 14 15\n",  // octave not an int
                                    "1 15\n1 2 3 4 5 6 3000000000 8 9 10 11 12 13 14 15\n",
                                    "2 15\n1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n",  // truncated
                                    "1 14\n1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", "-1 15\n", ""};
  for (const std::string& primeiro : std::vector<std::string>{"nan", "inf", "0x1p3", "1e400", "1e-400", "1e39", "+-1",
                                                              std::string(70, '1'), std::string("1\0x", 3)})
    casos.push_back("1 15\n" + primeiro + " 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n");
  teste::PastaTemp pasta;
  for (const std::string& texto : casos) {
    teste::escreveTexto(pasta / "m.txt", texto);
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    EXPECT_FALSE(formats::leMatchRapido(pasta / "m.txt", m, k1, k2)) << texto;
    EXPECT_TRUE(m.empty() && k1.empty() && k2.empty()) << texto;
  }
}

}  // namespace
