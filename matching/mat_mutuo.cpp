#include "formats/match_file.hpp"
#include "matching/busca.hpp"
#include "matching/tools.hpp"
#include "support/argumentos.hpp"
#include "support/erro.hpp"

#include <algorithm>

std::vector<cv::DMatch> casaMutuos(const cv::Mat& descritores1, const cv::Mat& descritores2, Busca modo) {
  const std::vector<cv::DMatch> ida = casaNN(descritores1, descritores2, modo);
  const std::vector<cv::DMatch> volta = casaNN(descritores2, descritores1, modo);
  std::vector<cv::DMatch> mutuos;
  for (const cv::DMatch& m : ida)
    if (volta[m.trainIdx].trainIdx == m.queryIdx) mutuos.push_back(m);
  std::stable_sort(mutuos.begin(), mutuos.end());
  return mutuos;
}

void MatMutuo(int argc, char** argv) {
  if (argc < 4)
    tvm::falhaUso({"MatMutuo: Acha casamentos mutuos: 1-NN de des1 em des2 que tambem e 1-NN de volta",
                   "MatMutuo des1.xml des2.xml match.txt [ brute | flann ]",
                   "  match.txt estara ordenada pela distancia. menor=melhor", "  Default=brute"});
  const ParDescritores par = leParDescritores(argv[1], argv[2]);
  tvm::ISTR opcoes(argc - 4, argv + 4);
  const Busca modo = leBuscaNN(opcoes);
  formats::impMatch(casaMutuos(par.descritores1, par.descritores2, modo), par.keypoints1, par.keypoints2, argv[3]);
}
