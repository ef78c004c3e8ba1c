// features::StarDetector against OpenCV's own STAR (stored outputs), under
// rotation, and on degenerate images.
#include "features/invariancia.hpp"
#include "features/star.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>

namespace {

const std::string kDados = QUIVELAR_DATA;
const std::string kReferencia = kDados + "/../tests/data/reference/";

cv::Mat leCinza(const std::string& nome) { return teste::leCinzaDeDados(nome); }

double fracaoAchada(const std::vector<cv::KeyPoint>& a, const std::vector<cv::KeyPoint>& b) {
  int n = 0;
  for (const cv::KeyPoint& k : a)
    for (const cv::KeyPoint& o : b)
      if (cv::norm(k.pt - o.pt) <= 1.5 && std::fabs(k.size - o.size) <= 0.1 * k.size) {
        ++n;
        break;
      }
  return a.empty() ? 0.0 : double(n) / a.size();
}

const features::StarDetector kStar(64, 10, 10, 8, 5);

class StarReferencia : public ::testing::TestWithParam<const char*> {};

TEST_P(StarReferencia, AchaOsMesmosKeypointsQueOpenCV) {
  const std::string n = GetParam();
  std::vector<cv::KeyPoint> ref, nossos;
  cv::FileStorage fs(kReferencia + n + "-star.yml.gz", cv::FileStorage::READ);
  ASSERT_TRUE(fs.isOpened());
  cv::read(fs["keypoints"], ref);
  kStar.detect(leCinza(n + ".png"), nossos);
  const double achados = fracaoAchada(ref, nossos), nossosNaRef = fracaoAchada(nossos, ref);
  EXPECT_GE(achados, 0.98) << n;
  EXPECT_GE(nossosNaRef, 0.98) << n;
  const std::set<float> tamanhos = {4, 6, 8, 12, 16, 22, 32, 46};
  for (const cv::KeyPoint& k : nossos) {
    EXPECT_EQ(k.pt.x, std::round(k.pt.x));
    EXPECT_EQ(k.pt.y, std::round(k.pt.y));
    EXPECT_EQ(tamanhos.count(k.size), 1u) << k.size;
    EXPECT_EQ(k.angle, -1.0f);
    EXPECT_EQ(k.octave, 0);
    EXPECT_EQ(k.class_id, -1);
    EXPECT_GT(k.response, 10.0f);
  }
}

INSTANTIATE_TEST_SUITE_P(Graf, StarReferencia, ::testing::Values("img1", "img2"));

TEST(Star, DiscoClaroOuEscuroNoCentro) {
  // One disc on a flat ground: the strongest keypoint sits at its centre,
  // bright or dark alike, with a size that grows with the radius.
  for (uchar disco : {uchar(40), uchar(220)}) {
    float anterior = 0;
    for (int raio : {3, 6, 10, 14}) {
      cv::Mat img(260, 260, CV_8U, cv::Scalar(disco == 40 ? 200 : 60));
      cv::circle(img, {130, 130}, raio, cv::Scalar(disco), cv::FILLED);
      std::vector<cv::KeyPoint> kps;
      kStar.detect(img, kps);
      ASSERT_FALSE(kps.empty()) << raio;
      const cv::KeyPoint& k = *std::max_element(kps.begin(), kps.end(), [](const cv::KeyPoint& a, const cv::KeyPoint& b) {
        return a.response < b.response;
      });
      EXPECT_LE(cv::norm(k.pt - cv::Point2f(130, 130)), 1.0) << raio;
      EXPECT_GT(k.size, anterior) << raio;
      anterior = k.size;
    }
  }
}

TEST(Star, LinhaRetaNaoDaKeypoints) {
  cv::Mat img(400, 400, CV_8U, cv::Scalar(200));
  cv::line(img, {20, 200}, {380, 200}, cv::Scalar(30), 5);
  std::vector<cv::KeyPoint> kps;
  kStar.detect(img, kps);
  // The filters are computed from column 96 to 303: their edge may give
  // keypoints, the middle of the line may not.
  for (const cv::KeyPoint& k : kps) EXPECT_TRUE(k.pt.x < 100 || k.pt.x > 300) << k.pt;
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

struct CasoDegenerado {
  const char* nome;
  cv::Mat img;
  int maxSize;
};

class StarDegenerado : public ::testing::TestWithParam<CasoDegenerado> {};

TEST_P(StarDegenerado, SemKeypointsNemFalha) {
  std::vector<cv::KeyPoint> kps(3);
  features::StarDetector(GetParam().maxSize, 10, 10, 8, 5).detect(GetParam().img, kps);
  EXPECT_TRUE(kps.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Imagens, StarDegenerado,
    ::testing::Values(CasoDegenerado{"Vazia", cv::Mat(), 64}, CasoDegenerado{"Uniforme", teste::uniforme(300, 300, 90), 64},
                      CasoDegenerado{"MenorQueOFiltro", teste::discos(150, 150, 4), 64},
                      CasoDegenerado{"UmaColuna", teste::textura(400, 1, 2), 64},
                      CasoDegenerado{"MaxSizeMinusculo", teste::discos(200, 200, 5), 3},
                      CasoDegenerado{"MaxSizeNegativo", teste::discos(200, 200, 5), -5}),
    [](const ::testing::TestParamInfo<CasoDegenerado>& i) { return std::string(i.param.nome); });

TEST(StarInvariancia, Rotacao) {
  // A reduced view of a real image; the benchmark program measures the full
  // image.
  cv::Mat img;
  cv::resize(leCinza("img1.png"), img, cv::Size(), 0.6, 0.6, cv::INTER_AREA);
  const features::Invariancia inv(
      [](const cv::Mat& i, const cv::Mat& m, std::vector<cv::KeyPoint>& k) { kStar.detect(i, k, m); }, img);
  for (int graus = 0; graus < 360; graus += 15) {
    const features::Repeticao r = inv.rotacao(graus);
    ASSERT_GT(r.levados, 50);
    EXPECT_GE(r.razao(), 0.40) << graus;
  }
}

}  // namespace
