// The form check that stands before OpenCV's store parser: everything
// OpenCV's writers produce passes it and reads as FileStorage reads it;
// hostile text is refused at once, as a failed open, never parsed.
#include "formats/forma_opencv.hpp"
#include "formats/stores.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <functional>
#include <limits>

namespace {

bool aceita(const std::string& texto) { return formats::formaDoOpenCV(texto.data(), texto.size()); }

std::string inflado(const std::string& arquivo) {
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> gz(::gzopen(arquivo.c_str(), "rb"), ::gzclose);
  std::string texto;
  char bloco[4096];
  for (int n; (n = ::gzread(gz.get(), bloco, sizeof bloco)) > 0;) texto.append(bloco, static_cast<size_t>(n));
  return texto;
}

// What a store holds besides its keypoints, written by OpenCV's own writer.
using Conteudo = std::function<void(cv::FileStorage&)>;

cv::Mat matriz(int tipo) {
  cv::Mat m(3, 4, tipo);
  cv::randu(m, -300, 300);
  if (CV_MAT_DEPTH(tipo) == CV_32F || CV_MAT_DEPTH(tipo) == CV_64F) {
    cv::Mat f = m.reshape(1);
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    CV_MAT_DEPTH(tipo) == CV_32F ? (f.at<float>(0, 0) = float(nan), f.at<float>(0, 1) = float(-inf))
                                 : (f.at<double>(0, 0) = nan, f.at<double>(0, 1) = inf);
  }
  return m;
}

TEST(FormaDoOpenCV, EverythingOpenCVWritesPassesAndReadsAsFileStorageReadsIt) {
  const std::pair<const char*, Conteudo> conteudos[] = {
      {"u8", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_8U); }},
      {"s8c3", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_8SC3); }},
      {"u16", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_16U); }},
      {"s16", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_16S); }},
      {"s32", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_32S); }},
      {"f32", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_32F); }},
      {"f32c2", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_32FC2); }},
      {"f64", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_64F); }},
      {"f16", [](cv::FileStorage& fs) { fs << "descriptors" << matriz(CV_16F); }},
      {"vazia", [](cv::FileStorage& fs) { fs << "descriptors" << cv::Mat(); }},
      // Nodes of a program's own beside the two the tools read.
      {"outros",
       [](cv::FileStorage& fs) {
         fs << "nome" << "SuperPoint v1" << "citacao" << "a:b \"c\" <d> & e" << "n" << 3 << "x" << 2.5;
         fs << "mapa" << "{" << "a" << 1 << "b" << "{:" << "c" << 2 << "d" << "[:" << 1 << 2 << "]" << "}";
         fs << "lista" << "[" << "{" << "z" << 1 << "}" << "[:" << "]" << "{" << "}" << "" << "x:y" << "]";
         fs << "descriptors" << matriz(CV_32F);
         fs << "matrizes" << "[" << matriz(CV_8U) << matriz(CV_64F) << "]";
       }},
      {"nada", [](cv::FileStorage&) {}},
  };
  std::vector<cv::KeyPoint> kps = {cv::KeyPoint(1.5f, 2, 3, 4, 5, 6, 7), cv::KeyPoint(-0.0f, 1e-42f, 9, 359, 0, 0, -1),
                                   cv::KeyPoint(1e30f, 3, 5, 6, 7, 8, 9)};
  teste::PastaTemp pasta;
  for (const auto& [nome, escreve] : conteudos)
    for (const std::string formato : {"yml", "xml", "json", "yml.gz", "xml.gz"}) {
      const std::string arquivo = pasta / (std::string(nome) + "." + formato);
      SCOPED_TRACE(arquivo);
      {
        cv::FileStorage fs(arquivo, cv::FileStorage::WRITE);
        cv::write(fs, "keypoints", std::string(nome) == "nada" ? std::vector<cv::KeyPoint>() : kps);
        escreve(fs);
      }
      const std::string texto = formato.size() > 4 ? inflado(arquivo) : teste::leTexto(arquivo);
      EXPECT_TRUE(aceita(texto)) << texto;
      std::vector<cv::KeyPoint> k, kRef;
      cv::Mat d = cv::Mat::ones(2, 2, CV_8U), dRef = d.clone();
      EXPECT_EQ(teste::mensagemDe([&] { formats::leDescritores(arquivo, k, d); }), "(sem erro)");
      formats::leDescritoresFileStorage(arquivo, kRef, dRef);
      EXPECT_TRUE(teste::mesmosBits(k, kRef) && teste::mesmosBits(d, dRef)) << d.size() << " " << dRef.size();
    }
}

TEST(FormaDoOpenCV, OpenCV24AndHandWrittenStoresInItsForm) {
  const char* const textos[] = {
      // OpenCV 2.4 wrote no "---".
      "%YAML:1.0\nkeypoints: [ 4.41591370e+02, 262., 6.06316137e+00, 40.2, 9.33e-02, 4457216, -1 ]\n",
      "%YAML:1.0\n---\n",
      "%YAML:1.0\n---\nkeypoints: [ .5, -.25, 1.E+00, .NAN, -.inf, 007, -0 ]\n",
      "%YAML:1.0\n---\nkeypoints:\n   -\n      - 1.\n      - [ 2., [ 3., { a:1, b: 2 } ] ]\n",
      "%YAML:1.0\n---\nkeypoints: [ 1., 2.,\n  3., 4., 5.,\n 6, 7 ]\n",
      "<?xml version=\"1.0\"?>\n<opencv_storage>\n</opencv_storage>\n",
      "<?xml version=\"1.0\"?><opencv_storage><keypoints>1. 2. 3. 4. 5. 6 7</keypoints></opencv_storage>",
      "{\n}\n",
      "{\"keypoints\":[1.,2.,3.,4.,5.,6,7],\"a\":{\"b\":[[],{}]}}",
  };
  teste::PastaTemp pasta;
  for (const char* texto : textos) {
    SCOPED_TRACE(texto);
    EXPECT_TRUE(aceita(texto));
    teste::escreveTexto(pasta / "s.txt", texto);
    std::vector<cv::KeyPoint> k, kRef;
    cv::Mat d, dRef;
    const std::string mensagem = teste::mensagemDe([&] { formats::leDescritores(pasta / "s.txt", k, d); });
    const std::string mensagemRef =
        teste::mensagemDe([&] { formats::leDescritoresFileStorage(pasta / "s.txt", kRef, dRef); });
    EXPECT_EQ(mensagem, mensagemRef);
    EXPECT_TRUE(teste::mesmosBits(k, kRef) && teste::mesmosBits(d, dRef));
  }
}

// Text refused before any parser: what makes OpenCV's parsers loop, crash or
// read past their buffers, and what its writers never produce.
TEST(FormaDoOpenCV, HostileAndForeignTextRefusedAsAFailedOpen) {
  const std::string kp = "%YAML:1.0\n---\nkeypoints: [ 1., 2., 3., 4., 5., 6, 7 ]\n";
  const std::string xml = "<?xml version=\"1.0\"?>\n<opencv_storage>\n<keypoints>1. 2.</keypoints>\n</opencv_storage>\n";
  const std::string profundo = std::string(40, '[') + "1" + std::string(40, ']');
  std::string xmlProfundo = "<?xml version=\"1.0\"?>\n<opencv_storage>\n<k>";
  for (int i = 0; i < 40; ++i) xmlProfundo += "<_>";
  for (int i = 0; i < 40; ++i) xmlProfundo += "</_>";
  xmlProfundo += "</k>\n</opencv_storage>\n";
  const std::pair<const char*, std::string> casos[] = {
      // OpenCV's YAML parser never returns on these two.
      {"recuoVaiEVolta", "%YAML:1.0\n\n   - 9.\n - 7\n   - -1\n"},
      {"recuoVaiEVoltaComChave", "%YAML:1.0\n---\nk:\n   - 9.\n - 7\n   - -1\n"},
      {"linhaEmBranco", "%YAML:1.0\n---\nkeypoints:\n\n   - 1.\n"},
      {"recuoDe2", "%YAML:1.0\n---\nkeypoints:\n  - 1.\n"},
      {"recuoMaiorNoMeio", "%YAML:1.0\n---\nkeypoints:\n   - 1.\n    - 2.\n"},
      {"tab", "%YAML:1.0\n---\nkeypoints:\n\t- 1.\n"},
      {"comentario", "%YAML:1.0\n---\n# nota\n" + kp.substr(14)},
      {"semValor", "%YAML:1.0\n---\nkeypoints:\ndescriptors:\n"},
      {"brancoNoFim", kp.substr(0, kp.size() - 1) + " \n"},
      {"crlf", "%YAML:1.0\r\n---\r\nkeypoints: [ 1. ]\r\n"},
      {"bom", "\xEF\xBB\xBF" + kp},
      {"semFimDeLinha", kp.substr(0, kp.size() - 1)},
      {"fluxoAberto", "%YAML:1.0\n---\nkeypoints: [ 1., 2.\n"},
      {"continuacaoSemRecuo", "%YAML:1.0\n---\nkeypoints: [ 1.,\n2. ]\n"},
      {"aspasAbertas", "%YAML:1.0\n---\nk: \"abc\n"},
      {"hexadecimal", "%YAML:1.0\n---\nk: [ 0x10 ]\n"},
      {"ancora", "%YAML:1.0\n---\nk: &a [ 1 ]\n"},
      {"base64", "%YAML:1.0\n---\nk: !!binary |\n   AAAA\n"},
      {"profundo", "%YAML:1.0\n---\nk: " + profundo + "\n"},
      {"nul", std::string("%YAML:1.0\n---\nk: [ 1.\0 ]\n", 23)},
      {"vazio", ""},
      {"lixo", std::string(300, '\x9c')},
      // OpenCV's XML parser follows a null pointer on the first two.
      {"xmlAteAtributo", "<?xml version=\"1.0\"?>\n<opencv_storage>\n<keypoints type_id="},
      {"xmlCortado", xml.substr(0, xml.size() / 2)},
      {"xmlNul", std::string("a<?xml version=") + std::string(31, '\0') + "\"1.0\"?>\n<opencv_storage>\n"},
      {"xmlFechaOutro", "<?xml version=\"1.0\"?>\n<opencv_storage>\n<a>1</b>\n</opencv_storage>\n"},
      {"xmlOutroAtributo", "<?xml version=\"1.0\"?>\n<opencv_storage>\n<a x=\"1\">1</a>\n</opencv_storage>\n"},
      {"xmlTextoEMapa", "<?xml version=\"1.0\"?>\n<opencv_storage>\n<a>1 <b>2</b></a>\n</opencv_storage>\n"},
      {"xmlComentario", "<?xml version=\"1.0\"?>\n<opencv_storage>\n<!-- x --></opencv_storage>\n"},
      {"xmlProfundo", xmlProfundo},
      {"xmlDepoisDoFim", xml + "<a>1</a>\n"},
      {"jsonSemFechar", "{\n    \"keypoints\": [ 1., 2. ]\n"},
      {"jsonPalavraSemAspas", "{ \"k\": abc }"},
      {"jsonDepoisDoFim", "{ \"k\": 1 } 2"},
      {"jsonProfundo", "{ \"k\": " + profundo + " }"},
  };
  teste::PastaTemp pasta;
  for (const auto& [nome, texto] : casos) {
    SCOPED_TRACE(nome);
    EXPECT_FALSE(aceita(texto));
    const std::string arquivo = pasta / (std::string(nome) + ".yml");
    teste::escreveTexto(arquivo, texto);
    EXPECT_EQ(teste::mensagemDe([&] { formats::leKeyPoints(arquivo); }), "Erro abertura arquivo " + arquivo);
  }
}

}  // namespace
