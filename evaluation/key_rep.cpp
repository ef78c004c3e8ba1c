#include "evaluation/medidas_entrada.hpp"
#include "evaluation/tools.hpp"

#include "formats/csv.hpp"
#include "measures/repetibilidade.hpp"
#include "support/erro.hpp"

#include <cstdio>

void KeyRep(int argc, char** argv) {
  if (argc < 6)
    tvm::falhaUso({"KeyRep: Calcula a repetibilidade de keypoints entre duas imagens, tendo matriz 3x3",
                   "KeyRep img1 img2 key1.xml key2.xml mat33.txt [erro=40 | px=3 | comum=ambas|opencv | csv=tab.csv]",
                   "  repeatability: regioes com erro de sobreposicao < erro% (um a um) / min(n1,n2)",
                   "  dist_repeatability: keypoints a ate px pixels de um keypoint da outra imagem / (n1+n2)",
                   "  comum=ambas: regiao dentro da sua imagem e projecao dentro da outra;",
                   "  comum=opencv: a parte comum de cv::evaluateFeatureDetector"});
  const evaluation::ParMedido par = evaluation::leParMedido(argv, 5);

  evaluation::OpcoesMedida op;
  double px = 3;
  tvm::ISTR opcoes(argc - 6, argv + 6);
  evaluation::leOpcoesMedida(opcoes, op);
  tvm::seekArg(opcoes, "px", px);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  if (!(px > 0)) tvm::erro("Erro: px fora do intervalo");

  const measures::RepeticaoSobreposicao sob =
      measures::repeticaoSobreposicao(par.k1, par.k2, par.verdade.H, par.verdade.Hinv, par.img1, par.img2, op.erro / 100, op.comum);
  const measures::RepeticaoDistancia dist =
      measures::repeticaoDistancia(par.k1, par.k2, par.verdade.H, par.verdade.Hinv, par.img1, par.img2, px);

  std::printf("repeatability=%s correspondences=%d n1=%d n2=%d dist_repeatability=%s repeated1=%d repeated2=%d "
              "dist_n1=%d dist_n2=%d\n",
              evaluation::texto(sob.repeatability()).c_str(), sob.correspondencias, sob.n1, sob.n2,
              evaluation::texto(dist.repeatability()).c_str(), dist.repetidos1, dist.repetidos2, dist.n1, dist.n2);
  if (!op.csv.empty()) {
    char numeros[512];
    std::snprintf(numeros, sizeof numeros, "%g,%s,%g,%s,%d,%d,%d,%s,%d,%d,%d,%d", op.erro,
                  op.comum == measures::ParteComum::ambas ? "ambas" : "opencv", px,
                  evaluation::texto(sob.repeatability()).c_str(), sob.correspondencias, sob.n1, sob.n2,
                  evaluation::texto(dist.repeatability()).c_str(), dist.repetidos1, dist.repetidos2, dist.n1, dist.n2);
    std::string linha;
    for (int i = 1; i <= 5; ++i) linha += formats::campoCSV(argv[i]) + ",";
    formats::acrescentaCSV(op.csv,
                           "img1,img2,key1,key2,H,overlap_error,common,px,repeatability,correspondences,n1,n2,"
                           "dist_repeatability,repeated1,repeated2,dist_n1,dist_n2",
                           linha + numeros);
  }
}
