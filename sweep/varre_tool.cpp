#include "sweep/tools.hpp"
#include "sweep/varre.hpp"

#include "plots/graficos.hpp"
#include "support/erro.hpp"

#include <cstdio>

void Varre(int argc, char** argv) {
  if (argc < 3)
    tvm::falhaUso(
        {"Varre: Mede detectores x descritores x casamentos em todos os pares 1-k de um dataset",
         "Varre DATASET SAIDA [det=sift,surf,fast,star,rand] [des=sift,surf,simple,riff,rihog,ruhog,forapro]",
         "      [mat=nn,ratio,mutuo] [seq=nome,...] [threads=N] [ALG.OPCAO=valor ...]",
         "      [erro=40 | dist=val] [px=3 ransac=3 comum=ambas|opencv] [curva=SEQ:K] [graficos=1]",
         "  DATASET: pasta de sequencias (img1.ppm..,H1to2p.. ou 1.ppm..,H_1_2..) ou uma sequencia",
         "  ALG.OPCAO: opcao da ferramenta do algoritmo, ex.: sift.nfeatures=500 rihog.raio=30 ratio.ratio=0.7",
         "  SAIDA: resultados.csv, tempos.csv, curvas.csv, graficos/; rodar de novo retoma o que faltou"});
  const sweep::Plano plano = sweep::lePlano(argc, argv);
  const sweep::Resumo r = sweep::varre(plano);
  const std::string resultados = plano.saida + "/resultados.csv";
  std::fputs(sweep::tabelaResumo(resultados).c_str(), stdout);
  std::printf("Resultados: %s (%d unidades, %d calculadas agora)\n", resultados.c_str(), r.unidades, r.refeitas);
  if (plano.graficos) {
    plots::desenhaGraficos(resultados, plano.saida + "/curvas.csv", plano.saida + "/graficos");
    std::printf("Graficos: %s/graficos\n", plano.saida.c_str());
  }
  if (r.falhas > 0)
    tvm::erro("Erro: ", std::to_string(r.falhas) + " de " + std::to_string(r.unidades),
              " unidades falharam; ver a coluna status de " + resultados);
  std::printf("Unidades com falha: 0 de %d\n", r.unidades);
}
