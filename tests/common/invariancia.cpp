#include "tests/common/invariancia.hpp"

#include "features/surf.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace teste {

double sobreposicao(cv::Point2f c1, float r1, cv::Point2f c2, float r2) {
  const double d = std::hypot(double(c1.x) - c2.x, double(c1.y) - c2.y);
  const double a1 = CV_PI * r1 * r1, a2 = CV_PI * r2 * r2;
  double inter;
  if (d >= r1 + r2) {
    inter = 0;
  } else if (d <= std::fabs(double(r1) - r2)) {
    inter = std::min(a1, a2);
  } else {
    const double R1 = r1, R2 = r2;
    const double t1 = std::acos(std::clamp((d * d + R1 * R1 - R2 * R2) / (2 * d * R1), -1.0, 1.0));
    const double t2 = std::acos(std::clamp((d * d + R2 * R2 - R1 * R1) / (2 * d * R2), -1.0, 1.0));
    const double k = (-d + R1 + R2) * (d + R1 - R2) * (d - R1 + R2) * (d + R1 + R2);
    inter = R1 * R1 * t1 + R2 * R2 * t2 - 0.5 * std::sqrt(std::max(0.0, k));
  }
  const double uniao = a1 + a2 - inter;
  return uniao > 0 ? inter / uniao : 0.0;
}

cv::KeyPoint mapeia(const cv::KeyPoint& kp, const cv::Matx33d& H) {
  auto aplica = [&](double x, double y) {
    const cv::Vec3d p = H * cv::Vec3d(x, y, 1.0);
    return cv::Point2d(p[0] / p[2], p[1] / p[2]);
  };
  const cv::Point2d c = aplica(kp.pt.x, kp.pt.y);
  const double a = kp.angle * CV_PI / 180.0;
  const cv::Point2d u = aplica(kp.pt.x + std::cos(a), kp.pt.y + std::sin(a)) - c;
  const cv::Point2d ex = aplica(kp.pt.x + 1.0, kp.pt.y) - c, ey = aplica(kp.pt.x, kp.pt.y + 1.0) - c;
  const double escala = std::sqrt(std::fabs(ex.x * ey.y - ex.y * ey.x));
  cv::KeyPoint m = kp;
  m.pt = cv::Point2f(float(c.x), float(c.y));
  m.size = float(kp.size * escala);
  if (kp.angle >= 0) {
    double g = std::atan2(u.y, u.x) * 180.0 / CV_PI;
    if (g < 0) g += 360.0;
    m.angle = float(g);
  }
  return m;
}

namespace {

constexpr int kBorda = 16;
constexpr double kUniaoMinima = 0.5;

double difAngulo(double a, double b) {
  double d = std::fmod(std::fabs(a - b), 360.0);
  return d > 180.0 ? 360.0 - d : d;
}

// Each carried keypoint against the detected one whose circle overlaps it
// most.
Repeticao casa(const std::vector<cv::KeyPoint>& levados, const std::vector<cv::KeyPoint>& achados, bool porEscala) {
  Repeticao r;
  r.levados = int(levados.size());
  for (const cv::KeyPoint& k : levados) {
    double melhor = 0;
    const cv::KeyPoint* par = nullptr;
    for (const cv::KeyPoint& a : achados) {
      const double u = sobreposicao(k.pt, k.size * 0.5f, a.pt, a.size * 0.5f);
      if (u > melhor) melhor = u, par = &a;
    }
    if (!par || melhor < kUniaoMinima) continue;
    ++r.casados;
    if (porEscala) r.coerentes += std::min(k.size, par->size) > 0.8f * std::max(k.size, par->size);
    else r.coerentes += difAngulo(k.angle, par->angle) < 15.0;
  }
  return r;
}

std::vector<cv::KeyPoint> mapeiaTodos(const std::vector<cv::KeyPoint>& kps, const cv::Matx33d& H) {
  std::vector<cv::KeyPoint> m;
  m.reserve(kps.size());
  for (const cv::KeyPoint& k : kps) m.push_back(mapeia(k, H));
  return m;
}

}  // namespace

Invariancia::Invariancia(Detecta detecta, const cv::Mat& img) : detecta_(std::move(detecta)), img_(img) {
  mascara_ = cv::Mat::zeros(img.size(), CV_8U);
  if (img.cols > 2 * kBorda && img.rows > 2 * kBorda)
    mascara_(cv::Rect(kBorda, kBorda, img.cols - 2 * kBorda, img.rows - 2 * kBorda)).setTo(255);
  detecta_(img_, mascara_, dentro_);
  detecta_(img_, cv::Mat(), todos_);
}

Invariancia::Vista Invariancia::gira(double graus) const {
  const double diag = std::hypot(img_.cols, img_.rows), a = graus * CV_PI / 180.0;
  const cv::Matx33d centra(1, 0, -(img_.cols / 2), 0, 1, -(img_.rows / 2), 0, 0, 1);
  const cv::Matx33d roda(std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1);
  const cv::Matx33d poe(1, 0, diag / 2, 0, 1, diag / 2, 0, 0, 1);
  Vista v;
  v.H = poe * roda * centra;
  const cv::Size tam(cvRound(diag), cvRound(diag));
  cv::warpPerspective(img_, v.img, v.H, tam);
  cv::warpPerspective(mascara_, v.mascara, v.H, tam);
  return v;
}

Invariancia::Vista Invariancia::reduz(double fator) const {
  Vista v;
  cv::resize(img_, v.img, cv::Size(), 1.0 / fator, 1.0 / fator, cv::INTER_LINEAR_EXACT);
  v.H = cv::Matx33d(1.0 / fator, 0, 0, 0, 1.0 / fator, 0, 0, 0, 1);
  return v;
}

Repeticao Invariancia::rotacao(double graus) const {
  const Vista v = gira(graus);
  std::vector<cv::KeyPoint> achados;
  detecta_(v.img, v.mascara, achados);
  return casa(mapeiaTodos(dentro_, v.H), achados, false);
}

// The small image's keypoints go up to the original, where they are
// compared with the full set.
Repeticao Invariancia::escala(double fator) const {
  const Vista v = reduz(fator);
  std::vector<cv::KeyPoint> pequenos;
  detecta_(v.img, cv::Mat(), pequenos);
  return casa(mapeiaTodos(pequenos, v.H.inv()), todos_, true);
}

double Invariancia::descritorRotacao(const SURF& surf, double graus) const { return descritor(surf, dentro_, gira(graus)); }

double Invariancia::descritorEscala(const SURF& surf, double fator) const { return descritor(surf, todos_, reduz(fator)); }

double Invariancia::descritor(const SURF& surf, const std::vector<cv::KeyPoint>& base, const Vista& v) const {
  std::vector<cv::KeyPoint> k0 = base;
  for (size_t i = 0; i < k0.size(); ++i) k0[i].class_id = int(i);  // pairs rows that compute may drop
  cv::Mat d0, d1;
  surf.compute(img_, k0, d0);
  std::vector<cv::KeyPoint> k1 = mapeiaTodos(k0, v.H);
  surf.compute(v.img, k1, d1);
  if (d0.empty() || d1.empty()) return 0.0;
  std::vector<int> linha(base.size(), -1);
  for (size_t j = 0; j < k1.size(); ++j) linha[k1[j].class_id] = int(j);
  cv::Mat dist, idx;
  cv::batchDistance(d0, d1, dist, CV_32F, idx, cv::NORM_L2, 1);
  int certos = 0;
  for (int i = 0; i < d0.rows; ++i) {
    const int par = linha[k0[i].class_id], achado = idx.at<int>(i, 0);
    if (par < 0 || achado < 0) continue;
    const cv::KeyPoint &p = k1[par], &a = k1[achado];
    certos += sobreposicao(p.pt, p.size * 0.5f, a.pt, a.size * 0.5f) >= kUniaoMinima;
  }
  return double(certos) / d0.rows;
}

}  // namespace teste
