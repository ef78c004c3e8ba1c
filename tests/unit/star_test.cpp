// features::StarDetector against OpenCV's own STAR (stored outputs), under
// rotation, and on degenerate images.
#include "features/star.hpp"
#include "tests/common/invariancia.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <set>
#include <string>
#include <tuple>

namespace {

const features::StarDetector kStar(64, 10, 10, 8, 5);

// Both polarities, every filter size and the line test meet on these views.
TEST(Star, AchaOsMesmosKeypointsQueOpenCV) {
  for (const std::string n : {"img1", "img2"}) {
    std::vector<cv::KeyPoint> nossos;
    const std::vector<cv::KeyPoint> ref = teste::leReferencia(n + "-star.yml.gz");
    kStar.detect(teste::leCinzaDeDados(n + ".png"), nossos);
    EXPECT_GE(teste::fracaoAchada(ref, nossos), 0.98) << n;
    EXPECT_GE(teste::fracaoAchada(nossos, ref), 0.98) << n;
    const std::set<float> tamanhos = {4, 6, 8, 12, 16, 22, 32, 46};
    for (const cv::KeyPoint& k : nossos) {
      EXPECT_EQ(k.pt, cv::Point2f(std::round(k.pt.x), std::round(k.pt.y)));
      EXPECT_EQ(tamanhos.count(k.size), 1u) << k.size;
      EXPECT_EQ(std::tuple(k.angle, k.octave, k.class_id), std::tuple(-1.0f, 0, -1));
      EXPECT_GT(k.response, 10.0f);
    }
  }
}

TEST(Star, Mascara) {
  const cv::Mat img = teste::discos(300, 400, 11);
  std::vector<cv::KeyPoint> todos, metade;
  kStar.detect(img, todos);
  cv::Mat mascara(img.size(), CV_8U, cv::Scalar(0));
  mascara(cv::Rect(0, 0, 200, 300)).setTo(255);
  kStar.detect(img, metade, mascara);
  ASSERT_FALSE(metade.empty());
  EXPECT_LT(metade.size(), todos.size());
  for (const cv::KeyPoint& k : metade) EXPECT_LT(k.pt.x, 200.0f);
}

TEST(Star, ImagensDegeneradasSemKeypointsNemFalha) {
  struct Caso {
    const char* nome;
    cv::Mat img;
    int maxSize;
  };
  const Caso casos[] = {{"vazia", cv::Mat(), 64},
                        {"uniforme", teste::uniforme(300, 300, 90), 64},
                        {"menor que o filtro", teste::discos(150, 150, 4), 64},
                        {"uma coluna", teste::textura(400, 1, 2), 64},
                        {"maxSize minusculo", teste::discos(200, 200, 5), 3},
                        {"maxSize negativo", teste::discos(200, 200, 5), -5}};
  for (const Caso& c : casos) {
    std::vector<cv::KeyPoint> kps(3);
    features::StarDetector(c.maxSize, 10, 10, 8, 5).detect(c.img, kps);
    EXPECT_TRUE(kps.empty()) << c.nome;
  }
}

TEST(StarInvariancia, Rotacao) {
  // A reduced view of a real image; the benchmark program measures the full
  // image.
  cv::Mat img;
  cv::resize(teste::leCinzaDeDados("img1.png"), img, cv::Size(), 0.6, 0.6, cv::INTER_AREA);
  const teste::Invariancia inv(
      [](const cv::Mat& i, const cv::Mat& m, std::vector<cv::KeyPoint>& k) { kStar.detect(i, k, m); }, img);
  for (int graus = 0; graus < 360; graus += 15) {
    const teste::Repeticao r = inv.rotacao(graus);
    ASSERT_GT(r.levados, 50);
    EXPECT_GE(r.razao(), 0.40) << graus;
  }
}

}  // namespace
