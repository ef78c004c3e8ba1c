#include "evaluation/avisos.hpp"
#include "evaluation/curvas.hpp"
#include "evaluation/opcoes.hpp"
#include "evaluation/tools.hpp"

#include "support/arquivos.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <optional>
#include <string>

void MatROC(int argc, char** argv) {
  if (argc < 4 || argc > 6)
    tvm::falhaUso({"MatROC: Calcula a curva ROC de casamentos, tendo matriz 3x3",
                   "MatROC match.txt mat33.txt saida.png [dist=val | cor=b,g,r | arquivo=nome.txt]",
                   "  Acerto: quando distancia(inv(mat33)*k2,k1)<=dist", "  dist default = 15"});
  using namespace evaluation;
  const Avaliacao a = leAvaliacao(argc, argv, kDist | kCor | kArquivo);
  // Under one name, one output would silently replace the other.
  if (!a.opcoes.arquivo.empty()) tvm::exigeSaidasDistintas({argv[3], a.opcoes.arquivo});
  const std::vector<PontoROC> pontos = pontosROC(confusoes(a.certos));
  cv::Mat_<cv::Vec3b> img;
  curvaROC(pontos, img, 8, a.opcoes.cor);
  // Both outputs replace their files, or neither does.
  std::optional<tvm::SaidaSegura> roc;
  if (!a.opcoes.arquivo.empty()) {
    roc.emplace(a.opcoes.arquivo, "Erro: abertura ");
    escreveROC(pontos, a.certos, *roc);
  }
  tvm::SaidaSegura imagem(argv[3]);
  tvm::imp(img, imagem);
  if (roc)
    tvm::SaidaSegura::confirmaJuntas({&*roc, &imagem});
  else
    imagem.confirma();
  if (!evaluation::rocNaJanela(pontos))
    tvm::aviso(std::string("a curva ROC nao passa pela janela do grafico (fpr de 0 a 0.5, tpr de 0.5 a 1): ") +
               argv[3] + " mostra so a grade");
}
