// The table's rows that OpenCV computes, through the real binary: each row
// tool writes, bit for bit, what OpenCV's own object gives on the same image.
// The expected side builds those objects here, from OpenCV's defaults or the
// values an option names, never through the table's builders: a builder that
// drops an option or maps a word to the wrong enum fails here.
#include "algoritmos/tabela.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>

namespace {

using Lista = std::vector<cv::KeyPoint>;
using Fabrica = std::function<cv::Ptr<cv::Feature2D>()>;

// One row per OpenCV row of the table: what its tool must equal with no options.
const std::map<std::string, Fabrica> kPadroes = {
    {"orb", [] { return cv::ORB::create(); }},
    {"brisk", [] { return cv::BRISK::create(); }},
    {"akaze", [] { return cv::AKAZE::create(); }},
    {"kaze", [] { return cv::KAZE::create(); }},
    {"agast", [] { return cv::AgastFeatureDetector::create(); }},
    {"gftt", [] { return cv::GFTTDetector::create(); }},
    {"harris", [] { return cv::GFTTDetector::create(1000, 0.01, 1, 3, true); }},
    {"mser", [] { return cv::MSER::create(); }},
    {"blob", [] { return cv::SimpleBlobDetector::create(); }},
    {"rootsift", [] { return cv::SIFT::create(); }},
};

struct Caso {
  std::string ferramenta;
  std::vector<std::string> opcoes;
  Fabrica opencv;
};

std::string nomeDoCaso(const testing::TestParamInfo<Caso>& i) {
  std::string n = i.param.ferramenta;
  for (const std::string& o : i.param.opcoes) {
    n += '_';
    for (char c : o) n += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  }
  return n;
}

void PrintTo(const Caso& c, std::ostream* os) { *os << testing::PrintToString(c.opcoes); }

// Null for a row added to the table and not here: its case fails.
Fabrica padrao(const char* nome) {
  const auto f = kPadroes.find(nome);
  return f == kPadroes.end() ? Fabrica() : f->second;
}

std::vector<Caso> casosDeDetector() {
  std::vector<Caso> c;
  for (const auto& l : algoritmos::detectores())
    if (l.propria == nullptr) c.push_back({l.ferramenta, {}, padrao(l.nome)});
  cv::SimpleBlobDetector::Params claras;
  claras.blobColor = 255;
  claras.minArea = 10;
  const std::vector<Caso> opcoes = {
      {"KeyOrb", {"nfeatures=1000", "scoretype=fast"},
       [] { return cv::ORB::create(1000, 1.2f, 8, 31, 0, 2, cv::ORB::FAST_SCORE); }},
      {"KeyBrisk", {"thresh=50", "octaves=2"}, [] { return cv::BRISK::create(50, 2); }},
      {"KeyAkaze", {"diffusivity=charbonnier", "threshold=0.002"},
       [] { return cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_MLDB, 0, 3, 0.002f, 4, 4, cv::KAZE::DIFF_CHARBONNIER); }},
      {"KeyKaze", {"diffusivity=weickert", "noctaves=3"},
       [] { return cv::KAZE::create(false, false, 0.001f, 3, 4, cv::KAZE::DIFF_WEICKERT); }},
      {"KeyAgast", {"type=agast_7_12s", "threshold=20"},
       [] { return cv::AgastFeatureDetector::create(20, true, cv::AgastFeatureDetector::AGAST_7_12s); }},
      {"KeyGftt", {"maxcorners=300", "mindistance=4"}, [] { return cv::GFTTDetector::create(300, 0.01, 4); }},
      {"KeyHarris", {"k=0.06", "blocksize=5"}, [] { return cv::GFTTDetector::create(1000, 0.01, 1, 5, true, 0.06); }},
      {"KeyMser", {"delta=3"}, [] { return cv::MSER::create(3); }},
      {"KeyBlob", {"blobcolor=255", "minarea=10"}, [claras] { return cv::SimpleBlobDetector::create(claras); }},
  };
  c.insert(c.end(), opcoes.begin(), opcoes.end());
  return c;
}

std::vector<Caso> casosDeDescritor() {
  std::vector<Caso> c;
  for (const auto& l : algoritmos::descritores())
    if (l.propria == nullptr) c.push_back({l.ferramenta, {}, padrao(l.nome)});
  const std::vector<Caso> opcoes = {
      {"DesOrb", {"nfeatures=1000", "scoretype=fast", "wta_k=3"},
       [] { return cv::ORB::create(1000, 1.2f, 8, 31, 0, 3, cv::ORB::FAST_SCORE); }},
      {"DesBrisk", {"patternscale=1.5"}, [] { return cv::BRISK::create(30, 3, 1.5f); }},
      {"DesAkaze", {"descriptor_type=kaze"}, [] { return cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_KAZE); }},
      {"DesAkaze", {"descriptor_size=256", "descriptor_channels=2"},
       [] { return cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_MLDB, 256, 2); }},
      {"DesKaze", {"extended=1", "upright=1"}, [] { return cv::KAZE::create(true, true); }},
  };
  c.insert(c.end(), opcoes.begin(), opcoes.end());
  return c;
}

// The real graf view and a texture of our own, as files and as OpenCV reads them.
std::vector<std::string> imagens(const teste::PastaTemp& pasta) {
  teste::salva(teste::textura(240, 320, 7), pasta / "textura.png");
  return {std::string(QUIVELAR_DATA) + "/img1.png", pasta / "textura.png"};
}

struct Saida {
  Lista k;
  cv::Mat d;
};

// "" when equal bit for bit; else the first keypoint and field that differ.
std::string diferenca(const Lista& obtidos, const Lista& esperados) {
  std::ostringstream s;
  s.precision(9);
  if (obtidos.size() != esperados.size()) s << obtidos.size() << " keypoints, esperados " << esperados.size();
  static const char* const kCampos[] = {"pt.x", "pt.y", "size", "angle", "response", "octave", "class_id"};
  for (size_t i = 0; i < obtidos.size() && i < esperados.size() && s.tellp() == 0; ++i) {
    const cv::KeyPoint &a = obtidos[i], &b = esperados[i];
    const double va[] = {a.pt.x, a.pt.y, a.size, a.angle, a.response, double(a.octave), double(a.class_id)};
    const double vb[] = {b.pt.x, b.pt.y, b.size, b.angle, b.response, double(b.octave), double(b.class_id)};
    for (int c = 0; c < 7 && s.tellp() == 0; ++c)
      if (std::memcmp(&va[c], &vb[c], sizeof(double)) != 0)
        s << "keypoint " << i << " " << kCampos[c] << ": " << va[c] << ", esperado " << vb[c];
  }
  return s.str();
}

void confere(const Saida& obtida, const Saida& esperada) {
  EXPECT_EQ(diferenca(obtida.k, esperada.k), "");
  ASSERT_EQ(obtida.d.type(), esperada.d.type());
  ASSERT_EQ(obtida.d.size(), esperada.d.size());
  EXPECT_EQ(cv::norm(obtida.d, esperada.d, cv::NORM_INF), 0.0);
  for (int i = 0; i < obtida.d.rows; ++i)
    ASSERT_EQ(std::memcmp(obtida.d.ptr(i), esperada.d.ptr(i), obtida.d.cols * obtida.d.elemSize()), 0) << "linha " << i;
}

// OpenCV's answer, which must not depend on its thread count: the sweep runs
// OpenCV on one thread per unit, the single tools on all of them.
Saida doOpenCV(const std::function<void(Saida&)>& calcula) {
  Saida todas, uma;
  calcula(todas);
  const int antes = cv::getNumThreads();
  cv::setNumThreads(1);
  calcula(uma);
  cv::setNumThreads(antes);
  SCOPED_TRACE("um thread contra todos");
  confere(uma, todas);
  return todas;
}

// Independent of descriptors/rootsift: per row, over the L1 norm, then the root.
void raizDeL1(cv::Mat& d) {
  for (int i = 0; i < d.rows; ++i) {
    const cv::Mat l = d.row(i);
    const double soma = cv::norm(l, cv::NORM_L1);
    if (soma > 0) cv::sqrt(l / soma, l);
  }
}

std::vector<std::string> comando(const std::string& ferramenta, const std::string& img, const std::string& saida,
                                 const std::vector<std::string>& opcoes) {
  std::vector<std::string> a = {ferramenta, img, saida};
  a.insert(a.end(), opcoes.begin(), opcoes.end());
  return a;
}

class DetectorDaTabela : public testing::TestWithParam<Caso> {};

TEST_P(DetectorDaTabela, WritesOpenCVsKeypointsBitForBit) {
  const Caso& c = GetParam();
  ASSERT_TRUE(c.opencv) << "linha sem objeto do OpenCV neste teste";
  teste::PastaTemp pasta;
  for (const std::string& img : imagens(pasta)) {
    SCOPED_TRACE(img);
    const cv::Mat cinza = cv::imread(img, cv::IMREAD_GRAYSCALE);
    const Saida esperada = doOpenCV([&](Saida& s) { c.opencv()->detect(cinza, s.k); });
    ASSERT_FALSE(esperada.k.empty());
    EXPECT_EQ(teste::rodaBem(comando(c.ferramenta, img, "k.yml", c.opcoes), pasta.caminho()),
              "Keypoints=" + std::to_string(esperada.k.size()) + "\n");
    EXPECT_EQ(diferenca(formats::leKeyPoints(pasta / "k.yml"), esperada.k), "");
  }
}

INSTANTIATE_TEST_SUITE_P(OpenCV, DetectorDaTabela, testing::ValuesIn(casosDeDetector()), nomeDoCaso);

// What a descriptor tool must say when the library dropped keypoints.
std::vector<std::string> avisosDeDescarte(size_t dados, int linhas) {
  if (static_cast<size_t>(linhas) == dados) return {};
  return {std::to_string(dados - linhas) + " de " + std::to_string(dados) +
          " keypoints descartados pelo descritor: d.yml guarda " + std::to_string(linhas) +
          "; compare os descritores nos keypoints que ficaram"};
}

class DescritorDaTabela : public testing::TestWithParam<Caso> {};

// Without key= the tool detects and describes in OpenCV's one pass; with the
// keypoints its detector tool wrote, it describes those as compute does.
TEST_P(DescritorDaTabela, WritesOpenCVsRowsBitForBit) {
  const Caso& c = GetParam();
  ASSERT_TRUE(c.opencv) << "linha sem objeto do OpenCV neste teste";
  const algoritmos::LinhaDescritor* linha = nullptr;
  for (const auto& l : algoritmos::descritores())
    if (c.ferramenta == l.ferramenta) linha = &l;
  ASSERT_NE(linha, nullptr);
  const std::string key = algoritmos::detector(linha->detectaCom)->ferramenta;
  const bool raiz = c.ferramenta == "DesRootSift";
  teste::PastaTemp pasta;
  for (const std::string& img : imagens(pasta)) {
    SCOPED_TRACE(img);
    const cv::Mat cinza = cv::imread(img, cv::IMREAD_GRAYSCALE);
    Saida obtida;
    const Saida sozinho = doOpenCV([&](Saida& s) {
      if (raiz) {
        c.opencv()->detect(cinza, s.k);
        c.opencv()->compute(cinza, s.k, s.d);
        raizDeL1(s.d);
      } else {
        c.opencv()->detectAndCompute(cinza, cv::noArray(), s.k, s.d);
      }
    });
    ASSERT_FALSE(sozinho.k.empty());
    EXPECT_EQ(teste::rodaBem(comando(c.ferramenta, img, "d.yml", c.opcoes), pasta.caminho()),
              "KeyPoints k=" + std::to_string(sozinho.k.size()) + "\n");
    formats::leDescritores(pasta / "d.yml", obtida.k, obtida.d);
    confere(obtida, sozinho);

    Lista detectados;
    const Saida dada = doOpenCV([&](Saida& s) {
      c.opencv()->detect(cinza, s.k);
      detectados = s.k;
      c.opencv()->compute(cinza, s.k, s.d);
      if (raiz) raizDeL1(s.d);
    });
    teste::rodaBem(comando(key, img, "k.yml", c.opcoes), pasta.caminho());
    std::vector<std::string> des = comando(c.ferramenta, img, "d.yml", c.opcoes);
    des.push_back("key=k.yml");
    EXPECT_EQ(teste::rodaComAvisos(des, pasta.caminho(), avisosDeDescarte(detectados.size(), dada.d.rows)),
              "KeyPoints k=" + std::to_string(detectados.size()) + "\n");
    formats::leDescritores(pasta / "d.yml", obtida.k, obtida.d);
    confere(obtida, dada);
  }
}

INSTANTIATE_TEST_SUITE_P(OpenCV, DescritorDaTabela, testing::ValuesIn(casosDeDescritor()), nomeDoCaso);

// Every option a row lists, written out at its default, is the run without
// options; a word no row knows stops before any output.
TEST(OpcoesDaTabela, DefaultsWrittenOutChangeNothingAndUnknownWordsStop) {
  teste::PastaTemp pasta;
  teste::salva(teste::textura(120, 160, 3), pasta / "img.png");
  std::vector<std::pair<const char*, const std::vector<algoritmos::Opcao>*>> linhas;
  for (const auto& l : algoritmos::detectores())
    if (l.propria == nullptr) linhas.emplace_back(l.ferramenta, &l.opcoes);
  for (const auto& l : algoritmos::descritores())
    if (l.propria == nullptr) linhas.emplace_back(l.ferramenta, &l.opcoes);
  for (const auto& [ferramenta, opcoes] : linhas) {
    SCOPED_TRACE(ferramenta);
    std::vector<std::string> todas = {ferramenta, "img.png", "b.yml"};
    for (const algoritmos::Opcao& o : *opcoes) todas.push_back(o.nome + "=" + o.padrao);
    const std::string sem = teste::rodaBem({ferramenta, "img.png", "a.yml"}, pasta.caminho());
    EXPECT_EQ(teste::rodaBem(todas, pasta.caminho()), sem);
    EXPECT_EQ(teste::leTexto(pasta / "b.yml"), teste::leTexto(pasta / "a.yml"));

    const teste::Execucao e = teste::roda({ferramenta, "img.png", "c.yml", "semtal=1"}, pasta.caminho());
    EXPECT_EQ(e.status, 1);
    EXPECT_EQ(e.err.rfind("Erro: Argumento invalido", 0), 0u) << e.err;
    EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"a.yml", "b.yml", "img.png"}));
  }
}

// AKAZE and KAZE describe at the scale level in class_id, ORB at the pyramid
// level in octave; SIFT's keypoints carry neither, and OpenCV would read
// outside its buffers on them.
TEST(DescritoresDaTabela, RefuseKeypointsOfAnotherDetector) {
  teste::PastaTemp pasta;
  teste::salva(teste::textura(120, 160, 3), pasta / "img.png");
  teste::rodaBem({"KeySift", "img.png", "s.yml"}, pasta.caminho());
  for (const char* ferramenta : {"DesAkaze", "DesKaze", "DesOrb"}) {
    SCOPED_TRACE(ferramenta);
    const teste::Execucao e = teste::roda({ferramenta, "img.png", "d.yml", "key=s.yml"}, pasta.caminho());
    EXPECT_EQ(e.status, 1);
    EXPECT_EQ(e.err.rfind("Erro: keypoint ", 0), 0u) << e.err;
    EXPECT_EQ(std::count(e.err.begin(), e.err.end(), '\n'), 1) << e.err;
    EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"img.png", "s.yml"}));
  }
}

}  // namespace
