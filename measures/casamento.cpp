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

namespace {

// Keypoints of one image's list in the common part of the pair.
int naParteComum(const std::vector<cv::KeyPoint>& k, int lado, const cv::Matx33d& paraOutra, cv::Size propria,
                 cv::Size outra, ParteComum modo) {
  int n = 0;
  for (const cv::KeyPoint& p : k) {
    const Regiao r = regiaoDe(p);
    n += naParteComum(r, projeta(r, paraOutra), lado, propria, outra, modo);
  }
  return n;
}

}  // namespace

MedidasCasamento medeCasamentos(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                                const cv::Matx33d& H, const cv::Matx33d& Hinv, cv::Size img1, cv::Size img2,
                                const OpcoesCasamento& op) {
  const size_t n = m1.size();
  MedidasCasamento r;
  r.certos.resize(n);
  std::vector<double> erros(n);
  std::vector<cv::Point2f> p1(n), p2(n);
  int corretosComuns = 0;
  const float minima = sobreposicaoMinima(op.erro);
  for (size_t i = 0; i < n; ++i) {
    const cv::KeyPoint &a = m1[i], &b = m2[i];
    const Regiao ra = regiaoDe(a), rb = regiaoDe(b);
    const Regiao rbt = projeta(rb, Hinv);
    const bool certo = op.dist ? erroReprojecao(Hinv, b.pt, a.pt) <= *op.dist
                               : sobreposicao(Referencia(ra), rbt) >= minima;
    r.certos[i] = certo;
    r.corretos += certo;
    corretosComuns += certo && naParteComum(ra, projeta(ra, H), 1, img1, img2, op.comum) &&
                      naParteComum(rb, rbt, 2, img2, img1, op.comum);
    erros[i] = erroReprojecao(H, a.pt, b.pt);
    p1[i] = a.pt;
    p2[i] = b.pt;
  }
  r.n1 = naParteComum(k1, 1, H, img1, img2, op.comum);
  r.n2 = naParteComum(k2, 2, Hinv, img2, img1, op.comum);
  r.matchingScore = matchingScore(corretosComuns, r.n1, r.n2);
  r.mma = mma(erros);
  r.ap = averagePrecision(r.certos);
  r.erroHomografia = erroHomografia(p1, p2, H, img1, op.ransac);
  return r;
}

}  // namespace measures
