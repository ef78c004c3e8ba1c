#include "evaluation/curvas.hpp"
#include "evaluation/opcoes.hpp"
#include "evaluation/tools.hpp"

#include "support/arquivos.hpp"
#include "support/erro.hpp"


void Matlab(int argc, char** argv) {
  if (argc < 4 || argc > 5)
    tvm::falhaUso({"Matlab: Exporta arquivo Matlab para tracar ROC, tendo matriz 3x3",
                   "Matlab match.txt mat33.txt saida.mat [dist=val]",
                   "  Acerto: quando distancia(inv(mat33)*k2,k1)<=dist", "  dist default = 15"});
  const evaluation::Avaliacao a = evaluation::leAvaliacao(argc, argv, evaluation::kDist);

  const std::string nome = argv[3];
  tvm::SaidaSegura saida(nome, "Erro abertura ");
  saida.escreve(evaluation::linhaMatlab(a.certos));
  saida.confirma();
}
