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
  tvm::seekArg(opcoes, "n", p.vistas);
  tvm::seekArg(opcoes, "rotacao", p.rotacao);
  tvm::seekArg(opcoes, "escala", p.escala);
  tvm::seekArg(opcoes, "vista", p.vista);
  tvm::seekArg(opcoes, "brilho", p.brilho);
  tvm::seekArg(opcoes, "contraste", p.contraste);
  tvm::seekArg(opcoes, "gama", p.gama);
  tvm::seekArg(opcoes, "blur", p.blur);
  tvm::seekArg(opcoes, "ruido", p.ruido);
  tvm::seekArg(opcoes, "jpeg", p.jpeg);
  tvm::seekArg(opcoes, "seed", p.seed);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  datasets::escreveSequencia(fonte, argv[2], p);
  std::printf("Sequencia %s: %d imagens\n", argv[2], p.vistas);
}
