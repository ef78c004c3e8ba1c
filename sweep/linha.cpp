#include "sweep/linha.hpp"

#include "evaluation/medidas_entrada.hpp"
#include "measures/casamento.hpp"
#include "measures/pose.hpp"
#include "support/numeros.hpp"

#include <cmath>

namespace sweep {

namespace {

std::string nas(int n) {
  std::string r;
  for (int i = 0; i < n; ++i) r += i ? ",NA" : "NA";
  return r;
}

// The pose columns of resultados.csv after the homography's: NA on planar pairs.
constexpr int kColunasPose = 7;

// A planar pair: KeyRep's and MatScore's measures through the homography.
MedidasDaLinha medeHomografia(const OpcoesMedidas& op, const std::vector<cv::KeyPoint>& k1,
                              const std::vector<cv::KeyPoint>& k2, cv::Size img1, cv::Size img2,
                              const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                              const measures::Verdade& g) {
  MedidasDaLinha r;
  for (size_t i = 0; i < m1.size(); ++i) r.erros.push_back(measures::erroReprojecao(g.H, m1[i].pt, m2[i].pt));
  measures::MedidasCasamento m;
  if (op.soMMA) {
    // D2-Net's protocol needs the reprojection errors alone; a match
    // within 3 px is drawn as correct.
    m.mma = measures::mma(r.erros);
    for (double e : r.erros) m.certos.push_back(e <= 3);
  } else {
    measures::OpcoesCasamento oc;
    oc.erro = op.erro / 100;
    oc.comum = op.comum;
    oc.ransac = op.ransac;
    if (op.dist > 0) oc.dist = op.dist;
    m = measures::medeCasamentos(k1, k2, m1, m2, g.H, g.Hinv, img1, img2, oc);
    r.comCurva = true;
  }
  r.colunas = (op.soMMA ? std::string("NA") : std::to_string(m.corretos)) + "," +
              evaluation::texto(m.matchingScore);
  for (const measures::Medida& v : m.mma) r.colunas += "," + evaluation::texto(v);
  r.colunas += "," + evaluation::texto(m.ap) + "," + evaluation::texto(m.erroHomografia);
  for (int t : {1, 3, 5})
    r.colunas +=
        "," + (op.soMMA ? std::string("NA") : std::to_string(measures::homografiaCorreta(m.erroHomografia, t)));
  r.colunas += "," + nas(kColunasPose);
  r.certos = std::move(m.certos);
  return r;
}

std::vector<cv::Point2d> pontos(const std::vector<cv::KeyPoint>& k) {
  std::vector<cv::Point2d> r;
  r.reserve(k.size());
  for (const cv::KeyPoint& x : k) r.emplace_back(x.pt.x, x.pt.y);
  return r;
}

// A posed pair: the relative pose at each threshold asked, the epipolar
// precision and, with depth, the matches' errors through it (MatPose's
// measures; SuperGlue's drawing colours by the epipolar distance where
// there is no depth, and so do we).
MedidasDaLinha medeCameras(const OpcoesMedidas& op, const std::vector<cv::KeyPoint>& k1,
                           const std::vector<cv::KeyPoint>& k2, cv::Size img1, cv::Size img2,
                           const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                           const measures::Cameras& c) {
  MedidasDaLinha r;
  const std::vector<cv::Point2d> p0 = pontos(m1), p1 = pontos(m2);
  if (!c.profundidade0.empty()) {
    const measures::MedidasProfundidade d = measures::medeProfundidade(p0, p1, c, op.pxProfundidade);
    // The keypoints each image's depth carries onto the other, as the
    // homography's common part; image 1's all when it has no depth.
    const int n1 = measures::visiveisPelaProfundidade(c.profundidade0, c.K0, c.R, c.t, c.K1, img2,
                                                      pontos(k1));
    const int n2 = c.profundidade1.empty()
                       ? static_cast<int>(k2.size())
                       : measures::visiveisPelaProfundidade(c.profundidade1, c.K1, c.R.t(), -(c.R.t() * c.t), c.K0,
                                                            img1, pontos(k2));
    r.colunas = std::to_string(d.corretos) + "," + evaluation::texto(measures::matchingScore(d.corretos, n1, n2));
    for (const measures::Medida& v : d.mma) r.colunas += "," + evaluation::texto(v);
    for (const measures::Medida& e : d.erros) {
      r.erros.push_back(e ? *e : 0);
      r.certos.push_back(e && *e <= op.pxProfundidade);
    }
  } else {
    r.colunas = nas(12);
    for (double e : measures::distanciasEpipolares(p0, p1, c)) {
      r.erros.push_back(std::isnan(e) ? 0 : e);
      r.certos.push_back(e < 5e-4);
    }
  }
  r.comCurva = !op.soMMA;
  r.colunas += "," + nas(5);  // ap and the homography's
  if (op.soMMA) {
    r.colunas += "," + nas(kColunasPose);
    return r;
  }
  for (double limiar : op.limiaresPose) {
    measures::OpcoesPose estimador;
    estimador.limiar = limiar;
    estimador.metodo = op.metodoPose;
    const std::optional<measures::PoseEstimada> e = measures::estimaPose(p0, p1, c.K0, c.K1, estimador);
    std::string colunas = "NA,NA,NA,0";
    if (e) {
      const measures::ErroPose erro = measures::erroPose(e->R, e->t, c.R, c.t);
      colunas = tvm::formataNumero("%.6f", erro.pose()) + "," + tvm::formataNumero("%.6f", erro.rotacao) + "," +
                tvm::formataNumero("%.6f", erro.translacao) + "," + std::to_string(e->nInliers);
    }
    r.poses.push_back(tvm::formataNumero("%.9g", limiar) + "," + colunas);
  }
  r.colunas += "," + r.poses.front().substr(r.poses.front().find(',') + 1);
  for (const measures::Medida& v : measures::precisaoEpipolar(p0, p1, c)) r.colunas += "," + evaluation::texto(v);
  return r;
}

}  // namespace

MedidasDaLinha medeLinha(const OpcoesMedidas& op, const std::vector<cv::KeyPoint>& k1,
                         const std::vector<cv::KeyPoint>& k2, cv::Size img1, cv::Size img2,
                         const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2,
                         const measures::Verdade& verdade) {
  return verdade.tipo == measures::TipoVerdade::homografia
             ? medeHomografia(op, k1, k2, img1, img2, m1, m2, verdade)
             : medeCameras(op, k1, k2, img1, img2, m1, m2, verdade.cameras);
}

}  // namespace sweep
