#include "formats/match_file.hpp"
#include "matching/ratio.hpp"
#include "matching/tools.hpp"
#include "support/argumentos.hpp"
#include "support/erro.hpp"

#include <cstdio>
#include <string>

void MatRatio(int argc, char** argv) {
  // The first line reads "1st/2nd>ratio", as it always has; the test keeps
  // the matches whose ratio is below `ratio` (matching/ratio.hpp).
  if (argc < 4)
    tvm::falhaUso({"MatRatio: Acha casamentos de des1 para des2 onde 1st/2nd>ratio",
                   "MatRatio des1.xml des2.xml match.txt [ratio=val | acrate=val | ordem=r ou d | brute | flann ]",
                   "  ratio: distancia_melhor/distancia_segundo_melhor. Limiariza pelo ratio e ordena por r/d",
                   "  acrate: acceptance rate entre 0 e 1. Ordena por r/d e apaga.",
                   "  ordem=r (ratio) ou d (distance).", "  Default: ratio=0.8 ordem=r brute"});
  const ParDescritores par = leParDescritores(argv[1], argv[2]);
  tvm::ISTR in(argc - 4, argv + 4);
  const OpcoesRatio opcoes = leOpcoesRatio(in);

  // Every keypoint of image 1 needs two neighbours for its ratio. The
  // message keeps the text scripts know for this case and says why.
  if (!par.descritores1.empty() && par.descritores2.rows < 2)
    tvm::erro("Erro acRateTest inesperado: ", argv[2],
              " tem " + std::to_string(par.descritores2.rows) + " descritor(es), a razao precisa de ao menos 2");
  const std::vector<std::vector<cv::DMatch>> listas = casa2NN(par.descritores1, par.descritores2, opcoes.busca);
  const std::vector<cv::DMatch> matches = selecionaRatio(listas, opcoes);
  if (opcoes.modo == ModoRatio::acRate)
    std::printf("Vou apagar %u casamentos\n", static_cast<unsigned>(listas.size() - matches.size()));
  // With no descriptors in image 1 nothing was offered and nothing kept: 0%.
  const double taxa = listas.empty() ? 0.0 : static_cast<double>(matches.size()) * 100.0 / listas.size();
  std::printf("Matches_iniciais=%u Matches_finals=%u taxa_aceite=%5.2f%%\n", static_cast<unsigned>(listas.size()),
              static_cast<unsigned>(matches.size()), taxa);
  formats::impMatch(matches, par.keypoints1, par.keypoints2, argv[3]);
}
