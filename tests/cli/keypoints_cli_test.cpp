// The Key* tools on the real binary: usage blocks, messages, count lines and
// the stores they leave behind.
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

const std::string kErroUso = "Erro: Numero de argumentos invalido\n";

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

std::string linhas(std::initializer_list<const char*> ls) {
  std::string s;
  for (const char* l : ls) s += std::string(l) + "\n";
  return s;
}

// ---------------------------------------------------------------- usage blocks

struct CasoUso {
  const char* nome;
  std::vector<std::string> args;
  std::string saida;
};

class Uso : public testing::TestWithParam<CasoUso> {};

TEST_P(Uso, WrongWordCountPrintsUsageAndStops) {
  const CasoUso& c = GetParam();
  teste::PastaTemp pasta;
  const teste::Execucao e = teste::roda(c.args, pasta.caminho());
  EXPECT_EQ(e.out, c.saida);
  EXPECT_EQ(e.err, kErroUso);
  EXPECT_EQ(e.status, 1);
  EXPECT_TRUE(pasta.conteudo().empty());
}

const std::string kUsoSift = linhas({"KeySift a.pgm a.xml [thresh edgethresh]", "  Ex: KeySift a.pgm a.xml 0.02 10"});
const std::string kUsoSurf = linhas({"KeySurf a.pgm a.xml [thresh]", "  Ex: KeySurf a.pgm a.xml 8000"});
const std::string kUsoFast = linhas({"KeyFast a.pgm a.xml [thresh]", "  Ex: KeyFast a.pgm a.xml 1"});
const std::string kUsoStar = linhas({"KeyStar a.pgm a.xml", "  Ex: KeySift a.pgm a.xml"});
const std::string kUsoRand = linhas({"KeyRand a.pgm b.pgm mat33.txt n keyA.xml keyB.xml",
                                     "  [seed=7 diamMin=30 diamMax=40 pertPt=0 pertDiam=0 pertDeg=0]"});
const std::string kUsoCg =
    linhas({"KeyCgSize ent.xml sai.xml fator", "  Change key size por fator. Pode ter ent.xml=sai.xml"});
const std::string kUsoGrande = linhas({"KeyGrande ent.pgm ent.xml sai.xml n",
                                       "  Seleciona n maiores keypoints sem interseccao com canvas",
                                       "  Se n e' zero ou muito grande, apenas filtra os keypoints com inter"});

INSTANTIATE_TEST_SUITE_P(
    Casos, Uso,
    testing::Values(CasoUso{"SiftSozinho", {"KeySift"}, kUsoSift},
                    CasoUso{"SiftUmNumero", {"keysift", "a.png", "a.xml", "0.02"}, kUsoSift},
                    CasoUso{"SiftTresNumeros", {"KeySift", "a.png", "a.xml", "1", "2", "3"}, kUsoSift},
                    CasoUso{"SurfSemSaida", {"KeySurf", "a.png"}, kUsoSurf},
                    CasoUso{"SurfDoisNumeros", {"KeySurf", "a.png", "a.xml", "1", "2"}, kUsoSurf},
                    CasoUso{"FastSemSaida", {"KeyFast", "a.png"}, kUsoFast},
                    CasoUso{"FastDoisNumeros", {"KEYFAST", "a.png", "a.xml", "1", "2"}, kUsoFast},
                    CasoUso{"StarComLimiar", {"KeyStar", "a.png", "a.xml", "20"}, kUsoStar},
                    CasoUso{"RandSeisPalavras", {"KeyRand", "a.png", "b.png", "m.txt", "5", "a.xml"}, kUsoRand},
                    CasoUso{"CgSizeSemFator", {"KeyCgSize", "a.xml", "b.xml"}, kUsoCg},
                    CasoUso{"CgSizeDemais", {"KeyCgSize", "a.xml", "b.xml", "2", "3"}, kUsoCg},
                    CasoUso{"GrandeSemN", {"KeyGrande", "a.png", "a.xml", "b.xml"}, kUsoGrande},
                    CasoUso{"GrandeDemais", {"KeyGrande", "a.png", "a.xml", "b.xml", "1", "2"}, kUsoGrande}),
    [](const testing::TestParamInfo<CasoUso>& i) { return std::string(i.param.nome); });

// ---------------------------------------------------------------- failures

struct CasoErro {
  const char* nome;
  std::vector<std::string> args;
  std::string erro;
};

class Falha : public testing::TestWithParam<CasoErro> {};

// Inputs every case may use: a.png (64x48), m.txt (identity), k.xml (3 keypoints).
TEST_P(Falha, StopsWithItsMessageAndWritesNothing) {
  const CasoErro& c = GetParam();
  teste::PastaTemp pasta;
  teste::salva(teste::textura(48, 64, 3), pasta / "a.png");
  teste::salvaMat33(cv::Matx33d::eye(), pasta / "m.txt");
  formats::impKeyPoints(pasta / "k.xml", {cv::KeyPoint(10, 10, 5), cv::KeyPoint(20, 20, 6), cv::KeyPoint(30, 30, 7)});
  const std::vector<std::string> antes = pasta.conteudo();

  const teste::Execucao e = teste::roda(c.args, pasta.caminho());
  EXPECT_EQ(e.out, "");
  // OpenCV may log its own line first; ours is the last.
  const std::string fim = c.erro + "\n";
  EXPECT_TRUE(e.err.size() >= fim.size() && e.err.compare(e.err.size() - fim.size(), fim.size(), fim) == 0)
      << e.err;
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.sinal, 0);
  EXPECT_EQ(pasta.conteudo(), antes);
}

const std::vector<std::string> kRand = {"KeyRand", "a.png", "a.png", "m.txt", "5", "ka.xml", "kb.xml"};

std::vector<std::string> mais(std::vector<std::string> base, std::initializer_list<std::string> extra) {
  base.insert(base.end(), extra);
  return base;
}

INSTANTIATE_TEST_SUITE_P(
    Casos, Falha,
    testing::Values(
        CasoErro{"RandOpcaoDesconhecida", mais(kRand, {"foo=1"}), "Erro: Argumento invalido foo 1"},
        CasoErro{"RandOpcaoRepetida", mais(kRand, {"seed=1", "seed=2"}), "Erro: Argumento invalido seed 2"},
        CasoErro{"RandDiametrosIguais", mais(kRand, {"diamMax=30"}),
                 "Erro: diamMax deve ser maior que diamMin, diamMin=30 diamMax=30"},
        CasoErro{"RandNaoCabe", mais(kRand, {"diamMin=60", "diamMax=70"}),
                 "Erro: nenhum keypoint cabe na imagem apos 1000000 sorteios seguidos (diametros grandes demais ou "
                 "transformacao leva tudo para fora)"},
        CasoErro{"RandSemMatriz", {"KeyRand", "a.png", "a.png", "x.txt", "5", "ka.xml", "kb.xml"},
                 "Erro arquivo inexistente x.txt"},
        CasoErro{"RandSaidaImpossivel", {"KeyRand", "a.png", "a.png", "m.txt", "5", "nada/ka.xml", "kb.xml"},
                 "Erro abertura arquivo nada/ka.xml"},
        CasoErro{"CgSizeSemEntrada", {"KeyCgSize", "x.xml", "s.xml", "2"}, "Erro abertura arquivo x.xml"},
        CasoErro{"CgSizeSaidaImpossivel", {"KeyCgSize", "k.xml", "nada/s.xml", "2"},
                 "Erro abertura arquivo nada/s.xml"},
        CasoErro{"CgSizeFatorInfinito", {"KeyCgSize", "k.xml", "s.xml", "1e300"},
                 "Erro: fator leva o tamanho a infinito 1e300"},
        CasoErro{"GrandeNNegativo", {"KeyGrande", "a.png", "k.xml", "s.xml", "-1"}, "Erro: n invalido"},
        CasoErro{"GrandeSemEntrada", {"KeyGrande", "a.png", "x.xml", "s.xml", "1"}, "Erro abertura arquivo x.xml"},
        CasoErro{"SiftSemCamadas", {"KeySift", "a.png", "s.xml", "0.02", "0"}, "Erro: numero de camadas invalido 0"},
        CasoErro{"SiftNumeroEnorme", {"KeySift", "a.png", "s.xml", "1e20", "3"},
                 "Erro: numero fora do intervalo 1e20"},
        CasoErro{"FastLimiarReal", {"KeyFast", "a.png", "s.xml", "1.5"}, "Erro: numero inteiro invalido 1.5"}),
    [](const testing::TestParamInfo<CasoErro>& i) { return std::string(i.param.nome); });

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
        // The two numbers are nfeatures and layers, whatever the usage says.
        CasoDetector{"SiftExemplo", {"0.02", "10"}, "KeySift", "KeyPoints k=%u\n",
                     [](auto& i) { return opencvSift(i, 0, 10); }},
        CasoDetector{"SiftMelhores", {"40", "3"}, "KeySift", "KeyPoints k=%u\n",
                     [](auto& i) { return opencvSift(i, 40, 3); }},
        CasoDetector{"SiftTrunca", {"25.9", "2.7"}, "KeySift", "KeyPoints k=%u\n",
                     [](auto& i) { return opencvSift(i, 25, 2); }},
        CasoDetector{"FastPadrao", {}, "KeyFast", "Keypoints=%u\n", [](auto& i) { return opencvFast(i, 10); },
                     {128, 96}, true},
        CasoDetector{"FastLimiar1", {"1"}, "keyfast", "Keypoints=%u\n", [](auto& i) { return opencvFast(i, 1); }},
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

TEST(Detector, SiftFewerFeaturesWhenAsked) {
  // Guards the agreement test against a reference that ignores nfeatures.
  const cv::Mat_<uchar> img = teste::textura(96, 128, 5);
  EXPECT_LT(opencvSift(img, 40, 3).size(), opencvSift(img, 0, 3).size());
  EXPECT_NE(opencvSift(img, 0, 10).size(), opencvSift(img, 0, 3).size());
}

// ---------------------------------------------------------------- KeyRand

TEST(KeyRand, SameSeedSameFilesAndPartnersFitImageAFrame) {
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
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(b[i].pt, a[i].pt + cv::Point2f(60, 5));
    EXPECT_GE(a[i].size, 10.0f);
    EXPECT_LE(a[i].size, 19.0f);
    EXPECT_LT(b[i].pt.x + 0.5 * b[i].size, 100.0);
    EXPECT_LT(b[i].pt.y + 0.5 * b[i].size, 80.0);
  }
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
        CasoGrande{"NUm", kGrande, "1", kFiltro + "n=1 size=4. Vou apagar 3 keypoints\n", {2}},
        CasoGrande{"NUmAMais", kGrande, "5", kFiltro + "n=5 size=4. Vou apagar 4294967295 keypoints\n", {2, 4, 0, 5}},
        CasoGrande{"NEnorme", kGrande, "1000", kFiltro + "n=1000 size=4. Vou apagar 4294966300 keypoints\n",
                   {2, 4, 0, 5}},
        CasoGrande{"Vazio",
                   {},
                   "0",
                   "Apaguei keys que intersectam canvas. Keys inicio=0 Keys depois=0.\nn=0 size=0. Nao vou apagar "
                   "keypoints\n",
                   {}}),
    [](const testing::TestParamInfo<CasoGrande>& i) { return std::string(i.param.nome); });

}  // namespace
