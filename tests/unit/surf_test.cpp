// features::SURF against OpenCV's own SURF (stored outputs), against the bar
// of OpenCV's invariance tests, and on degenerate images.
#include "features/surf.hpp"
#include "tests/common/invariancia.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>
#include <tuple>

namespace {

TEST(Surf, AchaOsMesmosKeypointsQueOpenCV) {
  struct Caso {
    const char *imagem, *arquivo;
    double limiar;
    int camadas;
    bool estendido;
  };
  for (const Caso& c : {Caso{"img1.png", "img1-surf.yml.gz", 100, 3, false},
                        Caso{"img2.png", "img2-surf.yml.gz", 100, 3, false},
                        Caso{"img1.png", "img1-surf500.yml.gz", 500, 2, true},
                        Caso{"img2.png", "img2-surf500.yml.gz", 500, 2, true}}) {
    const std::vector<cv::KeyPoint> ref = teste::leReferencia(c.arquivo);
    std::vector<cv::KeyPoint> nossos;
    features::SURF(c.limiar, 4, c.camadas, c.estendido, false).detect(teste::leCinzaDeDados(c.imagem), nossos);
    // The targets are 0.8; the detector reproduces OpenCV's almost exactly,
    // so anything much below 1 is a regression.
    EXPECT_GE(teste::fracaoAchada(ref, nossos), 0.98) << c.arquivo;
    EXPECT_GE(teste::fracaoAchada(nossos, ref), 0.98) << c.arquivo;
    int mesmaClasse = 0, mesmoAngulo = 0, pares = 0;
    for (const cv::KeyPoint& k : ref) {
      const int j = teste::parceiro(k, nossos);
      if (j < 0) continue;
      ++pares;
      mesmaClasse += nossos[j].class_id == k.class_id && nossos[j].octave == k.octave;
      const double d = std::fabs(nossos[j].angle - k.angle);
      mesmoAngulo += std::min(d, 360.0 - d) < 5.0;
      EXPECT_NEAR(nossos[j].response, k.response, 1e-3 * k.response) << c.arquivo;
    }
    EXPECT_EQ(mesmaClasse, pares) << c.arquivo;
    EXPECT_GE(mesmoAngulo, 0.95 * pares) << c.arquivo;
  }
}

TEST(Surf, DescritorConcordaComOpenCV) {
  cv::Mat refDesc, nossoDesc;
  std::vector<cv::KeyPoint> kps = teste::leReferencia("img1-surf.yml.gz");
  const std::vector<cv::KeyPoint> refDescritos = teste::leReferencia("img1-surfdes.yml.gz", &refDesc);
  features::SURF().compute(teste::leCinzaDeDados("img1.png"), kps, nossoDesc);
  ASSERT_EQ(nossoDesc.rows, int(kps.size()));
  ASSERT_EQ(nossoDesc.cols, 64);
  int perto = 0, muitoPerto = 0, pares = 0;
  for (size_t i = 0; i < refDescritos.size(); ++i) {
    const int j = teste::parceiro(refDescritos[i], kps);
    if (j < 0) continue;
    ++pares;
    EXPECT_NEAR(cv::norm(nossoDesc.row(j)), 1.0, 1e-4);
    const double d = cv::norm(nossoDesc.row(j), refDesc.row(int(i)));
    perto += d < 0.2;
    muitoPerto += d < 0.1;
  }
  EXPECT_GE(pares, 0.98 * refDescritos.size());
  EXPECT_GE(perto, 0.95 * pares);
  // Nine in ten sit within 0.05 today; one of the four sums weighted by 0.7
  // still passes the bar above but not this one.
  EXPECT_GE(muitoPerto, 0.9 * pares);
}

TEST(Surf, MascaraEImagemColorida) {
  const cv::Mat img = teste::textura(200, 260, 3);
  const features::SURF surf;
  std::vector<cv::KeyPoint> todos, metade, cor;
  surf.detect(img, todos);
  for (size_t i = 1; i < todos.size(); ++i) EXPECT_LE(todos[i].response, todos[i - 1].response);
  cv::Mat mascara(img.size(), CV_8U, cv::Scalar(0)), colorida;
  mascara(cv::Rect(0, 0, img.cols / 2, img.rows)).setTo(255);
  surf.detect(img, metade, mascara);
  ASSERT_FALSE(metade.empty());
  EXPECT_LT(metade.size(), todos.size());
  for (const cv::KeyPoint& k : metade) EXPECT_LT(k.pt.x, img.cols / 2 + 1.0f);
  cv::cvtColor(img, colorida, cv::COLOR_GRAY2BGR);
  surf.detect(colorida, cor);
  ASSERT_EQ(cor.size(), todos.size());
  for (size_t i = 0; i < cor.size(); ++i) EXPECT_EQ(cor[i].pt, todos[i].pt);
}

TEST(Surf, ImagensDegeneradasSemKeypointsNemFalha) {
  const std::pair<const char*, cv::Mat> casos[] = {
      {"vazia", cv::Mat()}, {"uniforme", teste::uniforme(100, 100, 128)}, {"menor", teste::textura(8, 8, 1)},
      {"uma linha", teste::textura(1, 300, 2)}, {"estreita", teste::textura(300, 14, 3)}};
  for (const auto& [nome, img] : casos)
    for (bool estendido : {false, true}) {
      const features::SURF surf(100, 4, 3, estendido, false);
      std::vector<cv::KeyPoint> kps;
      surf.detect(img, kps);
      EXPECT_TRUE(kps.empty()) << nome;
      // Keypoints given by hand: the descriptor survives them too.
      kps = {cv::KeyPoint(5, 5, 20), cv::KeyPoint(1e6f, 5, 20), cv::KeyPoint(5, 5, 1e7f), cv::KeyPoint(5, 5, -1)};
      cv::Mat desc;
      surf.compute(img, kps, desc);
      EXPECT_EQ(desc.rows, int(kps.size())) << nome;
      EXPECT_EQ(desc.cols, surf.descriptorSize()) << nome;
      EXPECT_LE(kps.size(), 1u) << nome;
    }
}

TEST(Surf, ComputeMantemOsCamposEDescartaOsForaDaImagem) {
  std::vector<cv::KeyPoint> kps = {cv::KeyPoint(80, 60, 20, 0, 7, 2, 11), cv::KeyPoint(-30, 60, 20),
                                   cv::KeyPoint(100, 80, 400), cv::KeyPoint(120, 90, 15, 33, 1, 0, 12)};
  cv::Mat desc;
  features::SURF().compute(teste::textura(160, 200, 5), kps, desc);
  ASSERT_EQ(kps.size(), 2u);
  ASSERT_EQ(desc.rows, 2);
  EXPECT_EQ(std::tuple(kps[0].class_id, kps[0].octave, kps[0].response, kps[1].class_id),
            std::tuple(11, 2, 7.0f, 12));
  // A flat patch has no direction; a textured one a unit descriptor.
  for (int i = 0; i < 2; ++i) EXPECT_NEAR(cv::norm(desc.row(i)), 1.0, 1e-4);
  cv::Mat plano;
  std::vector<cv::KeyPoint> um = {cv::KeyPoint(50, 50, 20)};
  features::SURF(100, 4, 3, true, true).compute(teste::uniforme(100, 100, 9), um, plano);
  ASSERT_EQ(plano.rows, 1);
  EXPECT_EQ(cv::norm(plano), 0.0);
  EXPECT_EQ(um[0].angle, 270.0f);
}

// Invariance on a reduced view of a real image, at the bars OpenCV's tests
// set for its SURF; the benchmark program measures the full image.
teste::Invariancia invarianciaReduzida(const features::SURF& surf) {
  cv::Mat img;
  cv::resize(teste::leCinzaDeDados("img1.png"), img, cv::Size(), 0.5, 0.5, cv::INTER_AREA);
  return teste::Invariancia(
      [&surf](const cv::Mat& i, const cv::Mat& m, std::vector<cv::KeyPoint>& k) { surf.detect(i, k, m); }, img);
}

TEST(SurfInvariancia, RotacaoEEscala) {
  const features::SURF surf;
  const teste::Invariancia inv = invarianciaReduzida(surf);
  for (int graus = 0; graus < 360; graus += 15) {
    const teste::Repeticao r = inv.rotacao(graus);
    EXPECT_GE(r.razao(), 0.40) << graus;
    EXPECT_GE(inv.descritorRotacao(surf, graus), 0.83) << graus;
    // OpenCV asks 0.76 of its SURF on a smoother image. The Haar-wavelet
    // orientation, which ours shares with OpenCV's (98% within 5 degrees on
    // the stored outputs), measures 0.73-0.93 on this view and 0.77 at worst
    // on the full image: this floor catches regressions.
    EXPECT_GE(r.razaoCoerente(), 0.72) << graus;
  }
  for (double f : {1.5, 2.0, 2.5}) {
    const teste::Repeticao r = inv.escala(f);
    EXPECT_GE(r.razao(), 0.64) << f;
    EXPECT_GE(r.razaoCoerente(), 0.84) << f;
    EXPECT_GE(inv.descritorEscala(surf, f), 0.70) << f;
  }
}

}  // namespace
