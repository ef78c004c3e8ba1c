#include "sweep/tools.hpp"
#include "sweep/resumo.hpp"
#include "sweep/varre.hpp"

#include "algoritmos/tabela.hpp"
#include "formats/csv.hpp"
#include "plots/graficos.hpp"
#include "relatorio/relatorio.hpp"
#include "support/processo.hpp"
#include "support/erro.hpp"

#include <opencv2/core.hpp>

#include <malloc.h>

#include <cstdio>
#include <ctime>
#include <thread>

namespace {

// The last word of a sweep: how many units failed, as an error when any did.
void fechaComFalhas(int falhas, int unidades, const std::string& resultados) {
  if (falhas > 0)
    tvm::erro("Erro: ", std::to_string(falhas) + " de " + std::to_string(unidades),
              " unidades falharam; ver a coluna status de " + resultados);
  std::printf("Unidades com falha: 0 de %d\n", unidades);
}

// What the report says of how the sweep was made: SAIDA/varredura.txt, one
// "name value" line each.
void gravaRegistro(const std::string& saida, int argc, char** argv, const std::string& dataset, int sequencias) {
  std::string comando = "quivelar";
  for (int i = 0; i < argc; ++i) {
    const std::string a = argv[i];
    comando += " " + (a.find_first_of(" '\"$") == std::string::npos ? a : tvm::aspasShell(a));
  }
  char data[64];
  const std::time_t agora = std::time(nullptr);
  std::strftime(data, sizeof data, "%Y-%m-%d %H:%M:%S UTC", std::gmtime(&agora));
  tvm::SaidaSegura arquivo(saida + "/varredura.txt");
  formats::escreveTexto(arquivo, "command " + comando + "\nversion " + QUIVELAR_VERSAO + "\ndataset " + dataset +
                                     " (" + std::to_string(sequencias) + " sequences)\ndate " + data +
                                     "\nthreads " + std::to_string(cv::getNumThreads()) + " of " +
                                     std::to_string(std::thread::hardware_concurrency()) + " on this machine\n");
  arquivo.confirma();
}

void escreveRelatorio(const std::string& saida) {
  // The sweep's heap, kept for its workers, goes back before the report
  // loads the plotting libraries: the run's peak stays the sweep's.
  ::malloc_trim(0);
  relatorio::escreve(saida);
}

// The summaries beside the tables: D2-Net's mma.csv and the posed pairs'
// pose.csv, both or neither.
void gravaResumos(const std::string& saida, const std::string& resultados) {
  const std::string mma = sweep::tabelaMMA(resultados), pose = sweep::tabelaPose(resultados, saida + "/poses.csv");
  tvm::SaidaSegura arquivoMMA(saida + "/mma.csv"), arquivoPose(saida + "/pose.csv");
  formats::escreveTexto(arquivoMMA, mma);
  formats::escreveTexto(arquivoPose, pose);
  tvm::SaidaSegura::confirmaJuntas({&arquivoMMA, &arquivoPose});
}

}  // namespace

void Varre(int argc, char** argv) {
  if (argc < 3) {
    const std::string det = "  det=" + algoritmos::nomes("det"), des = "  des=" + algoritmos::nomes("des"),
                      mat = "  mat=" + algoritmos::nomes("mat");
    tvm::falhaUso(
        {"Varre: Mede detectores x descritores x casamentos em todos os pares de um dataset",
         "Varre DATASET SAIDA [det=sift,...] [des=sift,...] [mat=nn,...] [seq=nome,...] [threads=N]",
         "      [ALG.OPCAO=valor ...] [feat=npz:METODO|h5:ARQ,...] [ext='COMANDO {imagem} {saida}']",
         "      [mat=h5:ARQ|npz:PASTA] [tamanho=10] [topk=K] [fora=seq,...|d2net] [medidas=todas|mma]",
         "      [erro=40 | dist=val] [px=3 ransac=3 comum=ambas|opencv] [curva=SEQ:K] [graficos=1] [shard=i/n]",
         "      [pose=ransac|magsac] [limiarpose=1|L1,L2,...|glue] [imagens=PASTA]",
         "  DATASET: pasta de sequencias (img1.ppm..,H1to2p.. ou 1.ppm..,H_1_2..; pares 1-k) ou uma sequencia;",
         "    ou cenas posadas (pares da lista): views.txt+pairs.txt (glue-factory), cameras.txt+images.txt+",
         "    pairs.txt (COLMAP) ou uma lista de pares do SuperGlue (imagens=: a pasta das suas imagens)",
         "  pose=, limiarpose=: estimador e limiares (pixels) da pose relativa; glue: 0.5 a 3, o melhor em pose.csv",
         det.c_str(), des.c_str(), mat.c_str(),
         "  ALG.OPCAO: opcao do algoritmo (quivelar Algoritmos lista todas), ex.: orb.nfeatures=1000 rihog.raio=30",
         "  feat=: caracteristicas de outro programa (npz: <imagem>.METODO de D2-Net; h5: do hloc); ext=: um",
         "    comando por imagem que escreve esse .npz; mat=h5:/npz: casamentos do hloc / do SuperGlue, como dados",
         "  tamanho=: diametro de keypoints sem tamanho; topk=: os K de maior score; fora=d2net: as 8 do D2-Net",
         "  medidas=mma: so o protocolo do D2-Net (casamentos e MMA; as outras colunas NA)",
         "  SAIDA: resultados.csv, tempos.csv, curvas.csv, poses.csv, mma.csv, pose.csv, graficos/, desenhos/",
         "    e relatorio.html; rodar de novo retoma o que faltou; desenhos=0: sem os desenhos do par de curva=",
         "  shard=i/n: so a fatia i (0 a n-1) das unidades, em SAIDA/fatias; sem shard=, a tarefa",
         "    SLURM_ARRAY_TASK_ID - SLURM_ARRAY_TASK_MIN de SLURM_ARRAY_TASK_COUNT; juntar com VarreJunta"});
  }
  const sweep::Plano plano = sweep::lePlano(argc, argv);
  const sweep::Resumo r = sweep::varre(plano);
  std::string resultados = plano.saida + "/resultados.csv";
  if (plano.fatiada) {
    resultados = plano.saida + "/" + sweep::nomeFatia(plano.fatia) + ".resultados.csv";
    std::printf("Fatia %d/%d: %s (%d unidades, %d calculadas agora)\n", plano.fatia.indice, plano.fatia.total,
                resultados.c_str(), r.unidades, r.refeitas);
  } else {
    std::fputs(sweep::tabelaResumo(resultados, plano.saida + "/poses.csv").c_str(), stdout);
    gravaResumos(plano.saida, resultados);
    std::printf("Resultados: %s (%d unidades, %d calculadas agora)\n", resultados.c_str(), r.unidades, r.refeitas);
    if (plano.graficos) {
      plots::desenhaGraficos(resultados, plano.saida + "/curvas.csv", plano.saida + "/graficos",
                             plano.saida + "/poses.csv");
      std::printf("Graficos: %s/graficos\n", plano.saida.c_str());
    }
    gravaRegistro(plano.saida, argc, argv, plano.dataset, static_cast<int>(plano.sequencias.size()));
    escreveRelatorio(plano.saida);
  }
  fechaComFalhas(r.falhas, r.unidades, resultados);
}

void VarreJunta(int argc, char** argv) {
  if (argc != 2)
    tvm::falhaUso({"VarreJunta: Junta as fatias de uma varredura (Varre shard=i/n) nas tabelas de uma so",
                   "VarreJunta SAIDA",
                   "  Confere que SAIDA/fatias tem cada fatia uma vez e completa; escreve resultados.csv,",
                   "  tempos.csv e curvas.csv iguais aos da varredura sem fatias, e graficos/"});
  const std::string saida = argv[1];
  const sweep::Juncao j = sweep::junta(saida);
  const std::string resultados = saida + "/resultados.csv";
  std::fputs(sweep::tabelaResumo(resultados, saida + "/poses.csv").c_str(), stdout);
  gravaResumos(saida, resultados);
  std::printf("Resultados: %s (%d fatias, %d unidades)\n", resultados.c_str(), j.fatias, j.unidades);
  if (j.graficos) {
    plots::desenhaGraficos(resultados, saida + "/curvas.csv", saida + "/graficos", saida + "/poses.csv");
    std::printf("Graficos: %s/graficos\n", saida.c_str());
  }
  gravaRegistro(saida, argc, argv, "(the shards' own)", 0);
  escreveRelatorio(saida);
  fechaComFalhas(j.falhas, j.unidades, resultados);
}
