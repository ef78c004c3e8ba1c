#include "measures/pose.hpp"

#include <opencv2/calib3d.hpp>

#include <cmath>

namespace measures {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// numpy's rad2deg multiplies by 180 / pi in one constant.
double graus(double cosseno) { return std::acos(std::clamp(cosseno, -1.0, 1.0)) * (180.0 / CV_PI); }

cv::Matx33d essencial(const Cameras& c) {
  const cv::Vec3d& t = c.t;
  return cv::Matx33d(0, -t[2], t[1], t[2], 0, -t[0], -t[1], t[0], 0) * c.R;
}

}  // namespace

cv::Point2d normaliza(const cv::Matx33d& K, cv::Point2d p) {
  const double y = (p.y - K(1, 2)) / K(1, 1);
  return {(p.x - K(0, 2) - K(0, 1) * y) / K(0, 0), y};
}

std::optional<PoseEstimada> estimaPose(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                       const cv::Matx33d& K0, const cv::Matx33d& K1, const OpcoesPose& op) {
  const size_t n = p0.size();
  if (n < 5 || p1.size() != n) return std::nullopt;
  std::vector<cv::Point2d> n0(n), n1(n);
  for (size_t i = 0; i < n; ++i) {
    n0[i] = normaliza(K0, p0[i]);
    n1[i] = normaliza(K1, p1[i]);
  }
  const double f = (K0(0, 0) + K1(1, 1) + K0(0, 0) + K1(1, 1)) / 4;
  // Not cv::Mat::eye: its expression goes through a singleton OpenCV makes
  // lazily, which ThreadSanitizer sees raced by the sweep's workers.
  const cv::Mat I(cv::Matx33d::eye());
  cv::Mat mascara;
  const cv::Mat E = cv::findEssentialMat(n0, n1, I, op.metodo == MetodoPose::magsac ? cv::USAC_MAGSAC : cv::RANSAC,
                                         0.99999, op.limiar / f, 1000, mascara);
  std::optional<PoseEstimada> melhor;
  for (int i = 0; i + 3 <= E.rows; i += 3) {
    cv::Mat R, t;
    const int k = cv::recoverPose(E.rowRange(i, i + 3), n0, n1, I, R, t, 1e9, mascara);
    if (k <= (melhor ? melhor->nInliers : 0)) continue;
    PoseEstimada p{R, t, std::vector<bool>(n), k};
    for (size_t j = 0; j < n; ++j) p.inliers[j] = mascara.ptr<uchar>()[j] != 0;
    melhor = std::move(p);
  }
  return melhor;
}

ErroPose erroPose(const cv::Matx33d& R, const cv::Vec3d& t, const cv::Matx33d& Rv, const cv::Vec3d& tv) {
  const double et = graus(t.dot(tv) / (cv::norm(t) * cv::norm(tv)));
  return {graus((cv::trace(R.t() * Rv) - 1) / 2), std::min(et, 180 - et)};
}

Medida aucPose(const std::vector<double>& erros, double t) {
  if (erros.empty()) return std::nullopt;
  std::vector<double> e(erros);
  for (double& x : e)
    if (std::isnan(x)) x = kInf;
  std::sort(e.begin(), e.end());
  const double n = static_cast<double>(e.size());
  double area = 0, x = 0, r = 0;  // the last point of the curve
  for (size_t i = 0; i < e.size() && e[i] < t; ++i) {
    const double ri = static_cast<double>(i + 1) / n;
    area += (e[i] - x) * (r + ri) / 2;
    x = e[i];
    r = ri;
  }
  area += (t - x) * (r + r) / 2;
  return area / t;
}

AUCPose aucPose(const std::vector<double>& erros) {
  return {aucPose(erros, 5), aucPose(erros, 10), aucPose(erros, 20)};
}

Medida mAA(const std::vector<double>& erros) {
  size_t abaixo = 0;
  for (int t = 1; t <= 10; ++t)
    abaixo += static_cast<size_t>(std::count_if(erros.begin(), erros.end(), [t](double e) { return e < t; }));
  return razao(static_cast<double>(abaixo), 10.0 * static_cast<double>(erros.size()));
}

double distanciaEpipolar(const cv::Matx33d& E, cv::Point2d x0, cv::Point2d x1) {
  const cv::Vec3d a(x0.x, x0.y, 1), b(x1.x, x1.y, 1);
  const cv::Vec3d Ea = E * a, Etb = E.t() * b;
  const double num = b.dot(Ea);
  return num * num * (1 / (Ea[0] * Ea[0] + Ea[1] * Ea[1]) + 1 / (Etb[0] * Etb[0] + Etb[1] * Etb[1]));
}

std::vector<double> distanciasEpipolares(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                         const Cameras& c) {
  const cv::Matx33d E = essencial(c);
  std::vector<double> d(p0.size());
  for (size_t i = 0; i < p0.size(); ++i) d[i] = distanciaEpipolar(E, normaliza(c.K0, p0[i]), normaliza(c.K1, p1[i]));
  return d;
}

PrecisaoEpipolar precisaoEpipolar(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                  const Cameras& c) {
  constexpr double limiares[3] = {1e-4, 5e-4, 1e-3};
  std::array<int, 3> certos{};
  for (double d : distanciasEpipolares(p0, p1, c))
    for (int k = 0; k < 3; ++k) certos[k] += d < limiares[k];
  PrecisaoEpipolar r;
  for (int k = 0; k < 3; ++k) r[k] = razao(certos[k], static_cast<double>(p0.size()));
  return r;
}

namespace {

// Point p of an image with depth map d and camera K, in the frame of a
// camera placed by R, t: no value where p has no depth.
std::optional<cv::Vec3d> pelaProfundidade(const cv::Mat_<float>& d, const cv::Matx33d& K, const cv::Matx33d& R,
                                          const cv::Vec3d& t, cv::Point2d p) {
  const double col = std::floor(p.x + 0.5), lin = std::floor(p.y + 0.5);
  if (!(col >= 0 && lin >= 0 && col < d.cols && lin < d.rows)) return std::nullopt;
  const double z = d(static_cast<int>(lin), static_cast<int>(col));
  if (!(z > 0) || !std::isfinite(z)) return std::nullopt;
  const cv::Point2d r = normaliza(K, p);
  return R * cv::Vec3d(z * r.x, z * r.y, z) + t;
}

}  // namespace

Medida erroProfundidade(const Cameras& c, cv::Point2d p0, cv::Point2d p1) {
  const std::optional<cv::Vec3d> X1 = pelaProfundidade(c.profundidade0, c.K0, c.R, c.t, p0);
  if (!X1) return std::nullopt;
  if (!((*X1)[2] > 0)) return kInf;
  const cv::Vec3d q = c.K1 * *X1;
  return std::hypot(q[0] / q[2] - p1.x, q[1] / q[2] - p1.y);
}

int visiveisPelaProfundidade(const cv::Mat_<float>& d, const cv::Matx33d& K, const cv::Matx33d& R, const cv::Vec3d& t,
                             const cv::Matx33d& Koutra, cv::Size outra, const std::vector<cv::Point2d>& pontos) {
  int n = 0;
  for (const cv::Point2d& p : pontos) {
    const std::optional<cv::Vec3d> X = pelaProfundidade(d, K, R, t, p);
    if (!X || !((*X)[2] > 0)) continue;
    const cv::Vec3d q = Koutra * *X;
    const double x = q[0] / q[2], y = q[1] / q[2];
    n += x >= -0.5 && y >= -0.5 && x < outra.width - 0.5 && y < outra.height - 0.5;
  }
  return n;
}

MedidasProfundidade medeProfundidade(const std::vector<cv::Point2d>& p0, const std::vector<cv::Point2d>& p1,
                                     const Cameras& c, double limiar) {
  MedidasProfundidade m;
  std::vector<double> comValor;
  for (size_t i = 0; i < p0.size(); ++i) {
    m.erros.push_back(erroProfundidade(c, p0[i], p1[i]));
    if (!m.erros.back()) continue;
    comValor.push_back(*m.erros.back());
    m.corretos += comValor.back() <= limiar;
  }
  m.comProfundidade = static_cast<int>(comValor.size());
  m.mma = mma(comValor);
  m.parteCorreta = razao(m.corretos, static_cast<double>(p0.size()));
  return m;
}

std::optional<MelhorLimiar> melhorLimiar(const std::vector<double>& limiares,
                                         const std::vector<std::vector<double>>& erros) {
  std::optional<MelhorLimiar> melhor;
  double maiorMedia = -1;
  for (size_t i = 0; i < limiares.size() && i < erros.size(); ++i) {
    const AUCPose a = aucPose(erros[i]);
    if (!a[0]) continue;
    double media = 0;
    for (const Medida& m : a) media += std::nearbyint(*m * 1e4) / 1e4;  // numpy.round(x, 4)
    media /= 3;
    if (media > maiorMedia) {
      maiorMedia = media;
      melhor = MelhorLimiar{limiares[i], a};
    }
  }
  return melhor;
}

std::optional<MelhorLimiar> varreLimiares(const std::function<std::vector<double>(double)>& errosNoLimiar,
                                          const std::vector<double>& limiares) {
  std::vector<std::vector<double>> erros;
  for (double l : limiares) erros.push_back(errosNoLimiar(l));
  return melhorLimiar(limiares, erros);
}

}  // namespace measures
