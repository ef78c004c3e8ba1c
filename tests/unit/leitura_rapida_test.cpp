// The direct parser of stores and match files against the readers it
// stands before: every file the writers produce is taken and reads to the
// same bits; every text outside the writers' exact shapes is left to them.
#include "formats/leitura_rapida.hpp"
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "support/processo.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
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
    for (const std::string formato : {"xml", "yml", "yaml", "xml.gz", "yml.gz"}) {
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
      {"yml", "dt: f", "dt: d"}, {"yml", "dt: f", "dt: 2f"},
      {"yml", "dt: f\n   data: [ 1., 2. ]", "dt: f\n   data: !!binary |\n     AAAA"},
      {"yml", "data: [ 1.,", "data: [ .Inf,"}, {"yml", "[ 1.,", "[ .Nan,"}, {"yml", "0, -1 ]", "0x10, -1 ]"},
      {"yml", "0, -1 ]", "010, -1 ]"}, {"yml", "2.5e+00", "2.5E+00"}, {"yml", "3.,", "+3.,"},
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
  // The text's start chooses the syntax, as for FileStorage, whatever the
  // name; only ".gz" is inflated (zlib passes plain text through).
  for (const char* nome : {"s.yml", "s.yml.gz", "s.txt", "s.XML", "s.xml.GZ"})
    EXPECT_EQ(leRapido(nome, kXml), std::pair(true, size_t(1))) << nome;
  std::vector<cv::KeyPoint> k;
  EXPECT_FALSE(formats::leStoreRapido("/nao/ha/falta.yml", k, nullptr));
}

// ------------------------------------------------ stores written by OpenCV itself

// The keypoint sequence as OpenCV's writers lay it out: cv::write of a
// keypoint vector (a flow sequence of floats per keypoint), or the numbers
// one by one as a Python program writes them (doubles), flat or one
// sequence per keypoint, each sequence in block or in flow.
enum class Disposicao { CvWrite, PlanoBloco, PlanoFluxo, AninhadoBloco, BlocoDeFluxos, FluxoDeFluxos };

struct KeyPointBruto {
  double v[5];
  int octave, classId;
};

// Values that are hard to read back: the float extremes, subnormals of both
// types, negative zero, halves, doubles between two floats (the reader must
// round as FileStorage does), then random float bit patterns and doubles of
// every magnitude.
std::vector<KeyPointBruto> valoresDificeis(int n, unsigned semente) {
  const double fixos[] = {0.0,     -0.0,    0.5,     -0.5,       1.0,   FLT_MAX, -FLT_MAX,      FLT_TRUE_MIN,
                          FLT_MIN, 1e-320,  1e-45,   16777217.0, 0.1,   1.0 / 3, 123456789.123, -2.5e-39,
                          -1.0,    1e38,    3e-310,  2047.5,     1e-7};
  const int inteiros[] = {0, -1, INT_MAX, INT_MIN, 1 << 20, 9437440, -7};
  std::mt19937 g(semente);
  std::uniform_int_distribution<uint32_t> bits;
  std::uniform_real_distribution<double> u(1.0, 2.0);
  const auto aleatorio = [&]() -> double {
    switch (g() % 3) {
      case 0: {
        float f;
        do {
          const uint32_t b = bits(g);
          std::memcpy(&f, &b, sizeof f);
        } while (!std::isfinite(f));
        return f;
      }
      case 1: return std::floor(u(g) * 1000) - 1500;  // whole, as SIFT's are
      default: return (g() % 2 ? -1 : 1) * std::ldexp(u(g), static_cast<int>(g() % 250) - 125);
    }
  };
  std::vector<KeyPointBruto> k(static_cast<size_t>(n));
  size_t i = 0;
  for (KeyPointBruto& kp : k) {
    for (double& v : kp.v) v = i < std::size(fixos) ? fixos[i++] : aleatorio();
    kp.octave = inteiros[g() % std::size(inteiros)];
    kp.classId = static_cast<int>(g());
  }
  return k;
}

// Random float bits (finite) in a float matrix, random bytes in a uchar one.
cv::Mat descritoresDificeis(int rows, int cols, int tipo, unsigned semente) {
  cv::Mat d(rows, cols, tipo);
  std::mt19937 g(semente);
  if (tipo == CV_8U) {
    for (uchar& v : cv::Mat_<uchar>(d)) v = static_cast<uchar>(g());
    return d;
  }
  for (float& v : cv::Mat_<float>(d)) do {
      const uint32_t b = static_cast<uint32_t>(g());
      std::memcpy(&v, &b, sizeof v);
    } while (!std::isfinite(v));
  return d;
}

void escreveComOpenCV(const std::string& arquivo, Disposicao disposicao, const std::vector<KeyPointBruto>& kps,
                      const cv::Mat* descriptors, bool descritoresPrimeiro) {
  cv::FileStorage fs(arquivo, cv::FileStorage::WRITE);
  ASSERT_TRUE(fs.isOpened()) << arquivo;
  if (descriptors && descritoresPrimeiro) cv::write(fs, "descriptors", *descriptors);
  if (disposicao == Disposicao::CvWrite) {
    std::vector<cv::KeyPoint> k;
    for (const KeyPointBruto& b : kps)
      k.emplace_back(static_cast<float>(b.v[0]), static_cast<float>(b.v[1]), static_cast<float>(b.v[2]),
                     static_cast<float>(b.v[3]), static_cast<float>(b.v[4]), b.octave, b.classId);
    cv::write(fs, "keypoints", k);
  } else {
    const bool aninhado = disposicao != Disposicao::PlanoBloco && disposicao != Disposicao::PlanoFluxo;
    const bool fluxoExterno = disposicao == Disposicao::PlanoFluxo || disposicao == Disposicao::FluxoDeFluxos;
    const bool fluxoInterno = disposicao != Disposicao::AninhadoBloco;
    fs << "keypoints" << (fluxoExterno ? "[:" : "[");
    for (const KeyPointBruto& b : kps) {
      if (aninhado) fs << (fluxoInterno ? "[:" : "[");
      for (double v : b.v) fs << v;
      fs << b.octave << b.classId;
      if (aninhado) fs << "]";
    }
    fs << "]";
  }
  if (descriptors && !descritoresPrimeiro) cv::write(fs, "descriptors", *descriptors);
  fs.release();
}

// The direct reader takes `arquivo` and reads it, with and without the
// descriptors, to the bits FileStorage gives.
void esperaIgualAoFileStorage(const std::string& arquivo, size_t keypoints) {
  SCOPED_TRACE(arquivo);
  std::vector<cv::KeyPoint> rapidos(3), lentos, soKeyPoints;
  cv::Mat rapida = cv::Mat::ones(2, 2, CV_64F), lenta = cv::Mat::ones(2, 2, CV_64F);
  ASSERT_TRUE(formats::leStoreRapido(arquivo, rapidos, &rapida));
  formats::leDescritoresFileStorage(arquivo, lentos, lenta);
  EXPECT_EQ(rapidos.size(), keypoints);
  EXPECT_TRUE(teste::mesmosBits(rapidos, lentos));
  EXPECT_TRUE(teste::mesmosBits(rapida, lenta)) << rapida.size() << " " << lenta.size();
  ASSERT_TRUE(formats::leStoreRapido(arquivo, soKeyPoints, nullptr));
  EXPECT_TRUE(teste::mesmosBits(soKeyPoints, lentos));
}

TEST(StoreDoOpenCV, EveryLayoutOfItsCppWriterTakenWithTheSameBits) {
  const std::pair<const char*, Disposicao> disposicoes[] = {
      {"CvWrite", Disposicao::CvWrite},           {"PlanoBloco", Disposicao::PlanoBloco},
      {"PlanoFluxo", Disposicao::PlanoFluxo},     {"AninhadoBloco", Disposicao::AninhadoBloco},
      {"BlocoDeFluxos", Disposicao::BlocoDeFluxos}, {"FluxoDeFluxos", Disposicao::FluxoDeFluxos}};
  // Keypoints, descriptors, whether they come first.
  const cv::Mat f = descritoresDificeis(60, 128, CV_32F, 3), u = descritoresDificeis(1, 61, CV_8U, 4), nada;
  const std::tuple<const char*, int, const cv::Mat*, bool> conteudos[] = {
      {"Float", 60, &f, false}, {"UcharAntes", 1, &u, true}, {"SoKeyPoints", 30, nullptr, false},
      {"Vazio", 0, &nada, false}, {"SemKeyPoints", 0, nullptr, false}};
  teste::PastaTemp pasta;
  for (const auto& [nomeDisposicao, disposicao] : disposicoes)
    for (const auto& [nomeConteudo, n, d, antes] : conteudos)
      for (const std::string formato : {"xml", "yml", "yaml", "xml.gz", "yml.gz"}) {
        const std::string arquivo = pasta / (std::string(nomeDisposicao) + "-" + nomeConteudo + "." + formato);
        escreveComOpenCV(arquivo, disposicao, valoresDificeis(n, static_cast<unsigned>(n)), d, antes);
        esperaIgualAoFileStorage(arquivo, static_cast<size_t>(n));
      }
}

// Python's cv2.FileStorage writes nodes one value at a time; Debian's
// python3-opencv lives under /usr/bin/python3.
const char* const kPython = R"(
import sys, random, struct
import numpy as np, cv2
pasta = sys.argv[1]
r = random.Random(11)
S, F = cv2.FileNode_SEQ, cv2.FileNode_FLOW
def valor():
    escolha = r.randrange(4)
    if escolha == 0:
        while True:
            f = struct.unpack("f", struct.pack("I", r.getrandbits(32)))[0]
            if f == f and abs(f) != float("inf"): return f
    if escolha == 1: return float(r.randrange(-2000, 2000))
    if escolha == 2: return r.choice([0.0, -0.0, 0.5, 3.4028234663852886e+38, 1e-45, 5e-324, 0.1, 1e-310])
    return r.choice([-1, 1]) * r.uniform(1, 2) * 2.0 ** r.randrange(-125, 125)
for n, dt in ((50, np.float32), (1, np.uint8), (0, np.float32)):
    kps = [[valor() for _ in range(5)] + [r.randrange(-2**31, 2**31), r.choice([-1, 0, 2**31 - 1])]
           for _ in range(n)]
    bits = np.frombuffer(np.random.default_rng(n).bytes(4 * n * 128), np.uint32).reshape(n, 128)
    d = bits.view(np.float32).copy() if dt == np.float32 else (bits & 255).astype(np.uint8)
    d[~np.isfinite(d)] = 7
    for forma, externo, interno in (("plano", S, None), ("planofluxo", S | F, None), ("aninhado", S, S),
                                    ("blocodefluxos", S, S | F), ("fluxodefluxos", S | F, S | F)):
        for ext in ("xml", "yml", "xml.gz", "yml.gz"):
            fs = cv2.FileStorage("%s/%s-%d.%s" % (pasta, forma, n, ext), cv2.FILE_STORAGE_WRITE)
            fs.startWriteStruct("keypoints", externo)
            for k in kps:
                if interno is not None: fs.startWriteStruct("", interno)
                for v in k[:5]: fs.write("", float(v))
                for v in k[5:]: fs.write("", int(v))
                if interno is not None: fs.endWriteStruct()
            fs.endWriteStruct()
            if n > 0: fs.write("descriptors", d)
            fs.release()
)";

TEST(StoreDoOpenCV, WrittenByPythonTakenWithTheSameBits) {
  if (std::system("/usr/bin/python3 -c 'import cv2, numpy' 2>/dev/null") != 0)
    GTEST_SKIP() << "sem python3-opencv em /usr/bin/python3";
  teste::PastaTemp pasta, script;
  teste::escreveTexto(script / "grava.py", kPython);
  ASSERT_EQ(std::system(("/usr/bin/python3 " + tvm::aspasShell(script / "grava.py") + " " + tvm::aspasShell(pasta.caminho())).c_str()), 0);
  const std::vector<std::string> arquivos = pasta.conteudo();
  ASSERT_EQ(arquivos.size(), 3u * 5 * 4);
  for (const std::string& nome : arquivos) {
    const size_t traco = nome.find('-');
    esperaIgualAoFileStorage(pasta / nome, static_cast<size_t>(std::atoi(nome.c_str() + traco + 1)));
  }
}

void escreveGz(const std::string& arquivo, const std::string& texto) {
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> gz(::gzopen(arquivo.c_str(), "wb"), ::gzclose);
  ASSERT_TRUE(gz);
  ASSERT_EQ(::gzwrite(gz.get(), texto.data(), static_cast<unsigned>(texto.size())), static_cast<int>(texto.size()));
}

// Hand-written numbers in the forms OpenCV's parsers take, read as
// FileStorage reads them; and edits of OpenCV's layouts that it reads
// otherwise or refuses.
TEST(StoreDoOpenCV, NumberFormsAndNearLayouts) {
  const std::string kpYaml = "%YAML:1.0\n---\nkeypoints:\n   - [ 1., .5, -.25, -0., 1.00000000e+00, 2, -1 ]\n";
  const std::string kpXml = "<?xml version=\"1.0\"?>\n<opencv_storage>\n<keypoints>\n  <_>\n"
                            "    1. .5 -.25 -0. 1.00000000e+00 2 -1</_></keypoints>\n</opencv_storage>\n";
  const std::string blocoYaml = "%YAML:1.0\n---\nkeypoints:\n   -\n      - 1.\n      - 2.\n      - 3.\n"
                                "      - 4.\n      - 5.\n      - 6\n      - 7\n";
  teste::PastaTemp pasta;
  for (const auto& [nome, texto] : {std::pair("a.yml", kpYaml), {"a.xml", kpXml}, {"b.yml", blocoYaml}}) {
    teste::escreveTexto(pasta / nome, texto);
    esperaIgualAoFileStorage(pasta / nome, 1);
    escreveGz(pasta / nome + ".gz", texto);
    esperaIgualAoFileStorage(pasta / nome + ".gz", 1);
    // zlib, for OpenCV as here, passes through text that is not gzip.
    teste::escreveTexto(pasta / ("plano-" + std::string(nome) + ".gz"), texto);
    esperaIgualAoFileStorage(pasta / ("plano-" + std::string(nome) + ".gz"), 1);
  }
  const struct {
    const std::string& base;
    const char* extensao;
    std::string de, para;
  } edicoes[] = {
      {kpYaml, "yml", "2, -1 ]", "2 ]"},                       // six numbers
      {kpYaml, "yml", "2, -1 ]", "2, -1, 3 ]"},                // eight
      {kpYaml, "yml", "   - [", "   - 3\n   - ["},            // flat, then nested
      {kpYaml, "yml", "   - [", "  - ["},                      // indentation
      {kpYaml, "yml", "   - [", "   - [ 1., 2., 3., 4., 5., 6, 7 ]\n  - ["},
      {kpYaml, "yml", "-1 ]\n", "-1 ]\nkeypoints: []\n"},      // twice
      {kpYaml, "yml", "-1 ]\n", "-1 ]\n   - [ ]\n"},           // an empty item
      {kpYaml, "yml", "-1 ]\n", "-1 ] \n"},                    // trailing blank
      {kpYaml, "yml", ".5", "+.5"}, {kpYaml, "yml", ".5", "."}, {kpYaml, "yml", ".5", ".e1"},
      {blocoYaml, "yml", "      - 7\n", ""},                 // six numbers
      {blocoYaml, "yml", "      - 7\n", "      - 7\n      - 8\n"},
      {blocoYaml, "yml", "      - 4.", "       - 4."},
      {blocoYaml, "yml", "      - 4.", "      -  4."},
      {blocoYaml, "yml", "      - 7\n", "      - 7\n   - 1."},  // nested, then flat
      {blocoYaml, "yml", "keypoints:\n", "keypoints:\ndescriptors:\n"},  // keys with no value
      {blocoYaml, "yml", "keypoints:\n   -\n", "keypoints:\n   \n   -\n"},
      {kpXml, "xml", "-1</_>", "</_>"}, {kpXml, "xml", "-1</_>", "-1 8</_>"},
      {kpXml, "xml", "</_></keypoints>", "</_>1. 2. 3. 4. 5. 6 7</keypoints>"},
      {kpXml, "xml", "<_>", "<_><_>"}, {kpXml, "xml", "<_>", "<x>"},
      {kpXml, "xml", "</keypoints>", "</keypoints><keypoints></keypoints>"},
  };
  for (const auto& e : edicoes) {
    std::string texto = e.base;
    const size_t i = texto.find(e.de);
    ASSERT_NE(i, std::string::npos) << e.de;
    EXPECT_FALSE(leRapido(std::string("s.") + e.extensao, texto.replace(i, e.de.size(), e.para)).first) << texto;
  }
  // Compressed text cut short; gzip data in a name without ".gz".
  escreveGz(pasta / "c.yml.gz", kpYaml);
  const std::string gz = teste::leTexto(pasta / "c.yml.gz");
  EXPECT_FALSE(leRapido("t.yml.gz", gz.substr(0, gz.size() - 9)).first);
  EXPECT_FALSE(leRapido("t.yml", gz).first);
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
