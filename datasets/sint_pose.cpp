#include "datasets/sintetica3d.hpp"
#include "datasets/tools.hpp"

#include "support/argumentos.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <cstdio>

void SintPose(int argc, char** argv) {
  if (argc < 3)
    tvm::falhaUso({"SintPose: Gera pares 3D sinteticos com poses exatas (views.txt, pairs.txt, images/, depths/)",
                   "SintPose img PASTA [superficie=ondas giro=15 desloc=0.2 n=2 seed=7]",
                   "  A imagem e a textura de uma superficie: ondas, degrau, calombo ou diedro.",
                   "  A vista k de n orbita o centro por (k/(n-1))*giro graus, eixo sorteado por seed,",
                   "  e anda (k/(n-1))*desloc ao longo do eixo; pares: vista 0 com cada outra"});
  cv::Mat_<uchar> textura;
  tvm::le(textura, argv[1]);
  datasets::ParamSint3d p;
  tvm::ISTR opcoes(argc - 3, argv + 3);
  std::string superficie = "ondas";
  tvm::seekArg(opcoes, "superficie", superficie);
  tvm::seekArgs(opcoes, {{"giro", p.giro}, {"desloc", p.desloc}, {"n", p.vistas}, {"seed", p.seed}});
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  if (!datasets::superficieDeNome(superficie, p.superficie)) tvm::erro("Erro: superficie desconhecida ", superficie);
  datasets::escreveSint3d(textura, argv[2], p);
  std::printf("Dataset %s: %d vistas, %d pares\n", argv[2], p.vistas, p.vistas - 1);
}
