// Synthetic 3D pairs: what one view sees, carried by the true pose, is what
// the other sees; the pose comes back from exact matches and from SIFT; the
// written dataset reads back as it was made.
#include "datasets/posados.hpp"
#include "datasets/sintetica3d.hpp"
#include "datasets/tools.hpp"
#include "formats/profundidade.hpp"
#include "support/imagem.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

using datasets::Superficie;
constexpr double kGraus = 180 / 3.14159265358979323846;

cv::Point2d projeta(const cv::Matx33d& K, const cv::Vec3d& X) {
  const cv::Vec3d x = K * X;
  return cv::Point2d(x[0] / x[2], x[1] / x[2]);
}

// Degrees between two rotations and between two translation directions.
// (cv::Rodrigues rounds angles below 1e-5 radians to 0.)
double erroR(const cv::Matx33d& a, const cv::Matx33d& b) {
  const cv::Matx33d m = a * b.t();
  const cv::Vec3d seno(m(2, 1) - m(1, 2), m(0, 2) - m(2, 0), m(1, 0) - m(0, 1));
  return std::atan2(cv::norm(seno) / 2, (cv::trace(m) - 1) / 2) * kGraus;
}
double erroT(const cv::Vec3d& a, const cv::Vec3d& b) { return std::atan2(cv::norm(a.cross(b)), a.dot(b)) * kGraus; }

// The pose recovered by OpenCV from matches; RANSAC threshold in pixels.
void recupera(const std::vector<cv::Point2d>& a, const std::vector<cv::Point2d>& b, const measures::Cameras& c,
              double limiar, double& eR, double& eT) {
  const cv::Mat K(c.K0);
  const cv::Mat E = cv::findEssentialMat(a, b, K, cv::RANSAC, 0.999, limiar);
  cv::Matx33d R;
  cv::Vec3d t;
  cv::recoverPose(E, a, b, K, R, t);
  eR = erroR(R, c.R);
  eT = erroT(t, c.t);
}

struct Exato {
  Superficie superficie;
  double visiveis;  // least share of image 0's points seen in image 1
};

// Every fourth pixel of image 0 carried by its depth and the true pose: where
// view 1 sees that same point, it satisfies the epipolar constraint, shows
// the same texture, and the pose comes back to within 1e-3 degrees.
TEST(Sintetica3d, CasamentosExatos) {
  const cv::Mat_<uchar> textura = teste::textura(240, 320, 3);
  for (const Exato& caso : {Exato{Superficie::ondas, 0.97}, {Superficie::degrau, 0.9}, {Superficie::calombo, 0.95},
                            {Superficie::diedro, 0.97}}) {
    SCOPED_TRACE(static_cast<int>(caso.superficie));
    datasets::ParamSint3d p;
    p.superficie = caso.superficie;
    const datasets::ParSint3d par = datasets::parSint3d(textura, p);
    const measures::Cameras& c = par.cameras;
    const datasets::Vista3d vista1(p.superficie, c.K1, c.R, c.t);
    const cv::Matx33d E = cv::Matx33d(0, -c.t[2], c.t[1], c.t[2], 0, -c.t[0], -c.t[1], c.t[0], 0) * c.R;
    std::vector<cv::Point2d> a, b;
    std::vector<double> diferencas;
    double epipolar = 0;
    int dentro = 0;
    for (int y = 0; y < textura.rows; y += 4)
      for (int x = 0; x < textura.cols; x += 4) {
        const float z = c.profundidade0(y, x);
        ASSERT_GT(z, 0);
        const cv::Vec3d X0 = z * (c.K0.inv() * cv::Vec3d(x, y, 1)), X1 = c.R * X0 + c.t;
        const cv::Point2d q = projeta(c.K1, X1);
        if (q.x < 0 || q.y < 0 || q.x > textura.cols - 1 || q.y > textura.rows - 1) continue;
        ++dentro;
        if (std::fabs(vista1.profundidade(q) - X1[2]) > 1e-5 * X1[2]) continue;
        a.emplace_back(x, y);
        b.push_back(q);
        epipolar = std::max(epipolar, std::fabs((X1 / X1[2]).dot(E * (X0 / X0[2]))));
        cv::Mat v;
        cv::getRectSubPix(par.imagem1, cv::Size(1, 1), q, v, CV_32F);
        diferencas.push_back(std::fabs(v.at<float>(0) - par.imagem0(y, x)));
      }
    const double visiveis = static_cast<double>(a.size()) / dentro;
    std::nth_element(diferencas.begin(), diferencas.begin() + diferencas.size() / 2, diferencas.end());
    double eR, eT;
    recupera(a, b, c, 1e-3, eR, eT);
    std::printf("visiveis %.4f de %d, epipolar %.2e, diferenca mediana %.2f, erros %.2e %.2e graus\n", visiveis,
                dentro, epipolar, diferencas[diferencas.size() / 2], eR, eT);
    EXPECT_GE(visiveis, caso.visiveis);
    EXPECT_LT(epipolar, 1e-9);
    EXPECT_LT(diferencas[diferencas.size() / 2], 2.0);
    EXPECT_LT(eR, 1e-3);
    EXPECT_LT(eT, 1e-3);
  }
}

// Seen from the left, the far half of the step hides behind the near half
// wherever the ray to it passes the height of the near half (z = 1) left of
// the wall (x < 0): exactly those points are hidden in view 1.
TEST(Sintetica3d, OclusaoNoDegrau) {
  const cv::Matx33d K = datasets::kSint3d(cv::Size(320, 240));
  cv::Matx33d giro;
  cv::Rodrigues(cv::Vec3d(0, 20 / kGraus, 0), giro);
  const cv::Vec3d centro = cv::Vec3d(0, 0, 1) - giro * cv::Vec3d(0, 0, 1);
  const cv::Matx33d R = giro.t();
  const cv::Vec3d t = -(R * centro);
  ASSERT_LT(centro[0], 0);
  const datasets::Vista3d vista0(Superficie::degrau, K, cv::Matx33d::eye(), cv::Vec3d()),
      vista1(Superficie::degrau, K, R, t);
  int ocultos = 0, vistos = 0;
  for (int y = 0; y < 240; y += 2)
    for (int x = 0; x < 320; x += 2) {
      cv::Vec3d X;
      vista0.profundidade(cv::Point2d(x, y), &X);
      if (X[0] <= 0 || X[2] < 1.25 - 1e-9) continue;  // the far half's top only
      const cv::Vec3d X1 = R * X + t;
      const cv::Point2d q = projeta(K, X1);
      if (q.x < 0 || q.y < 0 || q.x > 319 || q.y > 239) continue;
      const double xEmZ1 = centro[0] + (1 - centro[2]) / (X[2] - centro[2]) * (X[0] - centro[0]);
      if (std::fabs(xEmZ1) < 1e-6) continue;
      const bool oculto = vista1.profundidade(q) < X1[2] * (1 - 1e-6);
      EXPECT_EQ(oculto, xEmZ1 < 0) << x << " " << y;
      (oculto ? ocultos : vistos)++;
    }
  std::printf("degrau: %d ocultos, %d vistos\n", ocultos, vistos);
  EXPECT_GT(ocultos, 200);
  EXPECT_GT(vistos, 200);
}

// SintPose's folder read back: the same cameras, depths and images as made
// in memory; and its refusals.
TEST(Sintetica3d, DatasetGravadoELido) {
  teste::PastaTemp pasta;
  const cv::Mat_<uchar> textura = teste::textura(60, 80, 5);
  teste::salva(textura, pasta / "t.png");
  teste::Palavras w({"SintPose", pasta / "t.png", pasta / "ds", "superficie=calombo", "n=3", "giro=-20", "seed=11"});
  SintPose(w.n(), w.argv());
  datasets::ParamSint3d p;
  p.superficie = Superficie::calombo;
  p.vistas = 3;
  p.giro = -20;
  p.seed = 11;
  const std::vector<datasets::ParPosado> pares = datasets::leDatasetPosado(pasta / "ds");
  ASSERT_EQ(pares.size(), 2u);
  for (int k = 1; k <= 2; ++k) {
    const datasets::ParPosado& lido = pares[k - 1];
    const datasets::ParSint3d feito = datasets::parSint3d(textura, p, k);
    EXPECT_LT(cv::norm(lido.cameras.K0 - feito.cameras.K0, cv::NORM_INF), 1e-9);
    EXPECT_LT(cv::norm(lido.cameras.K1 - feito.cameras.K1, cv::NORM_INF), 1e-9);
    EXPECT_LT(cv::norm(lido.cameras.R - feito.cameras.R, cv::NORM_INF), 1e-9);
    EXPECT_LT(cv::norm(lido.cameras.t - feito.cameras.t, cv::NORM_INF), 1e-9);
    EXPECT_EQ(cv::norm(formats::leProfundidade(lido.profundidade0), feito.cameras.profundidade0, cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(formats::leProfundidade(lido.profundidade1), feito.cameras.profundidade1, cv::NORM_INF), 0);
    cv::Mat_<uchar> imagem;
    tvm::le(imagem, lido.imagem1);
    EXPECT_EQ(cv::norm(imagem, feito.imagem1, cv::NORM_INF), 0);
  }
  const std::pair<const char*, const char*> recusas[] = {
      {"superficie=plana", "Erro: superficie desconhecida plana"},
      {"giro=61", "Erro: giro fora do intervalo (-60 a 60 graus)"},
      {"n=1", "Erro: n fora do intervalo (2 a 100)"},
      {"altura=3", "Erro: Argumento invalido altura 3"}};
  for (const auto& [opcao, mensagem] : recusas) {
    teste::Palavras r({"SintPose", pasta / "t.png", pasta / "ds2", opcao});
    EXPECT_EQ(teste::mensagemDe([&] { SintPose(r.n(), r.argv()); }), mensagem);
  }
}

// SIFT with Lowe's ratio test on an orbit of 15 degrees over the waves: the
// pose within a few degrees.
TEST(Sintetica3d, PoseDeSift) {
  const datasets::ParSint3d par = datasets::parSint3d(teste::textura(360, 480, 9), datasets::ParamSint3d());
  const cv::Ptr<cv::SIFT> sift = cv::SIFT::create();
  std::vector<cv::KeyPoint> k0, k1;
  cv::Mat d0, d1;
  sift->detectAndCompute(par.imagem0, cv::noArray(), k0, d0);
  sift->detectAndCompute(par.imagem1, cv::noArray(), k1, d1);
  std::vector<std::vector<cv::DMatch>> knn;
  cv::BFMatcher(cv::NORM_L2).knnMatch(d0, d1, knn, 2);
  std::vector<cv::Point2d> a, b;
  for (const auto& m : knn)
    if (m.size() == 2 && m[0].distance < 0.8f * m[1].distance) {
      a.emplace_back(k0[m[0].queryIdx].pt);
      b.emplace_back(k1[m[0].trainIdx].pt);
    }
  ASSERT_GE(a.size(), 50u);
  double eR, eT;
  recupera(a, b, par.cameras, 1.0, eR, eT);
  std::printf("SIFT: %zu casamentos, erros %.3f %.3f graus\n", a.size(), eR, eT);
  EXPECT_LT(eR, 2.0);
  EXPECT_LT(eT, 5.0);
}

}  // namespace
