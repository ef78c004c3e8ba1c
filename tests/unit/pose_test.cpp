// Relative pose measures on scenes whose cameras are known, and the summaries
// (AUC, mAA, the threshold sweep) on error lists worked by hand.
#include "measures/pose.hpp"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <random>
#include <thread>

namespace {

using measures::MetodoPose;
const double kInf = std::numeric_limits<double>::infinity(), g = CV_PI / 180;

cv::Matx33d rodrigues(cv::Vec3d r) {
  cv::Matx33d R;
  cv::Rodrigues(r, R);
  return R;
}

cv::Point2d projeta(const cv::Matx33d& K, cv::Vec3d X) { return {(K * X)[0] / X[2], (K * X)[1] / X[2]}; }

// n points seen by both 640 x 480 cameras; a share with image 1's point
// thrown anywhere, uniform noise of `ruido` pixels on image 1.
struct Cena {
  measures::Cameras c;
  std::vector<cv::Point2d> p0, p1;
};
Cena cena(cv::Vec3d r, cv::Vec3d t, int n, unsigned seed = 1, double outliers = 0, double ruido = 0) {
  Cena s;
  s.c.K0 = {500, 0, 320, 0, 510, 240, 0, 0, 1};
  s.c.K1 = {620, 0, 300, 0, 600, 250, 0, 0, 1};
  s.c.R = rodrigues(r);
  s.c.t = t;
  std::mt19937 gerador(seed);
  const auto u = [&] { return std::uniform_real_distribution<double>(0, 1)(gerador); };
  while (static_cast<int>(s.p0.size()) < n) {
    const cv::Vec3d X0(4 * u() - 2, 3 * u() - 1.5, 4 + 6 * u()), X1 = s.c.R * X0 + t;
    cv::Point2d a = projeta(s.c.K0, X0), b = projeta(s.c.K1, X1);
    if (X1[2] < 1 || !cv::Rect2d(0, 0, 640, 480).contains(a) || !cv::Rect2d(0, 0, 640, 480).contains(b)) continue;
    if (u() < outliers) b = {640 * u(), 480 * u()};
    s.p0.push_back(a);
    s.p1.emplace_back(b.x + ruido * (2 * u() - 1), b.y + ruido * (2 * u() - 1));
  }
  return s;
}

const std::pair<cv::Vec3d, cv::Vec3d> kMovimentos[] = {
    {{0, 0.1, 0}, {1, 0, 0}}, {{0.05, -0.1, 0.02}, {0.1, 0.05, 1}}, {{0.3, -0.4, 0.2}, {-0.8, 0.3, 0.4}}};

// RANSAC keeps the five-point solution of its best sample as it is; MAGSAC
// polishes it by a few reweighted fits, which stop short of the last digits.
TEST(Pose, CorrespondenciasExatasDaoAPoseVerdadeira) {
  for (const auto& [r, t] : kMovimentos)
    for (auto [metodo, tolerancia] : {std::pair(MetodoPose::ransac, 1e-6), std::pair(MetodoPose::magsac, 1e-4)}) {
      const Cena s = cena(r, t, 100);
      const auto p = measures::estimaPose(s.p0, s.p1, s.c.K0, s.c.K1, {1, metodo});
      ASSERT_TRUE(p);
      EXPECT_LT(measures::erroPose(p->R, p->t, s.c.R, s.c.t).pose(), tolerancia) << r;
      EXPECT_EQ(p->nInliers, 100);
    }
}

// OpenCV seeds its own generators: the answer is the input's alone, whatever
// ran before, the shared generator's state or the thread.
TEST(Pose, DeterministicaEntreChamadasEThreads) {
  for (MetodoPose metodo : {MetodoPose::ransac, MetodoPose::magsac}) {
    const Cena s = cena(kMovimentos[1].first, kMovimentos[1].second, 300, 3, 0.4, 1.0);
    const Cena outra = cena(kMovimentos[0].first, kMovimentos[0].second, 200, 4, 0.3, 2.0);
    const auto estima = [&](const Cena& c) { return *measures::estimaPose(c.p0, c.p1, c.c.K0, c.c.K1, {1, metodo}); };
    const measures::PoseEstimada a = estima(s);
    estima(outra);
    cv::theRNG().state = 12345;
    measures::PoseEstimada b;
    std::thread([&] { b = estima(s); }).join();
    for (const measures::PoseEstimada& x : {estima(s), b}) {
      EXPECT_EQ(cv::norm(x.R, a.R, cv::NORM_INF) + cv::norm(x.t, a.t, cv::NORM_INF), 0);
      EXPECT_EQ(x.inliers, a.inliers);
    }
    EXPECT_GT(a.nInliers, 100);  // of the 180 true matches, noisy
    EXPECT_LT(a.nInliers, 200);
  }
}

TEST(Pose, ErroDaPoseSemSinalNemEscala) {
  const cv::Matx33d R = rodrigues({0.2, -0.1, 0.3});
  const cv::Vec3d t(0.3, -0.5, 0.8), eixo = cv::normalize(t.cross(cv::Vec3d(1, 0, 0)));
  const struct {
    cv::Matx33d R;
    cv::Vec3d t;
    double rotacao, translacao;
  } casos[] = {
      {R, -3 * t, 0, 0},
      {rodrigues({0, 0, 10 * g}) * R, t, 10, 0},
      {R, rodrigues(150 * g * eixo) * t, 0, 30},
      {rodrigues({CV_PI, 0, 0}) * R, t, 180, 0},  // the trace a hair below -1
  };
  for (const auto& c : casos) {
    const measures::ErroPose e = measures::erroPose(c.R, c.t, R, t);
    EXPECT_NEAR(e.rotacao, c.rotacao, 1e-5);
    EXPECT_NEAR(e.translacao, c.translacao, 1e-5);
  }
}

// numpy.trapz over (0, 0), (e_i, i / n) for e_i < t, then (t, last recall),
// divided by t: each sum written out.
TEST(Pose, AUCComoOTrapzPublicado) {
  const struct {
    std::vector<double> erros;
    std::array<double, 3> auc;
  } casos[] = {
      {{7, kInf, 1, 3},
       {(0.125 + 0.75 + 2 * 0.5) / 5, (0.125 + 0.75 + 4 * 1.25 / 2 + 3 * 0.75) / 10,
        (0.125 + 0.75 + 2.5 + 13 * 0.75) / 20}},
      {{std::nan(""), 2}, {(0.5 + 3 * 0.5) / 5, (0.5 + 8 * 0.5) / 10, (0.5 + 18 * 0.5) / 20}},
      {{5, 10}, {0, (1.25 + 5 * 0.5) / 10, (1.25 + 5 * 0.75 + 10) / 20}},  // t itself is not below t
  };
  for (const auto& c : casos) {
    const measures::AUCPose a = measures::aucPose(c.erros);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i].value_or(-1), c.auc[i], 1e-12) << i;
  }
  EXPECT_FALSE(measures::aucPose({}, 10));
  // Below 1: one; below 2: two; below 3..9: three; below 10: four of six.
  EXPECT_DOUBLE_EQ(*measures::mAA({0.5, 1.0, 2.5, 9.99, 10, kInf}), (1 + 2 + 3 * 7 + 4) / 60.0);
  EXPECT_FALSE(measures::mAA({}));
}

// Sideways motion, R = I: epipolar lines are rows, and moving image 1's point
// d pixels across them gives d^2 / f^2 for each of the two distances.
TEST(Pose, DistanciaEpipolar) {
  measures::Cameras c;
  c.K0 = c.K1 = cv::Matx33d(128, 0, 64, 0, 128, 48, 0, 0, 1);
  c.t = {2, 0, 0};
  std::vector<cv::Point2d> p0, p1;
  for (double d : {0.0, 0.5, 1.0, 2.5, 3.0}) {
    p0.emplace_back(40, 60);
    p1.emplace_back(52, 60 + d);
    const cv::Point2d x0 = measures::normaliza(c.K0, p0.back()), x1 = measures::normaliza(c.K1, p1.back());
    EXPECT_NEAR(measures::distanciaEpipolar({0, 0, 0, 0, 0, -2, 0, 2, 0}, x0, x1), 2 * d * d / (128.0 * 128), 1e-15);
  }
  EXPECT_EQ(measures::precisaoEpipolar(p0, p1, c), (measures::PrecisaoEpipolar{0.4, 0.6, 0.8}));
  EXPECT_FALSE(measures::precisaoEpipolar({}, {}, c)[0]);
}

TEST(Pose, ReprojecaoPelaProfundidade) {
  Cena s = cena(kMovimentos[1].first, kMovimentos[1].second, 0);
  s.c.profundidade0 = cv::Mat_<float>(480, 640, 0.f);
  s.c.profundidade0(20, 11) = 5;
  s.c.profundidade0(20, 10) = 10;
  const auto em1 = [&](cv::Point2d p, double z) {
    const cv::Point2d r = measures::normaliza(s.c.K0, p);
    return projeta(s.c.K1, s.c.R * cv::Vec3d(z * r.x, z * r.y, z) + s.c.t);
  };
  const cv::Point2d a(11, 20), b = em1(a, 5), meio(10.5, 20.4), abaixo(10.49, 20);  // halves go up
  const measures::MedidasProfundidade m =
      measures::medeProfundidade({a, meio, abaixo, a, {3, 3}, {-0.6, 20}},
                                 {b, em1(meio, 5), em1(abaixo, 10), b + cv::Point2d(3, 4), b, b}, s.c, 3);
  for (int i : {0, 1, 2}) EXPECT_LT(m.erros[i].value_or(1), 1e-9) << i;
  EXPECT_NEAR(m.erros[3].value_or(0), 5, 1e-9);
  EXPECT_FALSE(m.erros[4] || m.erros[5]);  // no depth there; off the map
  EXPECT_EQ(std::make_tuple(m.comProfundidade, m.corretos, *m.parteCorreta, *m.mma[3], *m.mma[5]),
            std::make_tuple(4, 3, 0.5, 0.75, 1.0));
  s.c.t = {0, 0, -20};
  EXPECT_EQ(measures::erroProfundidade(s.c, a, b), kInf);  // behind camera 1
}

// X = {7, 7, 7, 7}: AUC 0, 0.3875, 0.69375, mean 0.3604; Y = {0, 10.5 x 3}:
// 0.25, 0.25, 0.671875, mean 0.3906. AUC@10 would take X; glue-factory's
// mean takes Y, the first of two equal ones, past an empty list.
TEST(Pose, MelhorLimiarPelaMediaDasAUC) {
  const std::vector<double> X(4, 7), Y = {0, 10.5, 10.5, 10.5};
  const auto m = measures::melhorLimiar({0.5, 1.0, 1.5, 2.0}, {X, {}, Y, Y});
  EXPECT_EQ(m->limiar, 1.5);
  EXPECT_EQ(m->auc, (measures::AUCPose{0.25, 0.25, 0.671875}));
  EXPECT_FALSE(measures::melhorLimiar({1.0}, {{}}));
  EXPECT_EQ(measures::varreLimiares([&](double l) { return l == 2.5 ? Y : X; })->limiar, 2.5);
}

}  // namespace
