#include "evaluation/avisos.hpp"

#include "support/aviso.hpp"

#include <algorithm>
#include <cmath>

namespace evaluation {

namespace {

constexpr int kMinimoParaAvisar = 20;

int conta(const std::vector<bool>& certos) { return static_cast<int>(std::count(certos.begin(), certos.end(), true)); }

}  // namespace

std::vector<std::string> avisosTransformacao(const cv::Mat& H, const formats::Casamentos& casamentos, double dist,
                                             const std::vector<bool>& certos, const std::string& arquivoMat) {
  std::vector<std::string> avisos;
  const int n = static_cast<int>(casamentos.keypoints1.size());
  if (n == 0) return avisos;
  const int comH = conta(certos);
  // Judging maps k2 back by the inverse of H; an inverted file is undone by
  // mapping k2 with the file's own matrix.
  const int invertida = conta(formats::julga(H, casamentos, dist));
  if (invertida >= 10 && invertida > 2 * comH) {
    avisos.push_back("com " + arquivoMat + " lida da imagem 2 para a imagem 1 acertariam " + std::to_string(invertida) +
                     " de " + std::to_string(n) + " casamentos, e nao " + std::to_string(comH) +
                     ": a matriz deve levar a imagem 1 para a imagem 2");
    return avisos;
  }
  // A box of a few points says little about image 2.
  if (n < kMinimoParaAvisar) return avisos;
  float x0 = INFINITY, y0 = INFINITY, x1 = -INFINITY, y1 = -INFINITY;
  for (const cv::KeyPoint& k : casamentos.keypoints2) {
    x0 = std::min(x0, k.pt.x), y0 = std::min(y0, k.pt.y);
    x1 = std::max(x1, k.pt.x), y1 = std::max(y1, k.pt.y);
  }
  const cv::Matx33d M(H);
  int fora = 0;
  for (const cv::KeyPoint& k : casamentos.keypoints1) {
    const cv::Vec3d p = M * cv::Vec3d(k.pt.x, k.pt.y, 1.0);
    const double x = p[0] / p[2], y = p[1] / p[2];
    fora += !(x >= x0 - dist && x <= x1 + dist && y >= y0 - dist && y <= y1 + dist);
  }
  if (2 * fora > n)
    avisos.push_back(arquivoMat + " leva " + std::to_string(fora) + " de " + std::to_string(n) +
                     " keypoints da imagem 1 para fora da regiao dos keypoints da imagem 2: e' a matriz deste par?");
  return avisos;
}

bool rocNaJanela(const std::vector<PontoROC>& pontos) {
  return std::any_of(pontos.begin(), pontos.end(),
                     [](const PontoROC& p) { return p.fpr >= 0.0 && p.fpr <= 0.5 && p.tpr >= 0.5 && p.tpr <= 1.0; });
}

std::vector<bool> julgaEAvisa(const cv::Mat& H, const formats::Casamentos& casamentos, double dist,
                              const std::string& arquivoMat) {
  std::vector<bool> certos = formats::julga(formats::inversa(H), casamentos, dist);
  for (const std::string& a : avisosTransformacao(H, casamentos, dist, certos, arquivoMat)) tvm::aviso(a);
  return certos;
}

std::vector<bool> julgaArquivoEAvisa(const formats::Casamentos& casamentos, const std::string& arquivoMat,
                                     double dist) {
  cv::Mat H;
  formats::leMat33(H, arquivoMat);
  return julgaEAvisa(H, casamentos, dist, arquivoMat);
}

}  // namespace evaluation
