#include "matching/busca.hpp"
#include "matching/tools.hpp"

#include <algorithm>

std::vector<cv::DMatch> casaMutuos(const cv::Mat& descritores1, const cv::Mat& descritores2, Busca modo) {
  const std::vector<cv::DMatch> ida = casaNN(descritores1, descritores2, modo);
  // The way back by row of store 2: an approximate search may leave a row
  // without a match (-1).
  std::vector<int> volta(static_cast<size_t>(descritores2.rows), -1);
  for (const cv::DMatch& m : casaNN(descritores2, descritores1, modo)) volta[static_cast<size_t>(m.queryIdx)] = m.trainIdx;
  std::vector<cv::DMatch> mutuos;
  for (const cv::DMatch& m : ida)
    if (volta[static_cast<size_t>(m.trainIdx)] == m.queryIdx) mutuos.push_back(m);
  std::stable_sort(mutuos.begin(), mutuos.end());
  return mutuos;
}

void MatMutuo(int argc, char** argv) {
  casaPar(argc, argv, "MatMutuo: Acha casamentos mutuos: 1-NN de des1 em des2 que tambem e 1-NN de volta",
          "MatMutuo des1.xml des2.xml match.txt [ brute | flann ]",
          [](const ParDescritores& par, Busca modo) { return casaMutuos(par.descritores1, par.descritores2, modo); });
}
