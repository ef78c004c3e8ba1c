#include "measures/casamento.hpp"

#include <opencv2/calib3d.hpp>

#include <cmath>
#include <limits>

namespace measures {

double erroReprojecao(const cv::Matx33d& H, cv::Point2f p1, cv::Point2f p2) {
  const cv::Point2d q = transforma(H, p1);
  if (std::isnan(q.x)) return std::numeric_limits<double>::infinity();
  return std::hypot(q.x - p2.x, q.y - p2.y);
}

MMA mma(const std::vector<double>& erros) {
  MMA r;
  for (int t = 1; t <= 10; ++t) {
    size_t dentro = 0;
    for (double e : erros) dentro += e <= t;
    r[t - 1] = razao(static_cast<double>(dentro), static_cast<double>(erros.size()));
  }
  return r;
}

std::vector<PontoRP> curvaRecallPrecisao(const std::vector<bool>& certos) {
  int total = 0;
  for (bool c : certos) total += c;
  std::vector<PontoRP> curva(certos.size());
  int corretos = 0;
  for (size_t i = 0; i < certos.size(); ++i) {
    corretos += certos[i];
    const float recall = total ? static_cast<float>(corretos) / static_cast<float>(total) : -1.f;
    const float precisao = static_cast<float>(corretos) / static_cast<float>(i + 1);
    curva[i] = {1 - precisao, recall};
  }
  return curva;
}

Medida averagePrecision(const std::vector<bool>& certos) {
  double soma = 0;
  int corretos = 0;
  for (size_t i = 0; i < certos.size(); ++i)
    if (certos[i]) soma += static_cast<double>(++corretos) / static_cast<double>(i + 1);
  return razao(soma, corretos);
}

Medida erroHomografia(const std::vector<cv::Point2f>& pontos1, const std::vector<cv::Point2f>& pontos2,
                      const cv::Matx33d& H, cv::Size img1, double limiarRansac) {
  if (pontos1.size() < 4 || pontos1.size() != pontos2.size()) return std::nullopt;
  const cv::Mat estimada = cv::findHomography(pontos1, pontos2, cv::RANSAC, limiarRansac);
  if (estimada.empty()) return std::nullopt;
  const cv::Matx33d E(estimada);
  const float w = static_cast<float>(img1.width - 1), h = static_cast<float>(img1.height - 1);
  double soma = 0;
  for (const cv::Point2f canto : {cv::Point2f(0, 0), cv::Point2f(w, 0), cv::Point2f(0, h), cv::Point2f(w, h)}) {
    const cv::Point2d a = transforma(H, canto), b = transforma(E, canto);
    const double d = std::hypot(a.x - b.x, a.y - b.y);
    if (!std::isfinite(d)) return std::nullopt;
    soma += d;
  }
  return soma / 4;
}

}  // namespace measures
