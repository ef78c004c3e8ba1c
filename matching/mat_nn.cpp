#include "matching/busca.hpp"
#include "matching/tools.hpp"
#include "support/erro.hpp"

#include <algorithm>

void MatNN(int argc, char** argv) {
  casaPar(argc, argv, "MatNN: Acha casamentos do des1 para des2 usando 1-NN",
          "MatNN des1.xml des2.xml match.txt [ brute | flann ]", [argv](const ParDescritores& par, Busca modo) {
            // Every keypoint of image 1 gets a match line, so image 2 must offer one.
            if (!par.descritores1.empty() && par.descritores2.empty())
              tvm::erro("Erro: nenhum descritor para casar em ", argv[2]);
            std::vector<cv::DMatch> matches = casaNN(par.descritores1, par.descritores2, modo);
            std::sort(matches.begin(), matches.end());
            return matches;
          });
}
