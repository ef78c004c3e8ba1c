// Inputs at the edge of what the tools take, on the real binary: the memory
// the detectors are estimated to need against what they do take, and the
// keypoints handed to OpenCV's SIFT descriptor (a wrong one there corrupts
// memory silently, which the sanitizer build of these tests would catch).
// Their messages, word for word, are in mensagens_cli_test.
#include "algoritmos/tabela.hpp"
#include "features/memoria.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using features::Detector;

// The estimate must not fall below the peak (that is the case it exists
// for) nor stand far above it (it would refuse images that fit).
TEST(MemoriaDosDetectores, EstimateFollowsThePeakOfTheRun) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer's shadow memory is no part of the estimate";
#endif
  teste::PastaTemp pasta;
  // A texture, rich in keypoints as photographs are (noise would add tens of
  // megabytes of store text, which is the writer's, not the detector's);
  // 1000 x 1000 keeps SIFT near 250 MB.
  teste::salva(teste::textura(1000, 1000, 7), pasta / "r.png");
  const struct {
    const char* ferramenta;
    Detector detector;
    std::vector<std::string> extra;
    int camadas;
  } casos[] = {{"KeySift", Detector::sift, {}, 3},         {"KeySift", Detector::sift, {"0", "5"}, 5},
               {"KeySurf", Detector::surf, {}, 3},         {"KeySurf", Detector::surf, {"100"}, 2},
               {"KeyStar", Detector::star, {}, 3},         {"KeyFast", Detector::fast, {}, 3},
               {"DesSift", Detector::sift, {}, 3},         {"DesSurf", Detector::surf, {}, 3}};
  for (const auto& c : casos) {
    std::vector<std::string> args = {c.ferramenta, "r.png", "s.yml"};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    SCOPED_TRACE(testing::PrintToString(args));
    const teste::Execucao e = teste::roda(args, pasta.caminho());
    ASSERT_EQ(e.status, 0) << e.err;
    const double pico = e.picoKb * 1024.0, estimativa = features::memoriaDetector(c.detector, {1000, 1000}, c.camadas);
    EXPECT_LT(pico, 1.15 * estimativa);
    EXPECT_GT(pico, 0.7 * estimativa);
  }
}

// The table's rows the same way, with a looser floor: their figures are the
// larger of noise and smooth images, and a texture falls between (SimpleBlob
// takes eight times as much on noise as on a smooth image).
TEST(MemoriaDosDetectores, EstimateOfEachTableRowHoldsThePeak) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer's shadow memory is no part of the estimate";
#endif
  teste::PastaTemp pasta;
  teste::salva(teste::textura(1000, 1000, 7), pasta / "r.png");
  for (const algoritmos::LinhaDetector& l : algoritmos::detectores()) {
    if (l.propria != nullptr) continue;
    SCOPED_TRACE(l.ferramenta);
    const teste::Execucao e = teste::roda({l.ferramenta, "r.png", "s.yml"}, pasta.caminho());
    ASSERT_EQ(e.status, 0) << e.err;
    const double pico = e.picoKb * 1024.0,
                 estimativa = features::kMemoriaBase + l.bytesFixos + l.bytesPorPixel * 1e6;
    EXPECT_LT(pico, 1.15 * estimativa);
    EXPECT_GT(pico, 0.3 * estimativa);
  }
}

std::vector<cv::KeyPoint> comAngulos(const std::vector<float>& angulos) {
  std::vector<cv::KeyPoint> k;
  for (size_t i = 0; i < angulos.size(); ++i)
    k.emplace_back(40.0f + 30.0f * (i % 4), 40.0f + 30.0f * (i / 4), 20.0f, angulos[i]);
  return k;
}

// What DesSift writes for the keypoints `k` on the texture.
struct Saida {
  std::vector<cv::KeyPoint> keypoints;
  cv::Mat descritores;
};
Saida desSift(const std::vector<cv::KeyPoint>& k, const cv::Mat_<uchar>& imagem) {
  teste::PastaTemp pasta;
  teste::salva(imagem, pasta / "a.png");
  formats::impKeyPoints(pasta / "k.yml", k);
  teste::rodaBem({"DesSift", "a.png", "d.yml", "k.yml"}, pasta.caminho());
  Saida s;
  formats::leDescritores(pasta / "d.yml", s.keypoints, s.descritores);
  return s;
}

// A direction written outside 0..360 describes as the same direction inside
// it, and the store keeps the angle as it was given.
TEST(DesSift, AnglesOutside0To360DescribeTheirDirection) {
  const cv::Mat_<uchar> textura = teste::textura(160, 160, 3);
  const std::vector<float> fora = {-80.0f, 640.0f, -360.0f, 360.0f, -0.5f, 35999.0f, -35999.0f, 1000.0f};
  const std::vector<float> dentro = {280.0f, 280.0f, 0.0f, 0.0f, 359.5f, 359.0f, 1.0f, 280.0f};
  const Saida a = desSift(comAngulos(fora), textura), b = desSift(comAngulos(dentro), textura);
  ASSERT_EQ(a.descritores.rows, 8);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(a.keypoints[i].angle, fora[i]);
    EXPECT_EQ(cv::norm(a.descritores.row(i), b.descritores.row(i), cv::NORM_INF), 0.0) << fora[i];
  }
  // Not the same descriptor whatever the angle: 280 and 100 differ.
  const Saida c = desSift(comAngulos(std::vector<float>(8, 100.0f)), textura);
  EXPECT_GT(cv::norm(b.descritores.row(0), c.descritores.row(0), cv::NORM_INF), 0.0);
}

// SIFT's window radius is round(5.3 x size x scale) and must reach 6: the
// smallest size is about 1.04 at octave 0, half that at -1, twice at 1.
// A level too small for such a window is refused too.
TEST(DesSift, SizesAroundTheSmallestWindow) {
  const struct {
    int lado;      // of the square image
    float size;
    int octave;    // as packed in the keypoint: -1 is 255
    bool aceito;
  } casos[] = {{160, 1.04f, 0, true},  {160, 1.03f, 0, false}, {160, 0.52f, 255, true}, {160, 0.51f, 255, false},
               {160, 2.08f, 1, true},  {160, 2.07f, 1, false}, {160, 1e-30f, 0, false},
               // 5 x 5 has a diagonal of 7 at octave 0; 4 x 4 only 5.6.
               {5, 3.0f, 0, true},     {4, 3.0f, 0, false},    {4, 3.0f, 255, true}};
  for (const auto& c : casos) {
    SCOPED_TRACE(std::to_string(c.lado) + " " + std::to_string(c.size) + " " + std::to_string(c.octave));
    teste::PastaTemp pasta;
    teste::salva(teste::textura(c.lado, c.lado, 4), pasta / "a.png");
    formats::impKeyPoints(pasta / "k.yml", {cv::KeyPoint(c.lado / 2.0f, c.lado / 2.0f, c.size, 30.0f, 0, c.octave)});
    const teste::Execucao e = teste::roda({"DesSift", "a.png", "d.yml", "k.yml"}, pasta.caminho());
    EXPECT_EQ(e.status, c.aceito ? 0 : 1) << e.err;
    EXPECT_EQ(e.sinal, 0);
    if (!c.aceito) {
      EXPECT_NE(e.err.find("pequen"), std::string::npos) << e.err;
    }
  }
}

// Too small for SIFT to find anything: an empty store and its warning, as
// on any image without keypoints, and not a message of the library's.
TEST(DesSift, TinyImagesGiveAnEmptyStore) {
  for (int lado : {1, 2, 3}) {
    SCOPED_TRACE(lado);
    teste::PastaTemp pasta;
    teste::salva(teste::textura(lado, lado, 1), pasta / "a.png");
    EXPECT_EQ(teste::rodaComAvisos({"DesSift", "a.png", "d.yml"}, pasta.caminho(), {"nenhum keypoint em d.yml"}),
              "KeyPoints k=0\n");
    std::vector<cv::KeyPoint> k(1);
    cv::Mat d;
    formats::leDescritores(pasta / "d.yml", k, d);
    EXPECT_TRUE(k.empty());
    EXPECT_EQ(std::make_tuple(d.rows, d.cols, d.type()), std::make_tuple(0, 128, CV_32F));
  }
}

}  // namespace
