#include "evaluation/avisos.hpp"
#include "evaluation/curvas.hpp"
#include "evaluation/opcoes.hpp"
#include "evaluation/tools.hpp"

#include "formats/transform.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

void MatAcert(int argc, char** argv) {
  if (argc < 4 || argc > 7)
    tvm::falhaUso({"MatAcert: Curva de taxa de acerto, tendo matriz 3x3",
                   "MatAcert match.txt mat33.txt saida.png [dist=val | cor=b,g,r | eixox=a/r]",
                   "  Acerto: quando distancia(inv(mat33)*k2,k1)<=dist", "  dist default = 15",
                   "  eixox=a: acceptance. eixox=r: rejection."});
  const formats::Casamentos casamentos = formats::leCasamentos(argv[1]);
  const evaluation::OpcoesAvaliacao op =
      evaluation::leOpcoes(argc - 4, argv + 4, evaluation::kDist | evaluation::kCor | evaluation::kEixox);
  cv::Mat H;
  formats::leMat33(H, argv[2]);
  const std::vector<bool> certos = evaluation::julgaEAvisa(H, casamentos, op.dist, argv[2]);

  cv::Mat_<cv::Vec3b> img;
  evaluation::curvaAccRej(evaluation::taxasAcerto(certos), img, 4, op.cor, op.eixox);
  tvm::imp(img, argv[3]);
}
