// The integer Gaussian against cv::GaussianBlur, and the descriptors, which
// smooth only the pixels they read, against the same steps done the plain
// way (whole-patch warp, cv::GaussianBlur, cv::filter2D): equal bit for bit.
#include "descriptors/gauss_inteiro.hpp"
#include "descriptors/patch.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <memory>
#include <vector>

namespace {

class Lado : public testing::TestWithParam<int> {};

TEST_P(Lado, EqualsTheLibraryOnRandomPatchesAndRegions) {
  const int lado = GetParam();
  const GaussInteiro g(lado);
  ASSERT_TRUE(g.exato());
  cv::RNG rng(lado);
  GaussInteiro::Rascunho r;
  for (int t = 0; t < 40; ++t) {
    cv::Mat_<uchar> src(1 + rng.uniform(0, 130), 1 + rng.uniform(0, 130)), esperado, obtido;
    rng.fill(src, cv::RNG::UNIFORM, 0, 256);
    if (t % 4 == 1) src.forEach([](uchar& v, const int*) { v = v < 128 ? 0 : 255; });
    if (t % 4 == 2) cv::GaussianBlur(src, src, cv::Size(5, 5), 0.0);  // smooth content, as in real patches
    cv::GaussianBlur(src, esperado, cv::Size(lado, lado), 0.0, 0.0, cv::BORDER_REPLICATE);
    const int x = rng.uniform(0, src.cols), y = rng.uniform(0, src.rows);
    const cv::Rect regiao(x, y, rng.uniform(1, src.cols - x + 1), rng.uniform(1, src.rows - y + 1));
    g.suaviza(src, regiao, obtido, r);
    ASSERT_EQ(obtido.size(), src.size());
    EXPECT_EQ(cv::norm(esperado(regiao), obtido(regiao), cv::NORM_INF), 0.0)
        << "lado " << lado << " patch " << src.cols << "x" << src.rows << " regiao " << regiao;
  }
}

// Every kernel side the descriptors use by default (SIMPLE 11, RIFF 9,
// RIHOG/RUHOG 37) and others around them.
INSTANTIATE_TEST_SUITE_P(Gauss, Lado, testing::Values(1, 3, 5, 7, 9, 11, 21, 37, 39, 101));

TEST(GaussInteiro, EvenOrNonPositiveSideStops) {
  for (int lado : {0, -3, 10}) EXPECT_THROW(GaussInteiro{lado}, tvm::Erro) << lado;
}

// Keypoints of varied sizes (both interpolations) and positions (some near
// the edges, so the warp replicates the border).
std::vector<cv::KeyPoint> keypointsVariados() {
  std::vector<cv::KeyPoint> kps;
  cv::RNG rng(7);
  for (int i = 0; i < 60; ++i)
    kps.emplace_back(rng.uniform(-4.0f, 164.0f), rng.uniform(-4.0f, 164.0f), rng.uniform(3.0f, 150.0f),
                     rng.uniform(0.0f, 360.0f));
  return kps;
}

// The plain way: the whole patch warped, then blurred by the library.
cv::Mat_<uchar> patchInteiro(const cv::Mat_<uchar>& img, const cv::KeyPoint& k, double s, double theta, int lado,
                             int ngauss) {
  cv::Mat_<uchar> patch;
  extraiPatch(img, mapaPatch(k.pt, s, theta, lado / 2), s, lado, patch);
  cv::GaussianBlur(patch, patch, cv::Size(ngauss, ngauss), 0.0, 0.0, cv::BORDER_REPLICATE);
  return patch;
}

TEST(HogSemAtalho, RowsEqualWholePatchBlurAndHistogram) {
  const cv::Mat_<uchar> img = teste::textura(160, 160, 5);
  const std::vector<cv::KeyPoint> kps = keypointsVariados();
  const std::pair<std::shared_ptr<HogAneis>, int> casos[] = {{std::make_shared<RIHOG>(5, 40, 20, 37, false), 37},
                                                             {std::make_shared<RIHOG>(3, 17, 7, 1, false), 1},
                                                             {std::make_shared<RUHOG>(5, 40, 20, 37, false), 37},
                                                             {std::make_shared<RUHOG>(3, 12, 9, 5, false), 5}};
  for (const auto& [h, ngauss] : casos) {
    cv::Mat d;
    h->compute(img, kps, d);
    for (size_t i = 0; i < kps.size(); ++i) {
      const double s = h->ladoPatch() / (kps[i].size * (1.0 / h->fracNucleo()));
      cv::Mat_<float> hist;
      h->rihog(patchInteiro(img, kps[i], s, 0.0, h->ladoPatch(), ngauss), hist);
      EXPECT_EQ(cv::norm(hist.reshape(1, 1), d.row(static_cast<int>(i)), cv::NORM_INF), 0.0)
          << "ngauss " << ngauss << " keypoint " << i;
    }
  }
}

TEST(RiffSemAtalho, RowsEqualWholePatchBlurAndFilters) {
  const RIFF riff(3, 7);
  const int lado = riff.lado();
  const cv::Mat_<uchar> img = teste::discos(160, 160, 2);
  const std::vector<cv::KeyPoint> kps = keypointsVariados();
  // The four 16-bit difference images, as filter2D gives them.
  const cv::Mat_<float> kernels[4] = {(cv::Mat_<float>(1, 3) << 1, 0, lado / 2),
                                      (cv::Mat_<float>(3, 3) << 0, 0, 1, 0, 0, 0, -1, 0, 0),
                                      (cv::Mat_<float>(3, 1) << 1, 0, -1),
                                      (cv::Mat_<float>(3, 3) << 1, 0, 0, 0, 0, 0, 0, 0, -1)};
  auto nivel = [](int g) { return g < -120 ? 0 : g < -40 ? 1 : g <= 40 ? 2 : g <= 120 ? 3 : 4; };
  cv::Mat d;
  riff.compute(img, kps, d);
  for (size_t i = 0; i < kps.size(); ++i) {
    const double s = lado / (kps[i].size / ((2.0 * 21 + 1.0) / lado));
    const cv::Mat_<uchar> patch = patchInteiro(img, kps[i], s, 0.0, lado, 9);
    cv::Mat_<short> dif[4];
    for (int k = 0; k < 4; ++k)
      cv::filter2D(patch, dif[k], CV_16S, kernels[k], cv::Point(-1, -1), 0.0, cv::BORDER_REPLICATE);
    std::vector<float> esperado(riff.descriptorSize(), 0.0f);
    for (int l = 0; l < lado; ++l)
      for (int c = 0; c < lado; ++c) {
        const cv::Vec3w e = riff.lut(l, c);
        if (e[2] == 65535) continue;
        const int g0 = e[0] < 4 ? dif[e[0]](l, c) : -dif[e[0] - 4](l, c);
        const int g1 = e[1] < 4 ? dif[e[1]](l, c) : -dif[e[1] - 4](l, c);
        esperado[e[2] * 25 + nivel(g0) * 5 + nivel(g1)] += 1.0f;
      }
    for (int k = 0; k < riff.descriptorSize(); ++k) esperado[k] /= static_cast<float>(riff.pixelsNoAnel(k / 25));
    EXPECT_EQ(cv::norm(cv::Mat(esperado).reshape(1, 1), d.row(static_cast<int>(i)), cv::NORM_INF), 0.0)
        << "keypoint " << i;
  }
}

TEST(SimpleSemAtalho, CopyRowsEqualWholePatchBlur) {
  const cv::Mat_<uchar> img = teste::textura(160, 160, 9);
  const std::vector<cv::KeyPoint> kps = keypointsVariados();
  for (const int dgauss : {11, 1, 31}) {
    const SIMPLE simple('c', 6, dgauss);
    cv::Mat d;
    simple.compute(img, kps, d);
    for (size_t i = 0; i < kps.size(); ++i) {
      const double theta = static_cast<double>(kps[i].angle - 90.0f) * (CV_PI / 180.0);
      const cv::Mat_<uchar> patch = patchInteiro(img, kps[i], SIMPLE::tnl * (13.0 / 14.0) / kps[i].size, theta,
                                                 SIMPLE::tnl, dgauss);
      cv::Mat_<float> esperado(1, simple.descriptorSize());
      for (int k = 0; k < simple.descriptorSize(); ++k)
        esperado(0, k) = patch(45 - simple.padrao()[k].y, 45 + simple.padrao()[k].x);
      tvm::normal01(esperado, 0.0, 1.0);
      EXPECT_EQ(cv::norm(esperado, d.row(static_cast<int>(i)), cv::NORM_INF), 0.0)
          << "dgauss " << dgauss << " keypoint " << i;
    }
  }
}

}  // namespace
