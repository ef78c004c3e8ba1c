#include "evaluation/avisos.hpp"
#include "evaluation/tools.hpp"

#include "formats/match_file.hpp"
#include "formats/transform.hpp"
#include "support/argumentos.hpp"
#include "support/erro.hpp"

#include <cstdio>

void FiltMat(int argc, char** argv) {
  if (argc < 3 || argc > 5)
    tvm::falhaUso({"FiltMat: Calcula taxa de erro/acerto de casamento, tendo matriz 3x3",
                   "         Filtra casamentos errados", "FiltMat match.txt mat33.txt [dist] [filtmat.txt]",
                   "  Acerto: quando distancia(inv(mat33)*k2,k1)<=dist", "  dist default = 15"});
  const formats::Casamentos casamentos = formats::leCasamentos(argv[1]);
  double dist = 15.0;
  if (argc >= 4) tvm::convArg(dist, argv[3]);
  const std::vector<bool> certos = evaluation::julgaArquivoEAvisa(casamentos, argv[2], dist);

  int acertos = 0;
  for (bool c : certos) acertos += c;
  const int total = static_cast<int>(certos.size());
  const int erros = total - acertos;
  // With no match both rates are 0/0 and print as NaN.
  std::printf("Total=%d erros=%d(%4.1f%%) acertos=%d(%4.1f%%)\n", total, erros, erros * 100.0 / total, acertos,
              acertos * 100.0 / total);
  if (argc == 5)
    formats::impMatch(casamentos.matches, casamentos.keypoints1, casamentos.keypoints2, argv[4], certos);
}
