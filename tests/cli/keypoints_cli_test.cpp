// The Key* tools on the real binary: count lines and the stores they leave
// behind (usage blocks and messages are in mensagens_cli_test).
#include "formats/stores.hpp"
#include "keypoints/key_detect.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <opencv2/features2d.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace {

using Lista = std::vector<cv::KeyPoint>;

bool iguais(const cv::KeyPoint& u, const cv::KeyPoint& v) {
  return u.pt == v.pt && u.size == v.size && u.angle == v.angle && u.response == v.response &&
         u.octave == v.octave && u.class_id == v.class_id;
}

void esperaIguais(const Lista& obtida, const Lista& esperada, const std::string& contexto) {
  ASSERT_EQ(obtida.size(), esperada.size()) << contexto;
  for (size_t i = 0; i < obtida.size(); ++i)
    EXPECT_TRUE(iguais(obtida[i], esperada[i]))
        << contexto << " #" << i << ": " << obtida[i].pt << " " << obtida[i].size << " vs " << esperada[i].pt << " "
        << esperada[i].size;
}

// ---------------------------------------------------------------- detectors

struct CasoDetector {
  const char* nome;
  std::vector<std::string> args;  // after "<tool> img.png k.xml"
  const char* ferramenta;
  const char* formato;            // count line
  std::function<Lista(const cv::Mat_<uchar>&)> referencia;
  cv::Size tamanho = {128, 96};   // STAR's largest filter needs a wide border
  bool tambemPlana = false;       // also run on a flat image, which has no keypoints
};

class Detector : public testing::TestWithParam<CasoDetector> {};

// The store holds exactly what the detector returns, also when that is nothing.
TEST_P(Detector, WritesExactlyWhatTheDetectorFinds) {
  const CasoDetector& c = GetParam();
  for (const bool plana : {false, true}) {
    if (plana && !c.tambemPlana) continue;
    teste::PastaTemp pasta;
    const cv::Mat_<uchar> img =
        plana ? teste::uniforme(60, 80, 128) : teste::textura(c.tamanho.height, c.tamanho.width, 5);
    teste::salva(img, pasta / "img.png");
    std::vector<std::string> args = {c.ferramenta, "img.png", "k.xml"};
    args.insert(args.end(), c.args.begin(), c.args.end());

    const teste::Execucao e = teste::roda(args, pasta.caminho());
    ASSERT_EQ(e.status, 0) << e.err;
    EXPECT_EQ(e.err, "");
    const Lista esperada = c.referencia(img);
    if (plana) {
      EXPECT_TRUE(esperada.empty());
    } else {
      EXPECT_GT(esperada.size(), 5u) << "a textured image should give keypoints";
    }
    char linha[64];
    std::snprintf(linha, sizeof linha, c.formato, static_cast<unsigned>(esperada.size()));
    EXPECT_EQ(teste::semTempo(e.out), linha);
    esperaIguais(formats::leKeyPoints(pasta / "k.xml"), esperada, plana ? "plana" : "textura");
    EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"img.png", "k.xml"}));
  }
}

Lista opencvSift(const cv::Mat& img, int nfeatures, int nOctaveLayers) {
  Lista k;
  cv::SIFT::create(nfeatures, nOctaveLayers, 0.04, 10.0, 1.6)->detect(img, k);
  return k;
}

Lista opencvFast(const cv::Mat& img, int limiar) {
  Lista k;
  cv::FastFeatureDetector::create(limiar, true)->detect(img, k);
  return k;
}

Lista nossoSurf(const cv::Mat& img, std::optional<double> limiar) {
  Lista k;
  keypoints::surfDoKeySurf(limiar).detect(img, k);
  return k;
}

INSTANTIATE_TEST_SUITE_P(
    Casos, Detector,
    testing::Values(
        CasoDetector{"SiftPadrao", {}, "KeySift", "KeyPoints k=%u\n", [](auto& i) { return opencvSift(i, 0, 3); },
                     {128, 96}, true},
        CasoDetector{"SiftTrunca", {"25.9", "2.7"}, "KeySift", "KeyPoints k=%u\n",
                     [](auto& i) { return opencvSift(i, 25, 2); }},
        CasoDetector{"FastPadrao", {}, "KeyFast", "Keypoints=%u\n", [](auto& i) { return opencvFast(i, 10); },
                     {128, 96}, true},
        CasoDetector{"FastLimiar40", {"40"}, "KeyFast", "Keypoints=%u\n", [](auto& i) { return opencvFast(i, 40); }},
        CasoDetector{"SurfPadrao", {}, "KeySurf", "Keypoints=%u\n",
                     [](auto& i) { return nossoSurf(i, std::nullopt); }, {128, 96}, true},
        CasoDetector{"SurfLimiar", {"500"}, "KeySurf", "Keypoints=%u\n", [](auto& i) { return nossoSurf(i, 500.0); }},
        CasoDetector{"Star", {}, "KeyStar", "Keypoints=%u\n",
                     [](auto& i) {
                       Lista k;
                       keypoints::starDoKeyStar().detect(i, k);
                       return k;
                     },
                     {266, 200}, true}),
    [](const testing::TestParamInfo<CasoDetector>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- KeyRand

TEST(KeyRand, SameSeedSameFilesAndOptionsReachTheGenerator) {
  teste::PastaTemp pasta;
  teste::salva(teste::uniforme(80, 100, 50), pasta / "a.png");
  teste::salva(teste::uniforme(400, 400, 50), pasta / "b.png");  // its size must not matter
  teste::salvaMat33(cv::Matx33d(1, 0, 60, 0, 1, 5, 0, 0, 1), pasta / "t.txt");
  const std::vector<std::string> args = {"KeyRand", "a.png", "b.png", "t.txt", "40", "ka.xml", "kb.xml",
                                         "SEED=99",  "diamMin=10", "diammax=20"};
  const teste::Execucao e1 = teste::roda(args, pasta.caminho());
  ASSERT_EQ(e1.status, 0) << e1.err;
  EXPECT_EQ(teste::semTempo(e1.out), "");
  EXPECT_EQ(e1.err, "");
  const std::string a1 = teste::leTexto(pasta / "ka.xml"), b1 = teste::leTexto(pasta / "kb.xml");

  const teste::Execucao e2 = teste::roda(args, pasta.caminho());
  ASSERT_EQ(e2.status, 0) << e2.err;
  EXPECT_EQ(teste::leTexto(pasta / "ka.xml"), a1);
  EXPECT_EQ(teste::leTexto(pasta / "kb.xml"), b1);

  const Lista a = formats::leKeyPoints(pasta / "ka.xml"), b = formats::leKeyPoints(pasta / "kb.xml");
  ASSERT_EQ(a.size(), 40u);
  ASSERT_EQ(b.size(), 40u);
  // The option words reached the generator: diameters in [diamMin, diamMax).
  for (const cv::KeyPoint& k : a) EXPECT_TRUE(k.size >= 10.0f && k.size <= 19.0f) << k.size;
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"a.png", "b.png", "ka.xml", "kb.xml", "t.txt"}));
}

// ---------------------------------------------------------------- KeyCgSize

TEST(KeyCgSize, InPlaceScalesOnlyTheSize) {
  teste::PastaTemp pasta;
  const Lista k = {cv::KeyPoint(10.25f, 20.5f, 7.5f, 45.0f, 0.125f, 3, 9), cv::KeyPoint(1, 2, 0.1f, -1, 0, 0, -1)};
  formats::impKeyPoints(pasta / "a.xml", k);
  const teste::Execucao e = teste::roda({"KeyCgSize", "a.xml", "a.xml", "2"}, pasta.caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(teste::semTempo(e.out), "");
  Lista esperada = k;
  for (cv::KeyPoint& p : esperada) p.size *= 2;
  esperaIguais(formats::leKeyPoints(pasta / "a.xml"), esperada, "fator 2");
  EXPECT_EQ(pasta.conteudo(), std::vector<std::string>{"a.xml"});

  const teste::Execucao e2 = teste::roda({"KeyCgSize", "a.xml", "b.xml", "0.5"}, pasta.caminho());
  ASSERT_EQ(e2.status, 0) << e2.err;
  esperaIguais(formats::leKeyPoints(pasta / "b.xml"), k, "ida e volta");
}

// ---------------------------------------------------------------- KeyGrande

// Image 100 columns x 80 rows. Sorted by size: k2 (30), k4 (20), the three of
// size 10, k5 (6); of the size-10 ones only k0 (x - r = 0) fits.
const Lista kGrande = {
    cv::KeyPoint(5, 40, 10, 1, 0.5f, 0, 0),  cv::KeyPoint(95, 40, 10, 2, 0.5f, 0, 1),
    cv::KeyPoint(50, 40, 30, 3, 0.5f, 0, 2), cv::KeyPoint(50, 75, 10, 4, 0.5f, 0, 3),
    cv::KeyPoint(20, 20, 20, 5, 0.5f, 0, 4), cv::KeyPoint(70, 60, 6, 6, 0.5f, 1, 5),
};

struct CasoGrande {
  const char* nome;
  Lista entrada;
  const char* n;
  std::string saida;
  std::vector<int> classes;  // class_id of the kept keypoints, in order
};

class Grande : public testing::TestWithParam<CasoGrande> {};

TEST_P(Grande, FiltersThenKeepsTheLargest) {
  const CasoGrande& c = GetParam();
  teste::PastaTemp pasta;
  teste::salva(teste::uniforme(80, 100, 0), pasta / "img.png");
  formats::impKeyPoints(pasta / "k.xml", c.entrada);
  const teste::Execucao e = teste::roda({"KeyGrande", "img.png", "k.xml", "s.xml", c.n}, pasta.caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(e.err, "");
  EXPECT_EQ(teste::semTempo(e.out), c.saida);
  Lista esperada;
  for (int id : c.classes) esperada.push_back(kGrande[id]);
  esperaIguais(formats::leKeyPoints(pasta / "s.xml"), esperada, c.nome);
}

const std::string kFiltro = "Apaguei keys que intersectam canvas. Keys inicio=6 Keys depois=4.\n";

INSTANTIATE_TEST_SUITE_P(
    Casos, Grande,
    testing::Values(
        CasoGrande{"NZeroSoFiltra", kGrande, "0", kFiltro + "n=0 size=4. Nao vou apagar keypoints\n", {2, 4, 0, 5}},
        CasoGrande{"NIgualAoTotal", kGrande, "4", kFiltro + "n=4 size=4. Nao vou apagar keypoints\n", {2, 4, 0, 5}},
        CasoGrande{"NMenor", kGrande, "2", kFiltro + "n=2 size=4. Vou apagar 2 keypoints\n", {2, 4}},
        CasoGrande{"NUmAMais", kGrande, "5", kFiltro + "n=5 size=4. Vou apagar 4294967295 keypoints\n", {2, 4, 0, 5}},
        CasoGrande{"Vazio",
                   {},
                   "0",
                   "Apaguei keys que intersectam canvas. Keys inicio=0 Keys depois=0.\nn=0 size=0. Nao vou apagar "
                   "keypoints\n",
                   {}}),
    [](const testing::TestParamInfo<CasoGrande>& i) { return std::string(i.param.nome); });

}  // namespace
