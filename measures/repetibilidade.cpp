#include "measures/repetibilidade.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace measures {

bool naParteComum(const Regiao& r, const Regiao& rt, int lado, cv::Size propria, cv::Size outra, ParteComum modo) {
  if (modo == ParteComum::ambas) return dentro(r, propria) && dentro(rt, outra);
  return lado == 1 ? dentro(r, propria) : dentro(rt, outra);
}

Medida RepeticaoSobreposicao::repeatability() const {
  const int menor = std::min(n1, n2);
  if (menor == 0) return std::nullopt;
  return static_cast<float>(correspondencias) / static_cast<float>(menor);
}

RepeticaoSobreposicao repeticaoSobreposicao(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                            const cv::Matx33d& H, const cv::Matx33d& Hinv, cv::Size img1,
                                            cv::Size img2, double erroMaximo, ParteComum modo) {
  std::vector<Regiao> regioes1, regioes2t;
  regioes1.reserve(k1.size());
  regioes2t.reserve(k2.size());
  for (const cv::KeyPoint& k : k1) {
    const Regiao r = regiaoDe(k);
    if (naParteComum(r, projeta(r, H), 1, img1, img2, modo)) regioes1.push_back(r);
  }
  for (const cv::KeyPoint& k : k2) {
    const Regiao r = regiaoDe(k);
    const Regiao rt = projeta(r, Hinv);
    if (naParteComum(r, rt, 2, img2, img1, modo)) regioes2t.push_back(rt);
  }
  RepeticaoSobreposicao rep;
  rep.n1 = static_cast<int>(regioes1.size());
  rep.n2 = static_cast<int>(regioes2t.size());
  rep.correspondencias =
      static_cast<int>(correspondencias(regioes1, regioes2t, sobreposicaoMinima(erroMaximo)).size());
  return rep;
}

cv::Point2d transforma(const cv::Matx33d& H, cv::Point2f p) {
  const cv::Vec3d q = H * cv::Vec3d(p.x, p.y, 1);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  if (q[2] == 0) return {nan, nan};
  const cv::Point2d r(q[0] / q[2], q[1] / q[2]);
  if (!std::isfinite(r.x) || !std::isfinite(r.y)) return {nan, nan};
  return r;
}

namespace {

bool naImagem(cv::Point2d p, cv::Size s) { return p.x >= 0 && p.x < s.width && p.y >= 0 && p.y < s.height; }

// How many points of `a` have a point of `b` within `px`; b sorted by x.
int comVizinho(const std::vector<cv::Point2d>& a, const std::vector<cv::Point2d>& b, double px) {
  int n = 0;
  const double px2 = px * px;
  for (const cv::Point2d& p : a) {
    auto k = std::lower_bound(b.begin(), b.end(), p.x - px,
                              [](const cv::Point2d& q, double x) { return q.x < x; });
    for (; k != b.end() && k->x <= p.x + px; ++k) {
      const double dx = k->x - p.x, dy = k->y - p.y;
      if (dx * dx + dy * dy <= px2) {
        ++n;
        break;
      }
    }
  }
  return n;
}

}  // namespace

RepeticaoDistancia repeticaoDistancia(const std::vector<cv::KeyPoint>& k1, const std::vector<cv::KeyPoint>& k2,
                                      const cv::Matx33d& H, const cv::Matx33d& Hinv, cv::Size img1, cv::Size img2,
                                      double px) {
  // Both sets in image 2's pixels.
  std::vector<cv::Point2d> a, b;
  for (const cv::KeyPoint& k : k1) {
    const cv::Point2d p = transforma(H, k.pt);
    if (naImagem(p, img2)) a.push_back(p);
  }
  for (const cv::KeyPoint& k : k2)
    if (naImagem(transforma(Hinv, k.pt), img1)) b.emplace_back(k.pt.x, k.pt.y);
  const auto porX = [](const cv::Point2d& p, const cv::Point2d& q) { return p.x < q.x; };
  std::sort(a.begin(), a.end(), porX);
  std::sort(b.begin(), b.end(), porX);
  RepeticaoDistancia rep;
  rep.n1 = static_cast<int>(a.size());
  rep.n2 = static_cast<int>(b.size());
  rep.repetidos1 = comVizinho(a, b, px);
  rep.repetidos2 = comVizinho(b, a, px);
  return rep;
}

}  // namespace measures
