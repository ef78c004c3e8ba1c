// The Key* and Des* tools on the real binary: count lines and the stores they
// leave behind, bit for bit those of the computation they wrap (usage blocks
// and messages are in mensagens_cli_test).
#include "descriptors/forapro.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "features/star.hpp"
#include "features/surf.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

using Lista = std::vector<cv::KeyPoint>;

// `arquivo` holds exactly `esperada` (floats print round-trip exact: equal texts, equal bits).
void confereStore(const std::string& arquivo, const Lista& esperada) {
  teste::PastaTemp p;
  formats::impKeyPoints(p / "e.xml", esperada);
  EXPECT_EQ(teste::leTexto(arquivo), teste::leTexto(p / "e.xml"));
}

// On a texture (STAR's largest filter needs a wide border) and on a flat
// image, which has no keypoints. The references spell out each detector's
// parameters as the tools document them, so a tool that drifts from them
// fails here: KeySurf's threshold also drops a layer and turns on the
// extended flag; KeySift's two numbers are truncated into nfeatures and
// nOctaveLayers.
TEST(Detectores, WriteExactlyWhatTheDetectorFinds) {
  const struct {
    std::vector<std::string> args;  // the tool word, then what follows "img.png k.xml"
    std::string contagem;           // the count line, before the number
    std::function<void(const cv::Mat&, Lista&)> referencia;
  } casos[] = {
      {{"KeySift"}, "KeyPoints k=", [](auto& i, auto& k) { cv::SIFT::create(0, 3, 0.04, 10.0, 1.6)->detect(i, k); }},
      {{"KeySift", "25.9", "2.7"}, "KeyPoints k=", [](auto& i, auto& k) { cv::SIFT::create(25, 2, 0.04, 10.0, 1.6)->detect(i, k); }},
      {{"KeyFast"}, "Keypoints=", [](auto& i, auto& k) { cv::FastFeatureDetector::create(10, true)->detect(i, k); }},
      {{"KeyFast", "40"}, "Keypoints=", [](auto& i, auto& k) { cv::FastFeatureDetector::create(40, true)->detect(i, k); }},
      {{"KeySurf"}, "Keypoints=", [](auto& i, auto& k) { features::SURF(100, 4, 3, false, false).detect(i, k); }},
      {{"KeySurf", "500"}, "Keypoints=", [](auto& i, auto& k) { features::SURF(500, 4, 2, true, false).detect(i, k); }},
      {{"KeyStar"}, "Keypoints=", [](auto& i, auto& k) { features::StarDetector(64, 10, 10, 8, 5).detect(i, k); }},
  };
  for (const auto& c : casos)
    for (const cv::Mat_<uchar>& img : {teste::textura(200, 266, 5), teste::uniforme(60, 80, 128)}) {
      SCOPED_TRACE(testing::PrintToString(c.args));
      teste::PastaTemp pasta;
      teste::salva(img, pasta / "img.png");
      std::vector<std::string> args = {c.args[0], "img.png", "k.xml"};
      args.insert(args.end(), c.args.begin() + 1, c.args.end());
      Lista esperada;
      c.referencia(img, esperada);
      EXPECT_EQ(esperada.empty(), img.rows == 60);
      const std::vector<std::string> avisos = {"nenhum keypoint em k.xml"};
      EXPECT_EQ(teste::rodaComAvisos(args, pasta.caminho(), esperada.empty() ? avisos : std::vector<std::string>{}),
                c.contagem + std::to_string(esperada.size()) + "\n");
      confereStore(pasta / "k.xml", esperada);
      EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"img.png", "k.xml"}));
    }
}

TEST(KeyRand, SameSeedSameFilesAndOptionsReachTheGenerator) {
  teste::PastaTemp pasta;
  teste::salva(teste::uniforme(80, 100, 50), pasta / "a.png");
  teste::salva(teste::uniforme(400, 400, 50), pasta / "b.png");  // its size must not matter
  teste::salvaMat33(cv::Matx33d(1, 0, 60, 0, 1, 5, 0, 0, 1), pasta / "t.txt");
  const std::vector<std::string> args = {"KeyRand", "a.png", "b.png", "t.txt", "40", "ka.xml", "kb.xml",
                                         "SEED=99", "diamMin=10", "diammax=20"};
  EXPECT_EQ(teste::rodaBem(args, pasta.caminho()), "");
  const std::string primeira = teste::leTexto(pasta / "ka.xml") + teste::leTexto(pasta / "kb.xml");
  EXPECT_EQ(teste::rodaBem(args, pasta.caminho()), "");
  EXPECT_EQ(teste::leTexto(pasta / "ka.xml") + teste::leTexto(pasta / "kb.xml"), primeira);
  ASSERT_EQ(formats::leKeyPoints(pasta / "kb.xml").size(), 40u);
  ASSERT_EQ(formats::leKeyPoints(pasta / "ka.xml").size(), 40u);
  for (const cv::KeyPoint& k : formats::leKeyPoints(pasta / "ka.xml"))
    EXPECT_TRUE(k.size >= 10.0f && k.size <= 19.0f) << k.size;
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"a.png", "b.png", "ka.xml", "kb.xml", "t.txt"}));
}

TEST(KeyCgSize, InPlaceScalesOnlyTheSize) {
  teste::PastaTemp pasta;
  const Lista k = {cv::KeyPoint(10.25f, 20.5f, 7.5f, 45.0f, 0.125f, 3, 9), cv::KeyPoint(1, 2, 0.1f, -1, 0, 0, -1)};
  formats::impKeyPoints(pasta / "a.xml", k);
  EXPECT_EQ(teste::rodaBem({"KeyCgSize", "a.xml", "a.xml", "2"}, pasta.caminho()), "");
  Lista dobro = k;
  for (cv::KeyPoint& p : dobro) p.size *= 2;
  confereStore(pasta / "a.xml", dobro);
  EXPECT_EQ(pasta.conteudo(), std::vector<std::string>{"a.xml"});
  EXPECT_EQ(teste::rodaBem({"KeyCgSize", "a.xml", "b.xml", "0.5"}, pasta.caminho()), "");
  confereStore(pasta / "b.xml", k);
}

// Image 100 columns x 80 rows. Sorted by size: k2 (30), k4 (20), the three of
// size 10, k5 (6); of the size-10 ones only k0 (x - r = 0) fits.
const Lista kGrande = {
    cv::KeyPoint(5, 40, 10, 1, 0.5f, 0, 0),  cv::KeyPoint(95, 40, 10, 2, 0.5f, 0, 1),
    cv::KeyPoint(50, 40, 30, 3, 0.5f, 0, 2), cv::KeyPoint(50, 75, 10, 4, 0.5f, 0, 3),
    cv::KeyPoint(20, 20, 20, 5, 0.5f, 0, 4), cv::KeyPoint(70, 60, 6, 6, 0.5f, 1, 5),
};

TEST(KeyGrande, FiltersThenKeepsTheLargest) {
  const std::string filtro = "Apaguei keys que intersectam canvas. Keys inicio=6 Keys depois=4.\n";
  const struct {
    const char* n;
    std::string saida;
    std::vector<int> mantidos;  // indices in kGrande, in order; none when the input is empty
  } casos[] = {
      {"0", filtro + "n=0 size=4. Nao vou apagar keypoints\n", {2, 4, 0, 5}},
      {"4", filtro + "n=4 size=4. Nao vou apagar keypoints\n", {2, 4, 0, 5}},
      {"2", filtro + "n=2 size=4. Vou apagar 2 keypoints\n", {2, 4}},
      {"5", filtro + "n=5 size=4. Vou apagar 4294967295 keypoints\n", {2, 4, 0, 5}},
      {"0", "Apaguei keys que intersectam canvas. Keys inicio=0 Keys depois=0.\nn=0 size=0. Nao vou apagar keypoints\n", {}},
  };
  for (const auto& c : casos) {
    teste::PastaTemp pasta;
    teste::salva(teste::uniforme(80, 100, 0), pasta / "img.png");
    formats::impKeyPoints(pasta / "k.xml", c.mantidos.empty() ? Lista{} : kGrande);
    const std::vector<std::string> avisos = {"nenhum keypoint em s.xml"};
    EXPECT_EQ(teste::rodaComAvisos({"KeyGrande", "img.png", "k.xml", "s.xml", c.n}, pasta.caminho(),
                                   c.mantidos.empty() ? avisos : std::vector<std::string>{}),
              c.saida);
    Lista esperada;
    for (int i : c.mantidos) esperada.push_back(kGrande[i]);
    confereStore(pasta / "s.xml", esperada);
  }
}

// Angles as KeyRand leaves them (a partner's below 0) and as FAST leaves
// them (-1); only the angle may change, the order and every other field stay.
TEST(KeyAngulo, RewritesOnlyTheAnglesForTheirReader) {
  const Lista entrada = {cv::KeyPoint(10, 20, 30, 30, 0.5f, 1, 7), cv::KeyPoint(40, 50, 12, -90, 0, 0, -1),
                         cv::KeyPoint(5, 6, 7, 0, 0, 0, -1), cv::KeyPoint(8, 9, 10, -1, 2, 3, 4),
                         cv::KeyPoint(1, 2, 3, 400, 0, 0, -1)};
  const struct {
    std::vector<std::string> opcoes;
    std::string linha;
    std::vector<float> angulos;
  } casos[] = {
      {{}, "Keypoints=5 de=ccw para=opencv angulos mudados=4\n", {330, 90, 0, 1, 320}},
      {{"para=ccw"}, "Keypoints=5 de=opencv para=ccw angulos mudados=4\n", {330, 90, 0, 1, 320}},
      {{"para=DesSimp", "de=KeyRand"}, "Keypoints=5 de=ccw para=ccw angulos mudados=3\n", {30, 270, 0, 359, 40}},
      {{"PARA=dessift", "de=KeySift"}, "Keypoints=5 de=opencv para=opencv angulos mudados=3\n", {30, 270, 0, 359, 40}},
      {{"para=DesRihog"}, "Keypoints=5 de=nenhuma para=nenhuma angulos mudados=3\n", {30, 270, 0, 359, 40}},
      {{"para=DesSift", "de=KeyFast"}, "Keypoints=5 de=nenhuma para=opencv angulos mudados=3\n", {30, 270, 0, 359, 40}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(testing::PrintToString(c.opcoes));
    teste::PastaTemp pasta;
    formats::impKeyPoints(pasta / "k.xml", entrada);
    std::vector<std::string> args = {"KeyAngulo", "k.xml", "k.xml"};
    args.insert(args.end(), c.opcoes.begin(), c.opcoes.end());
    EXPECT_EQ(teste::rodaBem(args, pasta.caminho()), c.linha);
    Lista esperada = entrada;
    for (size_t i = 0; i < esperada.size(); ++i) esperada[i].angle = c.angulos[i];
    confereStore(pasta / "k.xml", esperada);
  }
}

// Results that would mislead are flagged on stderr; stdout and status stay.
TEST(Avisos, OQueEnganariaVaiParaStderr) {
  const struct {
    const char* nome;
    std::vector<std::string> args;
    std::string out;
    std::vector<std::string> avisos;
  } casos[] = {
      // Partners fitted to a's 100 x 80 frame, moved 60 to the right: none inside b's 50 x 50.
      {"parceirosForaDeB",
       {"KeyRand", "a.png", "b.png", "t.txt", "40", "ka.xml", "kb.xml", "diamMin=10", "diamMax=20"},
       "",
       {"40 de 40 keypoints de kb.xml passam da borda de b.png (50x50): a matriz leva a imagem a para a b?"}},
      {"nenhumPar", {"KeyRand", "a.png", "b.png", "t.txt", "0", "ka.xml", "kb.xml"}, "",
       {"nenhum keypoint em ka.xml", "nenhum keypoint em kb.xml"}},
      {"storeVazio", {"KeyAngulo", "vazio.xml", "s.xml"}, "Keypoints=0 de=ccw para=opencv angulos mudados=0\n",
       {"nenhum keypoint em s.xml"}},
      {"surfDescarta", {"DesSurf", "a.png", "d.xml", "fora.xml"}, "KeyPoints k=2\n",
       {"1 de 2 keypoints descartados pelo descritor: d.xml guarda 1; compare os descritores nos keypoints que "
        "ficaram"}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.nome);
    teste::PastaTemp pasta;
    teste::salva(teste::textura(80, 100, 3), pasta / "a.png");
    teste::salva(teste::uniforme(50, 50, 50), pasta / "b.png");
    teste::salvaMat33(cv::Matx33d(1, 0, 60, 0, 1, 5, 0, 0, 1), pasta / "t.txt");
    formats::impKeyPoints(pasta / "vazio.xml", {});
    formats::impKeyPoints(pasta / "fora.xml", {cv::KeyPoint(50, 40, 12), cv::KeyPoint(500, 40, 12)});
    EXPECT_EQ(teste::rodaComAvisos(c.args, pasta.caminho(), c.avisos), c.out);
  }
}

const cv::Mat_<uchar> kImagem = teste::textura(160, 160, 21);

cv::Ptr<cv::SIFT> sift() { return cv::SIFT::create(0, 3, 0.04, 10.0, 1.6); }

// The keypoints of a run: with k.xml twelve well inside the image; with s.xml
// (octave and layer packed in `octave`), or with no key file but some word
// (DesSift needs none), what SIFT detects; with no word at all none, and no
// count line.
Lista chaves(const std::vector<std::string>& args) {
  Lista k;
  const bool doze = std::find(args.begin(), args.end(), "key=k.xml") != args.end() || args.back() == "k.xml";
  for (int i = 0; doze && i < 12; ++i)
    k.emplace_back(45.0f + 6.0f * i, 115.0f - 5.0f * i, 10.0f + 3.0f * i, 30.0f * i, 0.0f, 0, -1);
  if (!doze && (args.size() > 1 || args[0] == "DesSift")) sift()->detect(kImagem, k);
  return k;
}

void siftCv(const cv::Mat_<uchar>& i, Lista& k, cv::Mat& d) { sift()->compute(i, k, d); }

TEST(Descritores, StoreHoldsTheKeypointsAndRowsOfThoseOptions) {
  const struct {
    std::vector<std::string> args;  // the tool word, then what follows "a.png d.xml"
    // The same descriptor computed in-process; it may drop keypoints.
    std::function<void(const cv::Mat_<uchar>&, Lista&, cv::Mat&)> referencia;
    // Every row the same: RIFF's quantised derivatives take one level on this smooth texture.
    bool linhasIguais = false;
  } casos[] = {
      {{"DesSimp", "key=k.xml", "camadas=1", "modo=copy"}, [](auto& i, auto& k, auto& d) { SIMPLE('c', 1, 11).compute(i, k, d); }},
      {{"DesSimp", "CAMADAS=4", "key=k.xml", "MODO=i", "dgauss=7"}, [](auto& i, auto& k, auto& d) { SIMPLE('i', 4, 7).compute(i, k, d); }},
      {{"DesSimp", "key=k.xml", "modo="}, [](auto& i, auto& k, auto& d) { SIMPLE('c', 6, 11).compute(i, k, d); }},
      {{"DesRiff", "key=k.xml", "naneis=3", "larguraAnel=5"}, [](auto& i, auto& k, auto& d) { RIFF(3, 5).compute(i, k, d); }, true},
      {{"DesSurf", "k.xml"}, [](auto& i, auto& k, auto& d) { features::SURF().compute(i, k, d); }},
      {{"desrihog", "key=k.xml"}, [](auto& i, auto& k, auto& d) { RIHOG().compute(i, k, d); }},
      {{"desrihog", "nbins=8", "key=k.xml", "bcinv=false", "naneis=4"}, [](auto& i, auto& k, auto& d) { RIHOG(4, 40, 8, 37, false).compute(i, k, d); }},
      {{"DesRUHOG", "key=k.xml", "RAIO=20", "nGauss=9"}, [](auto& i, auto& k, auto& d) { RUHOG(5, 20, 20, 9, true).compute(i, k, d); }},
      {{"desforapro", "key=k.xml"}, [](auto& i, auto& k, auto& d) { Forapro().compute(i, k, d); }},
      {{"desforapro", "key=k.xml", "radang=0", "cirvet=false", "nrad=3", "raio=20"}, [](auto& i, auto& k, auto& d) { Forapro(3, 4, 20, false, true, false).compute(i, k, d); }},
      // An option but no key file: SIFT finds the keypoints (and the defaults hold).
      {{"DesRiff", "naneis=4"}, [](auto& i, auto& k, auto& d) { RIFF().compute(i, k, d); }, true},
      {{"desforapro", "raio=10"}, [](auto& i, auto& k, auto& d) { Forapro(4, 4, 10).compute(i, k, d); }},
      // No word at all: an empty store.
      {{"DesSimp"}, [](auto& i, auto& k, auto& d) { SIMPLE().compute(i, k, d); }},
      {{"desruhog"}, [](auto& i, auto& k, auto& d) { RUHOG().compute(i, k, d); }},
      {{"desforapro"}, [](auto& i, auto& k, auto& d) { Forapro().compute(i, k, d); }},
      // DesSift is OpenCV's SIFT bit for bit, on given keypoints and on its own.
      {{"DesSift", "k.xml"}, siftCv},
      {{"DesSift", "s.xml"}, siftCv},
      {{"DesSift"}, siftCv},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    teste::PastaTemp pasta, esperada;
    teste::salva(kImagem, pasta / "a.png");
    formats::impKeyPoints(pasta / "k.xml", chaves({"", "k.xml"}));
    formats::impKeyPoints(pasta / "s.xml", chaves({"", "s.xml"}));
    std::vector<std::string> args = {c.args[0], "a.png", "d.xml"};
    args.insert(args.end(), c.args.begin() + 1, c.args.end());
    Lista k = chaves(c.args);
    const std::string contagem = k.empty() ? "" : "KeyPoints k=" + std::to_string(k.size()) + "\n";
    cv::Mat d;
    c.referencia(kImagem, k, d);
    std::vector<std::string> avisos;
    if (c.args.size() == 1 && c.args[0] != "DesSift")
      avisos.push_back("sem opcoes nenhum keypoint e' lido nem detectado: d.xml fica vazio "
                       "(key=KeyA.xml le um store; qualquer opcao detecta com SIFT)");
    if (c.linhasIguais) {
      ASSERT_GT(d.rows, 1);
      EXPECT_EQ(cv::norm(d, cv::repeat(d.row(0), d.rows, 1), cv::NORM_INF), 0.0);
      const std::string n = std::to_string(d.rows);
      avisos.push_back(n + " de " + n + " linhas de d.xml repetem outra linha: regioes pequenas demais para o "
                       "descritor? (KeyCgSize)");
    }
    EXPECT_EQ(teste::rodaComAvisos(args, pasta.caminho(), avisos), contagem);
    formats::impDescritores(esperada / "d.xml", k, d);
    EXPECT_EQ(teste::leTexto(pasta / "d.xml"), teste::leTexto(esperada / "d.xml"));
  }
}

}  // namespace
