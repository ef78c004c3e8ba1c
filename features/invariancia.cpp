#include "features/invariancia.hpp"

#include "features/surf.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace features {

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

bool dentro(cv::Point2f p, float r, cv::Size t) {
  return p.x - r >= 0 && p.y - r >= 0 && p.x + r <= t.width - 1 && p.y + r <= t.height - 1;
}

double difAngulo(double a, double b) {
  double d = std::fmod(std::fabs(a - b), 360.0);
  return d > 180.0 ? 360.0 - d : d;
}

}  // namespace

Repeticao repeticao(const std::vector<cv::KeyPoint>& kps1, cv::Size tam1, const std::vector<cv::KeyPoint>& kps2,
                    cv::Size tam2, const cv::Matx33d& H, bool comAngulo) {
  Repeticao r;
  for (const cv::KeyPoint& k1 : kps1) {
    const cv::KeyPoint m = mapeia(k1, H);
    if (!dentro(k1.pt, k1.size * 0.5f, tam1) || !dentro(m.pt, m.size * 0.5f, tam2)) continue;
    ++r.considerados;
    double melhor = std::numeric_limits<double>::infinity();
    const cv::KeyPoint* perto = nullptr;
    for (const cv::KeyPoint& k2 : kps2) {
      const double d = std::hypot(double(k2.pt.x) - m.pt.x, double(k2.pt.y) - m.pt.y);
      if (d < melhor) melhor = d, perto = &k2;
    }
    if (!perto || sobreposicao(m.pt, m.size * 0.5f, perto->pt, perto->size * 0.5f) < 0.5) continue;
    ++r.casados;
    if (comAngulo && difAngulo(m.angle, perto->angle) < 15.0) ++r.orientados;
  }
  return r;
}

double acertoVizinho(const std::vector<cv::KeyPoint>& kps1, const cv::Mat& d1, const std::vector<cv::KeyPoint>& kps2,
                     const cv::Mat& d2) {
  if (d2.rows == 0 || d1.rows == 0) return 0.0;
  cv::Mat dist, idx;
  cv::batchDistance(d2, d1, dist, CV_32F, idx, cv::NORM_L2, 1);
  int certos = 0;
  for (int i = 0; i < d2.rows; ++i) {
    const int qual = idx.at<int>(i, 0);
    if (qual >= 0 && kps1[qual].class_id == kps2[i].class_id) ++certos;
  }
  return double(certos) / d2.rows;
}

double acertoDescritorMapeado(const SURF& surf, const std::vector<cv::KeyPoint>& base, const cv::Mat& img,
                              const cv::Mat& out, const cv::Matx33d& H) {
  std::vector<cv::KeyPoint> k1 = base, k2;
  for (size_t i = 0; i < k1.size(); ++i) {
    k1[i].class_id = int(i);  // survives compute's dropping, pairs the rows
    k2.push_back(mapeia(k1[i], H));
  }
  cv::Mat d1, d2;
  surf.compute(img, k1, d1);
  surf.compute(out, k2, d2);
  return acertoVizinho(k1, d1, k2, d2);
}

cv::Matx33d rotacao(cv::Size tam, double graus) {
  const cv::Mat A = cv::getRotationMatrix2D(cv::Point2f((tam.width - 1) * 0.5f, (tam.height - 1) * 0.5f), graus, 1);
  cv::Matx33d H = cv::Matx33d::eye();
  for (int r = 0; r < 2; ++r)
    for (int c = 0; c < 3; ++c) H(r, c) = A.at<double>(r, c);
  return H;
}

}  // namespace features
