// The data files: keypoint and descriptor stores, the match file, the
// transform file and the correctness test.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "formats/transform.hpp"
#include "support/erro.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

namespace {

std::vector<cv::KeyPoint> algunsKeyPoints() {
  return {cv::KeyPoint(10.5f, 20.25f, 31.0f, 359.5f, 0.125f, 2, -1),
          cv::KeyPoint(0.0f, 0.0f, 1.5f, -1.0f, 1e-7f, 0, 1),
          cv::KeyPoint(799.75f, 639.0f, 120.0f, 90.0f, 12345.0f, -3, 7)};
}

void esperaIguais(const std::vector<cv::KeyPoint>& a, const std::vector<cv::KeyPoint>& b, float tolerancia = 0) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_NEAR(a[i].pt.x, b[i].pt.x, tolerancia * std::fabs(b[i].pt.x)) << i;
    EXPECT_NEAR(a[i].pt.y, b[i].pt.y, tolerancia * std::fabs(b[i].pt.y)) << i;
    EXPECT_NEAR(a[i].size, b[i].size, tolerancia * std::fabs(b[i].size)) << i;
    EXPECT_NEAR(a[i].angle, b[i].angle, tolerancia * std::fabs(b[i].angle)) << i;
    EXPECT_NEAR(a[i].response, b[i].response, tolerancia * std::fabs(b[i].response)) << i;
    EXPECT_EQ(a[i].octave, b[i].octave) << i;
    EXPECT_EQ(a[i].class_id, b[i].class_id) << i;
  }
}

class Stores : public testing::TestWithParam<const char*> {};

TEST_P(Stores, KeypointsAndDescriptorsRoundTrip) {
  teste::PastaTemp pasta;
  const std::string arquivo = pasta / (std::string("s.") + GetParam());
  const std::vector<cv::KeyPoint> kps = algunsKeyPoints();
  cv::Mat_<float> des(3, 5);
  cv::randu(des, -1.0f, 1.0f);
  formats::impDescritores(arquivo, kps, des);

  std::vector<cv::KeyPoint> lidos;
  cv::Mat lidas;
  formats::leDescritores(arquivo, lidos, lidas);
  esperaIguais(lidos, kps);
  ASSERT_EQ(lidas.type(), CV_32F);
  EXPECT_EQ(cv::norm(lidas, des, cv::NORM_INF), 0.0);
  esperaIguais(formats::leKeyPoints(arquivo), kps);
  EXPECT_EQ(pasta.conteudo().size(), 1u);  // no temporary left beside it
}

TEST_P(Stores, EmptyKeypointOnlyAndNestedStores) {
  teste::PastaTemp pasta;
  const std::string vazio = pasta / (std::string("vazio.") + GetParam());
  formats::impDescritores(vazio, {}, cv::Mat());
  std::vector<cv::KeyPoint> lidos = algunsKeyPoints();
  cv::Mat lidas = cv::Mat::ones(2, 2, CV_32F);
  formats::leDescritores(vazio, lidos, lidas);
  EXPECT_TRUE(lidos.empty());
  EXPECT_TRUE(lidas.empty());
  // A keypoint store read as a descriptor store: keypoints, no matrix.
  const std::string k = pasta / (std::string("k.") + GetParam());
  formats::impKeyPoints(k, algunsKeyPoints());
  lidas = cv::Mat::ones(2, 2, CV_32F);
  formats::leDescritores(k, lidos, lidas);
  EXPECT_EQ(lidos.size(), 3u);
  EXPECT_TRUE(lidas.empty());
  const std::string n = pasta / (std::string("n.") + GetParam());
  {
    cv::FileStorage fs(n, cv::FileStorage::WRITE);
    cv::write(fs, "keypoints", algunsKeyPoints());  // OpenCV 4's own layout
  }
  esperaIguais(formats::leKeyPoints(n), algunsKeyPoints());
}

INSTANTIATE_TEST_SUITE_P(Formatos, Stores, testing::Values("xml", "yml", "yaml", "xml.gz", "yml.gz"),
                         [](const testing::TestParamInfo<const char*>& info) {
                           std::string nome = info.param;
                           for (char& c : nome)
                             if (c == '.') c = '_';
                           return nome;
                         });

TEST(Stores, WritesTheFlatLayout) {
  teste::PastaTemp pasta;
  formats::impKeyPoints(pasta / "k.yml", {cv::KeyPoint(1, 2, 3, 4, 5, 6, 7), cv::KeyPoint(8, 9, 10, 11, 12, 13, 14)});
  const std::string texto = teste::leTexto(pasta / "k.yml");
  const size_t inicio = texto.find("keypoints: [");
  ASSERT_NE(inicio, std::string::npos) << texto;
  const std::string seq = texto.substr(inicio + 12, texto.find(']', inicio) - inicio - 12);
  EXPECT_EQ(seq.find('['), std::string::npos) << "nested: " << texto;
  EXPECT_NE(seq.find("13, 14"), std::string::npos) << texto;
}

TEST(Stores, BadStoresStopWithTheFileNamed) {
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "seis.yml", "%YAML:1.0\n---\nkeypoints: [ 1, 2, 3, 4, 5, 6 ]\n");
  teste::escreveTexto(pasta / "texto.yml", "%YAML:1.0\n---\nkeypoints: [ 1, 2, 3, 4, 5, abc, 7 ]\n");
  teste::escreveTexto(pasta / "nan.yml", "%YAML:1.0\n---\nkeypoints: [ .nan, 2, 3, 4, 5, 6, 7 ]\n");
  // Finite, but beyond the float or int the field becomes.
  teste::escreveTexto(pasta / "octave.yml", "%YAML:1.0\n---\nkeypoints: [ 1, 2, 3, 4, 5, 8.3e17, 7 ]\n");
  teste::escreveTexto(pasta / "x.yml", "%YAML:1.0\n---\nkeypoints: [ [ 1e39, 2, 3, 4, 5, 6, 7 ] ]\n");
  teste::escreveTexto(pasta / "lixo.xml", "<?xml version=\"1.0\"?>\n<opencv_storage><keypoints>1 2</opencv");
  // OpenCV's parser reads past its buffer on a NUL inside the header.
  teste::escreveTexto(pasta / "nul.xml", std::string("a<?xml version=") + std::string(31, '\0') +
                                             "\"1.0\"?>\n<opencv_storage>\n<keypoints>1 2 3 4 5 6 7</keypoints>\n");
  // A damaged row count must be refused, not allocated.
  teste::escreveTexto(pasta / "linhas.yml",
                      "%YAML:1.0\n---\ndescriptors: !!opencv-matrix\n   rows:`1\n   cols: 2\n   dt: f\n"
                      "   data: [ 1., 2. ]\n");
  const struct {
    const char* arquivo;
    const char* mensagem;
  } casos[] = {
      {"seis.yml", "Erro: keypoints malformados em "},
      {"texto.yml", "Erro: keypoints malformados em "},
      {"nan.yml", "Erro: valor nao finito nos keypoints de "},
      {"octave.yml", "Erro: keypoints malformados em "},
      {"x.yml", "Erro: keypoints malformados em "},
      {"lixo.xml", "Erro abertura arquivo "},
      {"nul.xml", "Erro abertura arquivo "},
      {"falta.xml", "Erro abertura arquivo "},
  };
  for (const auto& c : casos)
    EXPECT_EQ(teste::mensagemDe([&] { formats::leKeyPoints(pasta / c.arquivo); }), c.mensagem + (pasta / c.arquivo));
  std::vector<cv::KeyPoint> kps;
  cv::Mat des;
  EXPECT_EQ(teste::mensagemDe([&] { formats::leDescritores(pasta / "linhas.yml", kps, des); }),
            "Erro: descritores malformados em " + (pasta / "linhas.yml"));
  EXPECT_EQ(teste::mensagemDe([&] { formats::impKeyPoints(pasta / "nao/ha.xml", {}); }),
            "Erro abertura arquivo " + (pasta / "nao/ha.xml"));
}

const char* const kCabecalho =
    "//dist-ratio k1.pt.x k1.pt.y k1.size k1.angle k1.response k1.octave k1.class_id k2.pt.x k2.pt.y k2.size "
    "k2.angle k2.response k2.octave k2.class_id\n";

TEST(MatchFile, ExactLayout) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> k1 = {cv::KeyPoint(1.5f, 2, 3, 4, 5, 6, -7)};
  const std::vector<cv::KeyPoint> k2 = {cv::KeyPoint(0, 0, 0, 0, 0, 0, 0), cv::KeyPoint(10, 20, 30, -40, 0.5f, 1, 2)};
  formats::impMatch({cv::DMatch(0, 1, 0.25f)}, k1, k2, pasta / "m.txt");
  EXPECT_EQ(teste::leTexto(pasta / "m.txt"),
            std::string("1 15\n") + kCabecalho +
                "2.500000e-01  1.500000e+00 2.000000e+00 3.000000e+00 4.000000e+00 5.000000e+00 6 -7  "
                "1.000000e+01 2.000000e+01 3.000000e+01 -4.000000e+01 5.000000e-01 1 2\n");
}

TEST(MatchFile, RoundTripPointsEveryMatchAtItsOwnIndex) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> kps = algunsKeyPoints();
  const std::vector<cv::DMatch> matches = {cv::DMatch(2, 0, 0.5f), cv::DMatch(0, 1, 123.456789f),
                                           cv::DMatch(1, 2, 1e30f)};
  formats::impMatch(matches, kps, kps, pasta / "m.txt");
  std::vector<cv::DMatch> lidos;
  std::vector<cv::KeyPoint> k1, k2;
  formats::leMatch(lidos, k1, k2, pasta / "m.txt");
  ASSERT_EQ(lidos.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(lidos[i].queryIdx, i);
    EXPECT_EQ(lidos[i].trainIdx, i);
    EXPECT_EQ(lidos[i].imgIdx, -1);
    EXPECT_NEAR(lidos[i].distance, matches[i].distance, 1e-6 * matches[i].distance);
  }
  esperaIguais(k1, {kps[2], kps[0], kps[1]}, 1e-6f);
  esperaIguais(k2, {kps[0], kps[1], kps[2]}, 1e-6f);
}

TEST(MatchFile, WriterGuardsLeaveNoFile) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> kps = algunsKeyPoints();
  const std::vector<cv::DMatch> matches = {cv::DMatch(0, 0, 1), cv::DMatch(1, 1, 2), cv::DMatch(2, 2, 3)};
  EXPECT_EQ(teste::mensagemDe([&] { formats::impMatch(matches, kps, kps, pasta / "x.txt", {true}); }),
            "Erro: impMatch: vet.size()!=matches.size()");
  EXPECT_EQ(teste::mensagemDe([&] { formats::impMatch({cv::DMatch(0, 3, 1)}, kps, kps, pasta / "x.txt"); }),
            "Erro: impMatch: indice de keypoint fora do intervalo");
  EXPECT_TRUE(pasta.conteudo().empty());
}

TEST(MatchFile, BadFilesStopBeforeAnyHugeAllocation) {
  teste::PastaTemp pasta;
  const std::string linha = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
  const struct {
    const char* nome;
    std::string texto;
    std::string mensagem;
  } casos[] = {
      {"catorze", "1 14\n" + linha, "Erro: Arquivo nao tem 15 colunas"},
      {"negativo", "-1 15\n", "Erro: numero de casamentos negativo em "},
      {"absurdo", "2000000000 15\n" + linha, "Erro: arquivo de casamentos truncado ou invalido "},
      {"grande", "99999999999999 15\n", "Erro: linha de contagem invalida em "},
      {"curto", "2 15\n" + linha + "1 2 3\n", "Erro: arquivo de casamentos truncado ou invalido "},
      {"vazio", "", "Erro: linha de contagem invalida em "},
      {"nan", "1 15\nnan 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", "Erro: arquivo de casamentos truncado ou invalido "},
      {"octavereal", "1 15\n1 2 3 4 5 6 7.5 8 9 10 11 12 13 14 15\n",
       "Erro: arquivo de casamentos truncado ou invalido "},
  };
  for (const auto& c : casos) {
    const std::string arquivo = pasta / c.nome;
    teste::escreveTexto(arquivo, c.texto);
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    const std::string esperada =
        c.mensagem.back() == ' ' ? c.mensagem + arquivo : c.mensagem;
    EXPECT_EQ(teste::mensagemDe([&] { formats::leMatch(m, k1, k2, arquivo); }), esperada) << c.nome;
  }
  std::vector<cv::DMatch> m;
  std::vector<cv::KeyPoint> k1, k2;
  EXPECT_EQ(teste::mensagemDe([&] { formats::leMatch(m, k1, k2, pasta / "falta.txt"); }),
            "Erro arquivo inexistente " + (pasta / "falta.txt"));
}

TEST(Transform, LayoutCarriesNoMeaning) {
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "um.txt", "1 2 3 4 5 6 7 8 10\n");
  teste::escreveTexto(pasta / "tres.txt", "   1.0e+00 2 3\n4\t5 6\n\n7 8 1e1\n");
  cv::Mat a, b;
  formats::leMat33(a, pasta / "um.txt");
  formats::leMat33(b, pasta / "tres.txt");
  ASSERT_EQ(a.type(), CV_64F);
  EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
  EXPECT_EQ(a.at<double>(2, 2), 10.0);
}

TEST(Transform, IncompleteOrMissingFilesStop) {
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "oito.txt", "1 2 3 4 5 6 7 8\n");
  teste::escreveTexto(pasta / "inf.txt", "1 2 3 4 inf 6 7 8 9\n");
  cv::Mat m;
  EXPECT_EQ(teste::mensagemDe([&] { formats::leMat33(m, pasta / "oito.txt"); }),
            "Erro: matriz 3x3 incompleta ou invalida em " + (pasta / "oito.txt"));
  EXPECT_EQ(teste::mensagemDe([&] { formats::leMat33(m, pasta / "inf.txt"); }),
            "Erro: matriz 3x3 incompleta ou invalida em " + (pasta / "inf.txt"));
  EXPECT_EQ(teste::mensagemDe([&] { formats::leMat33(m, pasta / "falta.txt"); }),
            "Erro arquivo inexistente " + (pasta / "falta.txt"));
}

TEST(Acerto, ToleranceIsInclusiveInImageOnePixels) {
  const cv::Mat I = formats::inversa(cv::Mat::eye(3, 3, CV_64F));
  const cv::KeyPoint k1(100, 100, 10);
  const struct {
    float x, y;
    bool certo;
  } casos[] = {{109, 112, true}, {115, 100, true}, {115.01f, 100, false}, {100, 84.9f, false}, {100, 100, true}};
  for (const auto& c : casos) EXPECT_EQ(formats::acerto(I, k1, cv::KeyPoint(c.x, c.y, 10), 15), c.certo) << c.x;

  // k2 is mapped back through the inverse: with H doubling x, k2 at x = 200
  // lands on k1 at x = 100.
  const cv::Mat H = (cv::Mat_<double>(3, 3) << 2, 0, 0, 0, 1, 0, 0, 0, 1);
  EXPECT_TRUE(formats::acerto(formats::inversa(H), k1, cv::KeyPoint(200, 100, 10), 0.0));
  EXPECT_FALSE(formats::acerto(formats::inversa(H), k1, cv::KeyPoint(100, 100, 10), 15.0));
}

TEST(Acerto, SingularMatrixMakesEveryMatchCorrect) {
  const cv::Mat singular = (cv::Mat_<double>(3, 3) << 1, 2, 3, 2, 4, 6, 0, 0, 1);
  const cv::Mat inv = formats::inversa(singular);
  EXPECT_EQ(cv::countNonZero(inv), 0);
  EXPECT_TRUE(formats::acerto(inv, cv::KeyPoint(0, 0, 1), cv::KeyPoint(500, 500, 1), 1.0));
}

TEST(Acerto, FrontPartJudgesInFileOrder) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> k1 = {cv::KeyPoint(0, 0, 1), cv::KeyPoint(0, 0, 1), cv::KeyPoint(0, 0, 1)};
  const std::vector<cv::KeyPoint> k2 = {cv::KeyPoint(3, 4, 1), cv::KeyPoint(30, 40, 1), cv::KeyPoint(9, 12, 1)};
  formats::impMatch({cv::DMatch(0, 0, 1), cv::DMatch(1, 1, 2), cv::DMatch(2, 2, 3)}, k1, k2, pasta / "m.txt");
  const formats::Casamentos c = formats::leCasamentos(pasta / "m.txt");
  const std::vector<bool> certos = formats::julga(cv::Mat::eye(3, 3, CV_64F), c, 15.0);
  EXPECT_EQ(certos, (std::vector<bool>{true, false, true}));  // distances 5, 50, 15
}

}  // namespace
