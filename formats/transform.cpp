#include "formats/transform.hpp"

#include "formats/match_file.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

namespace formats {

void leMat33(cv::Mat& matrix, const std::string& fileName) {
  tvm::Arquivo arquivo(fileName, "r");
  if (!arquivo) tvm::erro("Erro arquivo inexistente ", fileName);
  matrix.create(3, 3, CV_64F);
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      if (!tvm::leNum(arquivo.get(), matrix.at<double>(r, c)))
        tvm::erro("Erro: matriz 3x3 incompleta ou invalida em ", fileName);
}

cv::Mat inversa(const cv::Mat& H) {
  cv::Mat Hinv = H.inv(cv::DECOMP_LU);
  Hinv.convertTo(Hinv, CV_64F);
  return Hinv;
}

bool acerto(const cv::Mat& Hinv, const cv::KeyPoint& k1, const cv::KeyPoint& k2, double dist) {
  const cv::Matx33d M(Hinv);
  const cv::Vec3d p1(k1.pt.x, k1.pt.y, 1.0);
  cv::Vec3d q = M * cv::Vec3d(k2.pt.x, k2.pt.y, 1.0);
  q[0] = q[0] / q[2];
  q[1] = q[1] / q[2];
  q[2] = q[2] / q[2];
  const double d = cv::norm(q - p1, cv::NORM_L2);
  return !(d > dist);
}

Casamentos leCasamentos(const std::string& matchFile) {
  Casamentos c;
  leMatch(c.matches, c.keypoints1, c.keypoints2, matchFile);
  if (c.keypoints1.size() != c.matches.size() || c.keypoints1.size() != c.keypoints2.size())
    tvm::erro("Erro: Dimensoes conflitantes");
  return c;
}

std::vector<bool> julga(const cv::Mat& Hinv, const Casamentos& casamentos, double dist) {
  std::vector<bool> certos(casamentos.matches.size());
  for (size_t i = 0; i < certos.size(); ++i)
    certos[i] = acerto(Hinv, casamentos.keypoints1[i], casamentos.keypoints2[i], dist);
  return certos;
}

std::vector<bool> julgaComArquivo(const Casamentos& casamentos, const std::string& transformFile, double dist) {
  cv::Mat H;
  leMat33(H, transformFile);
  return julga(inversa(H), casamentos, dist);
}

}  // namespace formats
