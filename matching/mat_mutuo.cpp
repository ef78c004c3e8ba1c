#include "matching/busca.hpp"
#include "matching/tools.hpp"

#include <algorithm>

void MatMutuo(int argc, char** argv) {
  casaPar(argc, argv, "MatMutuo: Acha casamentos mutuos: 1-NN de des1 em des2 que tambem e 1-NN de volta",
          "MatMutuo des1.xml des2.xml match.txt [ brute | flann ]",
          [](const ParDescritores& par, Busca modo) { return casaMutuos(par.descritores1, par.descritores2, modo); });
}
