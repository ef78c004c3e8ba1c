#include "evaluation/curvas.hpp"
#include "evaluation/opcoes.hpp"
#include "evaluation/tools.hpp"

#include "support/erro.hpp"
#include "support/imagem.hpp"

void MatAcert(int argc, char** argv) {
  if (argc < 4 || argc > 7)
    tvm::falhaUso({"MatAcert: Curva de taxa de acerto, tendo matriz 3x3",
                   "MatAcert match.txt mat33.txt saida.png [dist=val | cor=b,g,r | eixox=a/r]",
                   "  Acerto: quando distancia(inv(mat33)*k2,k1)<=dist", "  dist default = 15",
                   "  eixox=a: acceptance. eixox=r: rejection."});
  using namespace evaluation;
  const Avaliacao a = leAvaliacao(argc, argv, kDist | kCor | kEixox);
  cv::Mat_<cv::Vec3b> img;
  curvaAccRej(taxasAcerto(a.certos), img, 4, a.opcoes.cor, a.opcoes.eixox);
  tvm::imp(img, argv[3]);
}
