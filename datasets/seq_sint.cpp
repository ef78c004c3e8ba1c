#include "datasets/sintetica.hpp"
#include "datasets/tools.hpp"

#include "support/argumentos.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <cstdio>

void SeqSint(int argc, char** argv) {
  if (argc < 3)
    tvm::falhaUso({"SeqSint: Gera sequencia sintetica (img1.png..imgN.png, H1to2p..H1toNp) a partir de uma imagem",
                   "SeqSint img PASTA [n=6 rotacao=0 escala=1 vista=0 brilho=0 contraste=1 gama=1",
                   "                   blur=0 ruido=0 jpeg=100 seed=7]",
                   "  A imagem k recebe a fracao (k-1)/(n-1) de cada mudanca; a ultima, o valor dado.",
                   "  rotacao e vista em graus (vista: inclinacao da camera); escala: zoom final;",
                   "  brilho: niveis somados; blur: sigma; ruido: desvio; jpeg: qualidade final"});
  cv::Mat_<uchar> fonte;
  tvm::le(fonte, argv[1]);
  datasets::ParamSint p;
  tvm::ISTR opcoes(argc - 3, argv + 3);
  tvm::seekArgs(opcoes, {{"n", p.vistas}, {"rotacao", p.rotacao}, {"escala", p.escala}, {"vista", p.vista},
                         {"brilho", p.brilho}, {"contraste", p.contraste}, {"gama", p.gama}, {"blur", p.blur},
                         {"ruido", p.ruido}, {"jpeg", p.jpeg}, {"seed", p.seed}});
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  datasets::escreveSequencia(fonte, argv[2], p);
  std::printf("Sequencia %s: %d imagens\n", argv[2], p.vistas);
}
