// The field's measures against OpenCV's own evaluation functions and against
// cases worked by hand.
#include "measures/casamento.hpp"
#include "measures/repetibilidade.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

#include <random>

namespace {

using measures::ParteComum;

cv::Matx33d inversa(const cv::Matx33d& H) {
  cv::Mat inv;
  cv::invert(cv::Mat(H), inv, cv::DECOMP_LU);
  return cv::Matx33d(inv);
}

cv::Matx33d leH(const std::string& nome) {
  cv::Matx33d H;
  std::FILE* f = std::fopen((std::string(QUIVELAR_DATA) + "/" + nome).c_str(), "r");
  EXPECT_NE(f, nullptr) << nome;
  for (int i = 0; i < 9; ++i) EXPECT_EQ(std::fscanf(f, "%lf", &H.val[i]), 1);
  std::fclose(f);
  return H;
}

// What cv::evaluateFeatureDetector says, with its -1 for "no correspondence"
// read as 0 correspondences.
std::pair<int, float> referenciaOpenCV(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                       const cv::Matx33d& H, cv::Size s1, cv::Size s2) {
  std::vector<cv::KeyPoint> a = k1, b = k2;
  float rep = 0;
  int n = 0;
  cv::evaluateFeatureDetector(cv::Mat(s1, CV_8U), cv::Mat(s2, CV_8U), cv::Mat(H), &a, &b, rep, n);
  return n < 0 ? std::make_pair(0, 0.f) : std::make_pair(n, rep);
}

// Keypoints of image 1 at random, their images under H moved by up to
// `ruido` pixels and rescaled by up to 20 %, and as many distractors.
void parSintetico(const cv::Matx33d& H, cv::Size s1, cv::Size s2, int n, double ruido, unsigned seed,
                  std::vector<cv::KeyPoint>& k1, std::vector<cv::KeyPoint>& k2) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<float> ux(0, s1.width), uy(0, s1.height), tam(2, 40), d(-1, 1);
  k1.clear();
  k2.clear();
  for (int i = 0; i < n; ++i) {
    cv::KeyPoint k(ux(g), uy(g), tam(g));
    k1.push_back(k);
    const cv::Point2d p = measures::transforma(H, k.pt);
    if (std::isnan(p.x)) continue;
    k2.emplace_back(static_cast<float>(p.x + ruido * d(g)), static_cast<float>(p.y + ruido * d(g)),
                    k.size * (1 + 0.2f * d(g)));
    k2.emplace_back(ux(g) * s2.width / s1.width, uy(g) * s2.height / s1.height, tam(g));
  }
}

struct CasoOpenCV {
  const char* nome;
  cv::Matx33d H;
  cv::Size s1, s2;
  double ruido;
};

TEST(RepeticaoSobreposicao, IgualAEvaluateFeatureDetectorEmParesSinteticos) {
  const CasoOpenCV casos[] = {
      {"identidade", cv::Matx33d::eye(), {640, 480}, {640, 480}, 2},
      {"translacao", {1, 0, 37.5, 0, 1, -12.25, 0, 0, 1}, {640, 480}, {640, 480}, 1},
      {"rotacao e escala", {0.8, -0.3, 120, 0.3, 0.8, -40, 0, 0, 1}, {640, 480}, {500, 520}, 3},
      {"perspectiva", {0.9, 0.1, 20, -0.05, 1.1, 10, 2e-4, -1e-4, 1}, {800, 640}, {800, 640}, 4},
      {"pouca sobreposicao", {1, 0, 500, 0, 1, 300, 0, 0, 1}, {640, 480}, {640, 480}, 2},
  };
  for (const CasoOpenCV& c : casos)
    for (unsigned seed : {1u, 2u}) {
      std::vector<cv::KeyPoint> k1, k2;
      parSintetico(c.H, c.s1, c.s2, 600, c.ruido, seed, k1, k2);
      const auto [n, rep] = referenciaOpenCV(k1, k2, c.H, c.s1, c.s2);
      const measures::RepeticaoSobreposicao r =
          measures::repeticaoSobreposicao(k1, k2, c.H, inversa(c.H), c.s1, c.s2, 0.4, ParteComum::opencv);
      EXPECT_EQ(r.correspondencias, n) << c.nome << " seed " << seed;
      ASSERT_TRUE(r.repeatability()) << c.nome;
      EXPECT_NEAR(*r.repeatability(), rep, 1e-6) << c.nome << " seed " << seed;
      if (std::string(c.nome) != "pouca sobreposicao") {
        EXPECT_GT(n, 50) << c.nome;
      }
    }
}

TEST(RepeticaoSobreposicao, IgualAEvaluateFeatureDetectorNosParesReais) {
  const cv::Mat img1 = teste::leCinzaDeDados("img1.png");
  const cv::Ptr<cv::SIFT> sift = cv::SIFT::create();
  std::vector<cv::KeyPoint> k1;
  sift->detect(img1, k1);
  for (const char* n : {"2", "4"}) {
    const cv::Mat img2 = teste::leCinzaDeDados(std::string("img") + n + ".png");
    std::vector<cv::KeyPoint> k2;
    sift->detect(img2, k2);
    const cv::Matx33d H = leH(std::string("H1to") + n + "p");
    const auto [corresp, rep] = referenciaOpenCV(k1, k2, H, img1.size(), img2.size());
    const measures::RepeticaoSobreposicao r =
        measures::repeticaoSobreposicao(k1, k2, H, inversa(H), img1.size(), img2.size(), 0.4, ParteComum::opencv);
    EXPECT_EQ(r.correspondencias, corresp) << n;
    EXPECT_NEAR(r.repeatability().value_or(-1), rep, 1e-6) << n;
    EXPECT_GT(corresp, 200) << n;
  }
  // SURF keypoints as OpenCV stored them, a second detector's scales.
  const std::vector<cv::KeyPoint> s1 = teste::leReferencia("img1-surf.yml.gz"),
                                  s2 = teste::leReferencia("img2-surf.yml.gz");
  const cv::Matx33d H = leH("H1to2p");
  const auto [corresp, rep] = referenciaOpenCV(s1, s2, H, img1.size(), img1.size());
  const measures::RepeticaoSobreposicao r =
      measures::repeticaoSobreposicao(s1, s2, H, inversa(H), img1.size(), img1.size(), 0.4, ParteComum::opencv);
  EXPECT_EQ(r.correspondencias, corresp);
  EXPECT_NEAR(r.repeatability().value_or(-1), rep, 1e-6);
}

// The overlap counted point by point over the whole grid, as the protocol's
// reference code counts it: what the fast count must equal bit for bit.
float sobreposicaoPontoAPonto(const measures::Referencia& ref, const measures::Regiao& r2) {
  const cv::Point2f d = r2.centro - ref.r1.centro;
  if (!(std::sqrt(double(d.x) * d.x + double(d.y) * d.y) < ref.alcance)) return 0;
  const measures::Regiao e1 = ref.escalada;
  const measures::Regiao e2(r2.centro, ref.fator * r2.a, ref.fator * r2.b, ref.fator * r2.c);
  const int maxx = int(std::ceil(std::max(e1.caixaX, d.x + e2.caixaX)));
  const int minx = int(std::floor(std::min(-e1.caixaX, d.x - e2.caixaX)));
  const int maxy = int(std::ceil(std::max(e1.caixaY, d.y + e2.caixaY)));
  const int miny = int(std::floor(std::min(-e1.caixaY, d.y - e2.caixaY)));
  const float dr = float(std::min(maxx - minx, maxy - miny)) / 50.f;
  const int n = int(std::floor(float(maxx - minx) / dr));
  int ambos = 0, algum = 0;
  for (int i = 0; i <= n; ++i) {
    const float x1 = minx + i * dr, x2 = x1 - d.x;
    for (float y1 = float(miny); y1 <= float(maxy); y1 += dr) {
      const float y2 = y1 - d.y;
      const float v1 = float(e1.a * x1 * x1 + 2 * e1.b * x1 * y1 + e1.c * y1 * y1);
      const float v2 = float(e2.a * x2 * x2 + 2 * e2.b * x2 * y2 + e2.c * y2 * y2);
      ambos += v1 < 1 && v2 < 1;
      algum += v1 < 1 || v2 < 1;
    }
  }
  return ambos > 0 ? float(ambos) / float(algum) : 0.f;
}

TEST(Sobreposicao, IgualAContagemPontoAPonto) {
  std::mt19937 g(11);
  std::uniform_real_distribution<float> u(0, 1);
  int comSobreposicao = 0;
  for (int caso = 0; caso < 3000; ++caso) {
    // Tilted, scaled and sheared views, so the second region is an ellipse.
    const cv::Matx33d H(0.5 + u(g), u(g) - 0.5, 0, u(g) - 0.5, 0.5 + u(g), 0, 1e-3 * (u(g) - 0.5),
                        1e-3 * (u(g) - 0.5), 1);
    const cv::KeyPoint k1(100 + 50 * u(g), 100 + 50 * u(g), 1 + 60 * u(g));
    const cv::KeyPoint k2(k1.pt.x + k1.size * (u(g) - 0.5), k1.pt.y + k1.size * (u(g) - 0.5),
                          k1.size * (0.3f + 1.5f * u(g)));
    const measures::Referencia ref(measures::regiaoDe(k1));
    const measures::Regiao r2 = measures::projeta(measures::regiaoDe(k2), H);
    const float esperado = sobreposicaoPontoAPonto(ref, r2);
    for (auto v : {measures::Vetores::escalar, measures::Vetores::avx2, measures::Vetores::avx512}) {
      if (measures::disponivel(v)) {
        ASSERT_EQ(measures::sobreposicao(ref, r2, v), esperado) << "caso " << caso;
      }
    }
    comSobreposicao += esperado > 0;
  }
  EXPECT_GT(comSobreposicao, 800);
}

TEST(RepeticaoSobreposicao, ParteComumDeAmbasAsImagens) {
  // Image 2 sees the right half of image 1 only: the left half's keypoints
  // cannot repeat, and the two-sided common part leaves them out.
  const cv::Matx33d H(1, 0, -320, 0, 1, 0, 0, 0, 1);
  std::vector<cv::KeyPoint> k1, k2;
  for (int i = 0; i < 20; ++i) {
    k1.emplace_back(20.f + 30 * i, 240.f, 10.f);  // x from 20 to 590
    if (20 + 30 * i >= 340) k2.emplace_back(20.f + 30 * i - 320, 240.f, 10.f);
  }
  const cv::Size s(640, 480);
  const auto ambas = measures::repeticaoSobreposicao(k1, k2, H, inversa(H), s, s, 0.4, ParteComum::ambas);
  EXPECT_EQ(ambas.n1, 9);  // x from 350 to 590
  EXPECT_EQ(ambas.n2, 9);
  EXPECT_EQ(ambas.correspondencias, 9);
  EXPECT_EQ(ambas.repeatability(), 1.0);
  const auto opencv = measures::repeticaoSobreposicao(k1, k2, H, inversa(H), s, s, 0.4, ParteComum::opencv);
  EXPECT_EQ(opencv.n1, 20);
  EXPECT_EQ(opencv.correspondencias, 9);
}

TEST(Repeticao, TranslacaoPuraRepeteTudo) {
  const cv::Matx33d H(1, 0, 12.5, 0, 1, -7, 0, 0, 1);
  const cv::Size s(400, 300);
  std::vector<cv::KeyPoint> k1, k2;
  for (int i = 0; i < 50; ++i) {
    const cv::KeyPoint k(40.f + 6.5f * i, 40.f + 4 * i, 4.f + i % 7);
    k1.push_back(k);
    k2.emplace_back(k.pt.x + 12.5f, k.pt.y - 7, k.size);
  }
  const auto sob = measures::repeticaoSobreposicao(k1, k2, H, inversa(H), s, s, 0.4, ParteComum::ambas);
  EXPECT_EQ(sob.correspondencias, 50);
  EXPECT_EQ(sob.repeatability(), 1.0);
  const auto dist = measures::repeticaoDistancia(k1, k2, H, inversa(H), s, s, 0.5);
  EXPECT_EQ(dist.repetidos1 + dist.repetidos2, 100);
  EXPECT_EQ(dist.repeatability(), 1.0);
}

TEST(Repeticao, SemKeypointsNaParteComumNaoHaValor) {
  const cv::Matx33d H(1, 0, 1000, 0, 1, 0, 0, 0, 1);  // image 1 lands beside image 2
  const std::vector<cv::KeyPoint> k{cv::KeyPoint(50, 50, 8)};
  const cv::Size s(200, 200);
  const auto sob = measures::repeticaoSobreposicao(k, k, H, inversa(H), s, s, 0.4, ParteComum::ambas);
  EXPECT_EQ(sob.n1, 0);
  EXPECT_FALSE(sob.repeatability());
  EXPECT_FALSE(measures::repeticaoDistancia(k, k, H, inversa(H), s, s, 3).repeatability());
  EXPECT_FALSE(measures::repeticaoDistancia({}, {}, H, inversa(H), s, s, 3).repeatability());
}

TEST(Repeticao, DistanciaContaCadaLadoNoSeuLimiar) {
  // Identity; image 2's keypoints 1, 2.9, 3.1 and 10 px right of image 1's,
  // plus one of image 2 with no partner and one projected outside.
  const cv::Matx33d H = cv::Matx33d::eye();
  const cv::Size s(100, 100);
  std::vector<cv::KeyPoint> k1, k2;
  const float desvios[] = {1, 2.9f, 3.1f, 10};
  for (int i = 0; i < 4; ++i) {
    k1.emplace_back(10.f, 10.f + 20 * i, 5.f);
    k2.emplace_back(10.f + desvios[i], 10.f + 20 * i, 5.f);
  }
  k2.emplace_back(90.f, 90.f, 5.f);
  k1.emplace_back(99.5f, 50.f, 5.f);  // inside, no partner
  const auto r = measures::repeticaoDistancia(k1, k2, H, H, s, s, 3);
  EXPECT_EQ(r.n1, 5);
  EXPECT_EQ(r.n2, 5);
  EXPECT_EQ(r.repetidos1, 2);
  EXPECT_EQ(r.repetidos2, 2);
  EXPECT_DOUBLE_EQ(*r.repeatability(), 0.4);
}

TEST(Casamentos, CurvaIgualAComputeRecallPrecisionCurve) {
  std::mt19937 g(7);
  for (int n : {1, 2, 17, 500}) {
    std::vector<bool> certos(n);
    std::vector<std::vector<cv::DMatch>> m(1);
    std::vector<std::vector<uchar>> mascara(1);
    for (int i = 0; i < n; ++i) {
      certos[i] = g() % 3 != 0;
      // The rank as distance: OpenCV sorts by distance, which keeps the order.
      m[0].emplace_back(i, i, static_cast<float>(i));
      mascara[0].push_back(certos[i]);
    }
    std::vector<cv::Point2f> ref;
    cv::computeRecallPrecisionCurve(m, mascara, ref);
    const std::vector<measures::PontoRP> curva = measures::curvaRecallPrecisao(certos);
    ASSERT_EQ(curva.size(), ref.size());
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(curva[i].umMenosPrecisao, ref[i].x) << n << " " << i;
      EXPECT_EQ(curva[i].recall, ref[i].y) << n << " " << i;
    }
  }
}

TEST(Casamentos, AveragePrecisionAMao) {
  const std::pair<std::vector<bool>, double> casos[] = {
      {{true, false, true, true, false}, (1 + 2.0 / 3 + 3.0 / 4) / 3},
      {{true, true, false, false}, 1},
      {{false, false, true}, 1.0 / 3},
  };
  for (const auto& [certos, ap] : casos) EXPECT_DOUBLE_EQ(*measures::averagePrecision(certos), ap);
  EXPECT_FALSE(measures::averagePrecision({false, false}));
  EXPECT_FALSE(measures::averagePrecision({}));
}

TEST(Casamentos, MMAAMao) {
  // Image 2 is image 1 moved 5 px right; match i lands `erro` px off.
  const cv::Matx33d H(1, 0, 5, 0, 1, 0, 0, 0, 1);
  const double esperados[] = {0, 0.5, 1, 2.5, 3, 7, 10, 10.5};
  std::vector<double> erros;
  for (double e : esperados) {
    const double medido = measures::erroReprojecao(H, {100, 100}, {105.f, static_cast<float>(100 + e)});
    EXPECT_NEAR(medido, e, 1e-9);
    erros.push_back(medido);
  }
  const measures::MMA m = measures::mma(erros);
  const int dentro[10] = {3, 3, 5, 5, 5, 5, 6, 6, 6, 7};  // errors <= t, t = 1..10
  for (int t = 0; t < 10; ++t) EXPECT_DOUBLE_EQ(*m[t], dentro[t] / 8.0) << "t=" << t + 1;
  EXPECT_FALSE(measures::mma({})[0]);
  // A point the transform sends to infinity is wrong at every threshold.
  EXPECT_TRUE(std::isinf(measures::erroReprojecao(cv::Matx33d(1, 0, 0, 0, 1, 0, 1, 0, 0), {0, 5}, {0, 5})));
}

TEST(Casamentos, ExatidaoDaHomografia) {
  const cv::Matx33d H(0.9, 0.1, 20, -0.05, 1.1, 10, 1e-4, -5e-5, 1);
  const cv::Size s(401, 301);
  std::vector<cv::Point2f> p1, p2, deslocados;
  for (int i = 0; i < 60; ++i) {
    const cv::Point2f p(7.f + (i * 37) % 390, 5.f + (i * 53) % 290);
    const cv::Point2d q = measures::transforma(H, p);
    p1.push_back(p);
    p2.emplace_back(static_cast<float>(q.x), static_cast<float>(q.y));
    deslocados.emplace_back(static_cast<float>(q.x + 2), static_cast<float>(q.y));
  }
  const measures::Medida exata = measures::erroHomografia(p1, p2, H, s, 3);
  ASSERT_TRUE(exata);
  EXPECT_LT(*exata, 0.01);
  // Every match 2 px off to the right: the estimate is H followed by that
  // shift, each corner 2 px away.
  const measures::Medida dois = measures::erroHomografia(p1, deslocados, H, s, 3);
  ASSERT_TRUE(dois);
  EXPECT_NEAR(*dois, 2, 0.01);
  EXPECT_EQ(measures::homografiaCorreta(dois, 1), 0);
  EXPECT_EQ(measures::homografiaCorreta(dois, 3), 1);
  EXPECT_FALSE(measures::erroHomografia({p1.begin(), p1.begin() + 3}, {p2.begin(), p2.begin() + 3}, H, s, 3));
  EXPECT_EQ(measures::homografiaCorreta(std::nullopt, 5), 0);
}

}  // namespace
