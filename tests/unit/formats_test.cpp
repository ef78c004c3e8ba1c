// The data files: keypoint and descriptor stores, the match file, the
// transform file and the correctness test.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "formats/transform.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <memory>

namespace {

const std::vector<cv::KeyPoint> kKeyPoints = {cv::KeyPoint(10.5f, 20.25f, 31.0f, 359.5f, 0.125f, 2, -1),
                                              cv::KeyPoint(0.0f, 0.0f, 1.5f, -1.0f, 1e-7f, 0, 1),
                                              cv::KeyPoint(799.75f, 639.0f, 120.0f, 90.0f, 12345.0f, -3, 7)};

// Every kind of store in every format, read as a descriptor store into
// outputs that already hold something, and as a keypoint store.
TEST(Stores, RoundTripEmptyKeypointOnlyAndNested) {
  for (const std::string formato : {"xml", "yml", "yaml", "xml.gz", "yml.gz"}) {
    SCOPED_TRACE(formato);
    teste::PastaTemp pasta;
    const auto nome = [&](const std::string& base) { return pasta / (base + "." + formato); };
    cv::Mat_<float> des(3, 5);
    cv::randu(des, -1.0f, 1.0f);
    formats::impDescritores(nome("d"), kKeyPoints, des);
    formats::impDescritores(nome("vazio"), {}, cv::Mat());
    formats::impKeyPoints(nome("k"), kKeyPoints);
    cv::FileStorage fs(nome("n"), cv::FileStorage::WRITE);
    (fs << "keypoints" << kKeyPoints).release();  // OpenCV 4's own nested layout
    EXPECT_EQ(pasta.conteudo().size(), 4u);  // no temporary left beside them
    const std::pair<std::string, cv::Mat> casos[] = {{"d", des}, {"vazio", {}}, {"k", {}}, {"n", {}}};
    for (const auto& [base, matriz] : casos) {
      const std::vector<cv::KeyPoint> esperados = base == "vazio" ? std::vector<cv::KeyPoint>() : kKeyPoints;
      std::vector<cv::KeyPoint> lidos(5);
      cv::Mat lidas = cv::Mat::ones(2, 2, CV_32F);
      formats::leDescritores(nome(base), lidos, lidas);
      EXPECT_TRUE(teste::mesmosBits(lidos, esperados)) << base;
      EXPECT_TRUE(matriz.empty() ? lidas.empty() : teste::mesmosBits(lidas, matriz)) << base;
      EXPECT_TRUE(teste::mesmosBits(formats::leKeyPoints(nome(base)), esperados)) << base;
    }
  }
}

TEST(Stores, BadStoresStopWithTheFileNamed) {
  teste::PastaTemp pasta;
  const std::string yaml = "%YAML:1.0\n---\nkeypoints: ";
  const std::string xmlAteAtributo =
      "<?xml version=\"1.0\"?>\n<opencv_storage>\n<keypoints>1 2 3 4 5 6 7</keypoints>\n<descriptors type_id=\n";
  const struct {
    const char* arquivo;
    std::string texto;
    const char* mensagem;
  } casos[] = {
      {"seis.yml", yaml + "[ 1, 2, 3, 4, 5, 6 ]\n", "Erro: keypoints malformados em "},
      {"texto.yml", yaml + "[ 1, 2, 3, 4, 5, abc, 7 ]\n", "Erro: keypoints malformados em "},
      {"nan.yml", yaml + "[ .nan, 2, 3, 4, 5, 6, 7 ]\n", "Erro: valor nao finito nos keypoints de "},
      // Finite, but beyond the float or int the field becomes.
      {"octave.yml", yaml + "[ 1, 2, 3, 4, 5, 8.3e17, 7 ]\n", "Erro: keypoints malformados em "},
      {"x.yml", yaml + "[ [ 1e39, 2, 3, 4, 5, 6, 7 ] ]\n", "Erro: keypoints malformados em "},
      {"lixo.xml", "<?xml version=\"1.0\"?>\n<opencv_storage><keypoints>1 2</opencv", "Erro abertura arquivo "},
      // OpenCV's parser reads past its buffer on a NUL inside the header.
      {"nul.xml",
       std::string("a<?xml version=") + std::string(31, '\0') +
           "\"1.0\"?>\n<opencv_storage>\n<keypoints>1 2 3 4 5 6 7</keypoints>\n",
       "Erro abertura arquivo "},
      {"falta.xml", "", "Erro abertura arquivo "},
      // OpenCV's parser follows a null pointer when the text ends after "name=", inflated or not.
      {"fim.xml", xmlAteAtributo, "Erro abertura arquivo "},
      {"fim.xml.gz", xmlAteAtributo, "Erro abertura arquivo "},
  };
  const auto escreve = [&](const std::string& arquivo, const std::string& texto) {
    if (arquivo.find(".gz") == std::string::npos) return teste::escreveTexto(pasta / arquivo, texto);
    const std::unique_ptr<gzFile_s, int (*)(gzFile)> gz(::gzopen((pasta / arquivo).c_str(), "wb"), ::gzclose);
    ASSERT_EQ(::gzwrite(gz.get(), texto.data(), static_cast<unsigned>(texto.size())), static_cast<int>(texto.size()));
  };
  for (const auto& c : casos) {
    if (!c.texto.empty()) escreve(c.arquivo, c.texto);
    EXPECT_EQ(teste::mensagemDe([&] { formats::leKeyPoints(pasta / c.arquivo); }), c.mensagem + (pasta / c.arquivo));
  }
  // A damaged row count must be refused, not allocated.
  teste::escreveTexto(pasta / "linhas.yml", "%YAML:1.0\n---\ndescriptors: !!opencv-matrix\n   rows: 600000000\n   cols: 2\n"
                                            "   dt: f\n   data: [ 1., 2. ]\n");
  std::vector<cv::KeyPoint> kps;
  cv::Mat des;
  EXPECT_EQ(teste::mensagemDe([&] { formats::leDescritores(pasta / "linhas.yml", kps, des); }),
            "Erro: descritores malformados em " + (pasta / "linhas.yml"));
  EXPECT_EQ(teste::mensagemDe([&] { formats::impKeyPoints(pasta / "nao/ha.xml", {}); }),
            "Erro abertura arquivo " + (pasta / "nao/ha.xml"));
}

// The text limit on the text as OpenCV would read it: the file, or what a
// .gz inflates to, up to the limit itself, for both readers.
TEST(Stores, TextOverTheLimitIsRefusedInflatedOrNot) {
  ::setenv("QUIVELAR_MAX_STORE_MB", "1", 1);
  teste::PastaTemp pasta;
  const std::string inicio = "%YAML:1.0\n---\nkeypoints: [ 1., 2., 3., 4., 5., 0, -1 ]\n";
  for (const char* nome : {"k.yml", "k.yml.gz"})
    for (const size_t tamanho : {size_t(1000000), size_t(1000001)}) {
      const std::string arquivo = pasta / nome, texto = inicio + std::string(tamanho - inicio.size(), ' ');
      SCOPED_TRACE(arquivo + " " + std::to_string(tamanho));
      if (arquivo.find(".gz") == std::string::npos) {
        teste::escreveTexto(arquivo, texto);
      } else {
        const std::unique_ptr<gzFile_s, int (*)(gzFile)> gz(::gzopen(arquivo.c_str(), "wb"), ::gzclose);
        ASSERT_EQ(::gzwrite(gz.get(), texto.data(), static_cast<unsigned>(texto.size())), static_cast<int>(tamanho));
      }
      const std::string esperada =
          tamanho > 1000000 ? "Erro: texto de " + arquivo + " passa do limite de 1 MB (QUIVELAR_MAX_STORE_MB muda o limite)"
                            : "(sem erro)";
      std::vector<cv::KeyPoint> kps;
      cv::Mat des;
      EXPECT_EQ(teste::mensagemDe([&] { kps = formats::leKeyPoints(arquivo); }), esperada);
      EXPECT_EQ(kps.size(), tamanho > 1000000 ? 0u : 1u);
      EXPECT_EQ(teste::mensagemDe([&] { formats::leDescritores(arquivo, kps, des); }), esperada);
    }
  ::unsetenv("QUIVELAR_MAX_STORE_MB");
}

TEST(MatchFile, ExactLayoutAndRoundTrip) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> k1 = {cv::KeyPoint(1.5f, 2, 3, 4, 5, 6, -7)};
  const std::vector<cv::KeyPoint> k2 = {cv::KeyPoint(0, 0, 0, 0, 0, 0, 0), cv::KeyPoint(10, 20, 30, -40, 0.5f, 1, 2)};
  formats::impMatch({cv::DMatch(0, 1, 0.25f)}, k1, k2, pasta / "m.txt");
  EXPECT_EQ(teste::leTexto(pasta / "m.txt"),
            "1 15\n//dist-ratio k1.pt.x k1.pt.y k1.size k1.angle k1.response k1.octave k1.class_id k2.pt.x k2.pt.y "
            "k2.size k2.angle k2.response k2.octave k2.class_id\n"
            "2.500000e-01  1.500000e+00 2.000000e+00 3.000000e+00 4.000000e+00 5.000000e+00 6 -7  "
            "1.000000e+01 2.000000e+01 3.000000e+01 -4.000000e+01 5.000000e-01 1 2\n");

  // Read back, every match points at its own line, and what was read writes
  // the same text again.
  const std::vector<cv::DMatch> matches = {cv::DMatch(2, 0, 0.5f), cv::DMatch(0, 1, 123.456789f),
                                           cv::DMatch(1, 2, 1e30f)};
  formats::impMatch(matches, kKeyPoints, kKeyPoints, pasta / "m.txt");
  std::vector<cv::DMatch> lidos;
  std::vector<cv::KeyPoint> l1, l2;
  formats::leMatch(lidos, l1, l2, pasta / "m.txt");
  ASSERT_EQ(lidos.size(), 3u);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(std::tie(lidos[i].queryIdx, lidos[i].trainIdx, lidos[i].imgIdx), std::make_tuple(i, i, -1));
  formats::impMatch(lidos, l1, l2, pasta / "m2.txt");
  EXPECT_EQ(teste::leTexto(pasta / "m2.txt"), teste::leTexto(pasta / "m.txt"));
  EXPECT_EQ(teste::mensagemDe([&] { formats::impMatch(matches, kKeyPoints, kKeyPoints, pasta / "x.txt", {true}); }),
            "Erro: impMatch: vet.size()!=matches.size()");
  EXPECT_EQ(teste::mensagemDe([&] { formats::impMatch({{0, 3, 1.0f}}, kKeyPoints, kKeyPoints, pasta / "x.txt"); }),
            "Erro: impMatch: indice de keypoint fora do intervalo");
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"m.txt", "m2.txt"}));
}

TEST(MatchFile, BadFilesStopBeforeAnyHugeAllocation) {
  teste::PastaTemp pasta;
  const std::string linha = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
  const std::string truncado = "Erro: arquivo de casamentos truncado ou invalido ";
  const struct {
    const char* nome;
    std::string texto, mensagem;  // ending in a blank: the file name follows
  } casos[] = {
      {"catorze", "1 14\n" + linha, "Erro: Arquivo nao tem 15 colunas"},
      {"negativo", "-1 15\n", "Erro: numero de casamentos negativo em "},
      {"absurdo", "2000000000 15\n" + linha, truncado}, {"curto", "2 15\n" + linha + "1 2 3\n", truncado},
      {"grande", "99999999999999 15\n", "Erro: linha de contagem invalida em "},
      {"vazio", "", "Erro: linha de contagem invalida em "},
      {"nan", "1 15\nnan 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", truncado},
      {"octavereal", "1 15\n1 2 3 4 5 6 7.5 8 9 10 11 12 13 14 15\n", truncado},
  };
  for (const auto& c : casos) {
    const std::string arquivo = pasta / c.nome;
    teste::escreveTexto(arquivo, c.texto);
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    EXPECT_EQ(teste::mensagemDe([&] { formats::leMatch(m, k1, k2, arquivo); }),
              c.mensagem.back() == ' ' ? c.mensagem + arquivo : c.mensagem);
  }
}

TEST(Transform, LayoutCarriesNoMeaningButNineFiniteNumbersDo) {
  teste::PastaTemp pasta;
  const std::pair<const char*, const char*> arquivos[] = {
      {"um.txt", "1 2 3 4 5 6 7 8 10\n"}, {"tres.txt", "   1.0e+00 2 3\n4\t5 6\n\n7 8 1e1\n"},
      {"oito.txt", "1 2 3 4 5 6 7 8\n"}, {"inf.txt", "1 2 3 4 inf 6 7 8 9\n"}};
  for (const auto& [nome, texto] : arquivos) teste::escreveTexto(pasta / nome, texto);
  cv::Mat a, b;
  formats::leMat33(a, pasta / "um.txt");
  formats::leMat33(b, pasta / "tres.txt");
  EXPECT_TRUE(a.type() == CV_64F && teste::mesmosBits(a, b));
  EXPECT_EQ(a.at<double>(2, 2), 10.0);
  for (const char* nome : {"oito.txt", "inf.txt"})
    EXPECT_EQ(teste::mensagemDe([&] { formats::leMat33(a, pasta / nome); }),
              "Erro: matriz 3x3 incompleta ou invalida em " + (pasta / nome));
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

  // A singular transform makes every match correct.
  const cv::Mat inv = formats::inversa((cv::Mat_<double>(3, 3) << 1, 2, 3, 2, 4, 6, 0, 0, 1));
  EXPECT_EQ(cv::countNonZero(inv), 0);
  EXPECT_TRUE(formats::acerto(inv, cv::KeyPoint(0, 0, 1), cv::KeyPoint(500, 500, 1), 1.0));
}

}  // namespace
