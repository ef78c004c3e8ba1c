#include "evaluation/avisos.hpp"
#include "evaluation/curvas.hpp"
#include "evaluation/opcoes.hpp"
#include "evaluation/tools.hpp"

#include "formats/transform.hpp"
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
  const formats::Casamentos casamentos = formats::leCasamentos(argv[1]);
  const evaluation::OpcoesAvaliacao op =
      evaluation::leOpcoes(argc - 4, argv + 4, evaluation::kDist | evaluation::kCor | evaluation::kArquivo);
  // Under one name, one output would silently replace the other.
  if (!op.arquivo.empty()) tvm::exigeSaidasDistintas({argv[3], op.arquivo});
  cv::Mat H;
  formats::leMat33(H, argv[2]);
  const std::vector<bool> certos = evaluation::julgaEAvisa(H, casamentos, op.dist, argv[2]);

  const std::vector<evaluation::PontoROC> pontos = evaluation::pontosROC(evaluation::confusoes(certos));
  cv::Mat_<cv::Vec3b> img;
  evaluation::curvaROC(pontos, img, 8, op.cor);
  // Both outputs replace their files, or neither does.
  std::optional<tvm::SaidaSegura> roc;
  if (!op.arquivo.empty()) {
    roc.emplace(op.arquivo, "Erro: abertura ");
    evaluation::escreveROC(pontos, certos, *roc);
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
