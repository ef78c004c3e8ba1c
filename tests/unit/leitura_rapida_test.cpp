// The direct parser of stores and match files against the readers it
// replaces: every file the writers produce is taken and reads to the same
// bits; every text outside the writers' exact shapes is left to them.
#include "formats/leitura_rapida.hpp"
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>

namespace {

// Values that stress the number conversion: integers, negative zero,
// subnormals, the float extremes, long mantissas.
std::vector<cv::KeyPoint> keypointsDificeis(int n) {
  std::mt19937 gerador(7);
  std::uniform_real_distribution<float> u(-1000.0f, 1000.0f);
  std::vector<cv::KeyPoint> k = {
      cv::KeyPoint(0.0f, -0.0f, 1.0f, 359.99998f, 1e-7f, 0, -1),
      cv::KeyPoint(std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
                   std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(), 3.0f,
                   std::numeric_limits<int>::max(), std::numeric_limits<int>::min()),
      cv::KeyPoint(123456.789f, 0.1f, 2.5f, -1.0f, 16777217.0f, 9437440, 7),
  };
  while (static_cast<int>(k.size()) < n) k.emplace_back(u(gerador), u(gerador), u(gerador), u(gerador), u(gerador), 3, -1);
  return k;
}

cv::Mat descritoresFloat(int rows, int cols) {
  cv::Mat_<float> d(rows, cols);
  std::mt19937 gerador(11);
  std::uniform_int_distribution<int> u(0, 255);
  for (int i = 0; i < d.rows; ++i)
    for (int j = 0; j < d.cols; ++j) d(i, j) = (i + j) % 5 == 0 ? u(gerador) / 7.0f : static_cast<float>(u(gerador));
  if (rows > 0 && cols > 2) {
    d(0, 0) = -0.0f;
    d(0, 1) = 1e-42f;
    d(0, 2) = -3.4e38f;
  }
  return std::move(d);
}

cv::Mat descritoresUchar(int rows, int cols) {
  cv::Mat d(rows, cols, CV_8U);
  cv::randu(d, 0, 256);
  return d;
}

struct CasoStore {
  const char* nome;
  int keypoints;
  std::function<cv::Mat()> descritores;  // null: a keypoint store
};

const CasoStore kCasosStore[] = {
    {"SoKeyPoints", 40, nullptr},
    {"Float", 40, [] { return descritoresFloat(40, 128); }},
    {"UmaLinha", 1, [] { return descritoresFloat(1, 128); }},
    {"Uchar", 6, [] { return descritoresUchar(6, 32); }},
    {"Vazio", 0, [] { return cv::Mat(); }},
    {"SemLinhas", 0, [] { return cv::Mat(0, 128, CV_32F); }},
    {"ListaVazia", 0, nullptr},
};

class StoreEscrito : public testing::TestWithParam<std::tuple<CasoStore, const char*>> {};

TEST_P(StoreEscrito, TakenAndReadToTheSameBitsAsFileStorage) {
  const CasoStore& caso = std::get<0>(GetParam());
  teste::PastaTemp pasta;
  const std::string arquivo = pasta / (std::string("s.") + std::get<1>(GetParam()));
  const std::vector<cv::KeyPoint> kps = keypointsDificeis(caso.keypoints);
  if (caso.descritores)
    formats::impDescritores(arquivo, kps, caso.descritores());
  else
    formats::impKeyPoints(arquivo, kps);

  // Outputs already holding something, as a tool reusing them would.
  std::vector<cv::KeyPoint> rapidos(2), lentos(5);
  cv::Mat rapida = cv::Mat::ones(3, 3, CV_64F), lenta = cv::Mat::ones(3, 3, CV_64F);
  ASSERT_TRUE(formats::leStoreRapido(arquivo, rapidos, &rapida)) << teste::leTexto(arquivo);
  formats::leDescritoresFileStorage(arquivo, lentos, lenta);
  EXPECT_TRUE(teste::mesmosBits(rapidos, lentos));
  EXPECT_TRUE(teste::mesmosBits(rapida, lenta)) << rapida.size() << " " << lenta.size() << " " << rapida.type() << " "
                                                << lenta.type();
  EXPECT_EQ(rapidos.size(), kps.size());

  std::vector<cv::KeyPoint> soKeyPoints;
  ASSERT_TRUE(formats::leStoreRapido(arquivo, soKeyPoints, nullptr));
  EXPECT_TRUE(teste::mesmosBits(soKeyPoints, formats::leKeyPointsFileStorage(arquivo)));
}

INSTANTIATE_TEST_SUITE_P(Escritores, StoreEscrito,
                         testing::Combine(testing::ValuesIn(kCasosStore), testing::Values("xml", "yml", "yaml")),
                         [](const testing::TestParamInfo<std::tuple<CasoStore, const char*>>& info) {
                           return std::string(std::get<0>(info.param).nome) + "_" + std::get<1>(info.param);
                         });

const char* const kYaml =
    "%YAML:1.0\n---\nkeypoints: [ 1., 2.5e+00, 3., -4., 5., 0, -1 ]\n"
    "descriptors: !!opencv-matrix\n   rows: 1\n   cols: 2\n   dt: f\n   data: [ 1., 2. ]\n";
const char* const kXml =
    "<?xml version=\"1.0\"?>\n<opencv_storage>\n<keypoints>\n  1. 2.5e+00 3. -4. 5. 0 -1</keypoints>\n"
    "<descriptors type_id=\"opencv-matrix\">\n  <rows>1</rows>\n  <cols>2</cols>\n  <dt>f</dt>\n  <data>\n"
    "    1. 2.</data></descriptors>\n</opencv_storage>\n";

// `base` with its first `de` replaced by `para`.
std::string troca(const char* base, const std::string& de, const std::string& para) {
  std::string s = base;
  const size_t i = s.find(de);
  EXPECT_NE(i, std::string::npos) << de;
  return i == std::string::npos ? s : s.replace(i, de.size(), para);
}

TEST(StoreQuaseIgual, LeftToFileStorage) {
  const struct {
    const char* nome;
    const char* extensao;
    std::string texto;
  } casos[] = {
      {"comentario", "yml", troca(kYaml, "keypoints", "# nota\nkeypoints")},
      {"outroNo", "yml", std::string(kYaml) + "outro: 1\n"},
      {"aninhado", "yml", troca(kYaml, "[ 1., 2.5e+00, 3., -4., 5., 0, -1 ]", "[ [ 1., 2., 3., 4., 5., 0, -1 ] ]")},
      {"dtDouble", "yml", troca(kYaml, "dt: f", "dt: d")},
      {"dtCanais", "yml", troca(kYaml, "dt: f", "dt: 2f")},
      {"base64", "yml", troca(kYaml, "dt: f\n   data: [ 1., 2. ]", "dt: f\n   data: !!binary |\n     AAAA")},
      {"inf", "yml", troca(kYaml, "data: [ 1.,", "data: [ .Inf,")},
      {"nan", "yml", troca(kYaml, "[ 1.,", "[ .Nan,")},
      {"hex", "yml", troca(kYaml, "0, -1 ]", "0x10, -1 ]")},
      {"octal", "yml", troca(kYaml, "0, -1 ]", "010, -1 ]")},
      {"expoenteMaiusculo", "yml", troca(kYaml, "2.5e+00", "2.5E+00")},
      {"sinalMais", "yml", troca(kYaml, "3.,", "+3.,")},
      {"pontoInicial", "yml", troca(kYaml, "3.,", ".3,")},
      {"inteiroGrande", "yml", troca(kYaml, "0, -1 ]", "4294967296, -1 ]")},
      {"expoenteEnorme", "yml", troca(kYaml, "2.5e+00", "2.5e+400")},
      {"floatDemais", "yml", troca(kYaml, "[ 1.,", "[ 1e39,")},
      {"bom", "yml", "\xEF\xBB\xBF" + std::string(kYaml)},
      {"tab", "yml", troca(kYaml, "   rows", "\trows")},
      {"crlf", "yml", troca(kYaml, "1 ]\n", "1 ]\r\n")},
      {"linhasDemais", "yml", troca(kYaml, "rows: 1", "rows: 2")},
      {"dadosDemais", "yml", troca(kYaml, "[ 1., 2. ]", "[ 1., 2., 3. ]")},
      {"seisNumeros", "yml", troca(kYaml, ", 0, -1 ]", ", 0 ]")},
      {"lixoNoFim", "yml", std::string(kYaml) + "..."},
      {"semFimDeLinha", "yml", troca(kYaml, "2. ]\n", "2. ]")},
      {"recuoCurto", "yml", troca(kYaml, "3., -4.,", "3.,\n  -4.,")},
      {"linhaEmBranco", "yml", troca(kYaml, "3., -4.,", "3.,\n\n    -4.,")},
      {"virgulaFinal", "yml", troca(kYaml, "2. ]", "2., ]")},
      {"textoComoYml", "yml", kXml},
      {"xmlComentario", "xml", troca(kXml, "<keypoints>", "<!-- nota --><keypoints>")},
      {"xmlAtributo", "xml", troca(kXml, "<keypoints>", "<keypoints a=\"1\">")},
      {"xmlCdata", "xml", troca(kXml, "1. 2.</data>", "<![CDATA[1. 2.]]></data>")},
      {"xmlBase64", "xml", troca(kXml, "<data>", "<data type_id=\"binary\">")},
      {"xmlUmDado", "xml", troca(troca(kXml, "<cols>2", "<cols>1").c_str(), "1. 2.</data>", "7.</data>")},
      {"xmlLinhasReais", "xml", troca(kXml, "<rows>1</rows>", "<rows>1.</rows>")},
      {"xmlOutroNo", "xml", troca(kXml, "</opencv_storage>", "<x>1</x>\n</opencv_storage>")},
      {"xmlDuasRaizes", "xml", std::string(kXml) + "<opencv_storage></opencv_storage>\n"},
      {"xmlSemEspaco", "xml", troca(kXml, "3. -4.", "3.-4.")},
      {"xmlTab", "xml", troca(kXml, "3. -4.", "3.\t-4.")},
      {"xmlNul", "xml", troca(kXml, "3. -4.", std::string("3. \0-4.", 7))},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    const std::string arquivo = pasta / (std::string("s.") + c.extensao);
    teste::escreveTexto(arquivo, c.texto);
    std::vector<cv::KeyPoint> k;
    cv::Mat d;
    EXPECT_FALSE(formats::leStoreRapido(arquivo, k, &d)) << c.nome;
    EXPECT_FALSE(formats::leStoreRapido(arquivo, k, nullptr)) << c.nome;
  }
  // The unchanged texts are taken: the refusals above are the edits'.
  for (const auto& [texto, extensao] : {std::pair(kYaml, "yml"), std::pair(kXml, "xml")}) {
    teste::PastaTemp pasta;
    teste::escreveTexto(pasta / (std::string("s.") + extensao), texto);
    std::vector<cv::KeyPoint> k;
    cv::Mat d;
    EXPECT_TRUE(formats::leStoreRapido(pasta / (std::string("s.") + extensao), k, &d)) << extensao;
    EXPECT_EQ(k.size(), 1u);
  }
}

TEST(StoreQuaseIgual, CompressedAndOtherNamesAreNotRead) {
  teste::PastaTemp pasta;
  for (const char* nome : {"s.xml.gz", "s.yml.gz", "s.txt", "s.XML"}) {
    teste::escreveTexto(pasta / nome, nome[2] == 'y' ? kYaml : kXml);
    std::vector<cv::KeyPoint> k;
    EXPECT_FALSE(formats::leStoreRapido(pasta / nome, k, nullptr)) << nome;
  }
  std::vector<cv::KeyPoint> k;
  EXPECT_FALSE(formats::leStoreRapido(pasta / "falta.yml", k, nullptr));
  // The public readers still report as before.
  EXPECT_EQ(teste::mensagemDe([&] { formats::leKeyPoints(pasta / "falta.yml"); }),
            "Erro abertura arquivo " + (pasta / "falta.yml"));
}

// Match files: what impMatch writes, and hand-written text in the forms
// tvm::leNum takes.
TEST(MatchRapido, SameBitsAsTheWordReader) {
  const std::vector<cv::KeyPoint> kps = keypointsDificeis(60);
  std::vector<cv::DMatch> escritos;
  for (int i = 0; i < 30; ++i) escritos.emplace_back(i, 59 - i, i == 0 ? 1e30f : i * 0.37f);
  const std::string linha = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
  const struct {
    const char* nome;
    std::string texto;
    size_t casamentos;
  } casos[] = {
      {"escrito", "", escritos.size()},
      {"vazio", "0 15\n", 0},
      {"comentarios", "// antes\n2 15 // depois\n" + linha + "   // no meio\n" + linha, 2},
      {"formasDoStrtod", "1 15\n+1.5 .5 5. 1E5 -2e-3 007 -0 6 7 8 9 10 11 12 +13\n", 1},
      {"brancosDiversos", "1\t15\r\n1\v2\f3 4 5 6 7 8 9 10 11 12 13 14 15", 1},
      {"restoIgnorado", "1 15\n" + linha + "isto nao e lido\n", 1},
      {"subnormal", "1 15\n1e-40 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", 1},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    const std::string arquivo = pasta / "m.txt";
    if (c.texto.empty())
      formats::impMatch(escritos, kps, kps, arquivo);
    else
      teste::escreveTexto(arquivo, c.texto);
    std::vector<cv::DMatch> m = {cv::DMatch(9, 9, 9.0f)}, mLento;
    std::vector<cv::KeyPoint> k1(3), k2, k1Lento, k2Lento(4);
    ASSERT_TRUE(formats::leMatchRapido(arquivo, m, k1, k2)) << c.nome;
    formats::leMatchFscanf(mLento, k1Lento, k2Lento, arquivo);
    EXPECT_EQ(m.size(), c.casamentos) << c.nome;
    EXPECT_TRUE(teste::mesmosBits(m, mLento)) << c.nome;
    EXPECT_TRUE(teste::mesmosBits(k1, k1Lento)) << c.nome;
    EXPECT_TRUE(teste::mesmosBits(k2, k2Lento)) << c.nome;
  }
}

TEST(MatchRapido, OtherTextLeftToTheWordReader) {
  const std::string resto = " 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
  const struct {
    const char* nome;
    std::string texto;
  } casos[] = {
      {"nan", "1 15\nnan" + resto},
      {"inf", "1 15\ninf" + resto},
      {"hex", "1 15\n0x1p3" + resto},
      {"estouro", "1 15\n1e400" + resto},
      {"underflow", "1 15\n1e-400" + resto},
      {"floatDemais", "1 15\n1e39" + resto},
      {"doisSinais", "1 15\n+-1" + resto},
      {"palavraLonga", "1 15\n" + std::string(70, '1') + resto},
      {"octaveReal", "1 15\n1 2 3 4 5 6 7.5 8 9 10 11 12 13 14 15\n"},
      {"octaveGrande", "1 15\n1 2 3 4 5 6 3000000000 8 9 10 11 12 13 14 15\n"},
      {"nul", "1 15\n1" + std::string(1, '\0') + "x" + resto},
      {"truncado", "2 15\n1" + resto},
      {"catorze", "1 14\n1" + resto},
      {"negativo", "-1 15\n"},
      {"vazio", ""},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    teste::escreveTexto(pasta / "m.txt", c.texto);
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    EXPECT_FALSE(formats::leMatchRapido(pasta / "m.txt", m, k1, k2)) << c.nome;
    EXPECT_TRUE(m.empty() && k1.empty() && k2.empty()) << c.nome;
  }
}

}  // namespace
