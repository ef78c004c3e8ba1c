#include "app/comandos.hpp"

#include "algoritmos/tabela.hpp"
#include "algoritmos/tools.hpp"
#include "descriptors/tools.hpp"
#include "display/tools.hpp"
#include "datasets/tools.hpp"
#include "evaluation/tools.hpp"
#include "keypoints/tools.hpp"
#include "matching/tools.hpp"
#include "plots/graficos.hpp"
#include "relatorio/relatorio.hpp"
#include "support/argumentos.hpp"
#include "sweep/tools.hpp"

#include <cstdio>

// Compared in this order; the first equal key wins. The help rows are texts
// users know by heart and stay as they are, MatRatio's "1st/2st>ratio"
// included: it keeps the matches whose ratio is below the threshold.
//
// The memory lever (support/memoria.hpp, last field) only where it paid;
// the algorithm tools' figures are beside their rows in the table. A single
// malloc arena, once set for every tool, gained nowhere and made the
// descriptor workers' allocations take turns on one lock: it is gone.
namespace {

// The rows of an algorithm kind, each with its hand-written tool or the
// row tool.
template <typename Linha>
void adiciona(std::vector<Comando>& c, const std::vector<Linha>& linhas, Ferramenta daTabela) {
  for (const Linha& l : linhas)
    c.push_back({tvm::minuscula(l.ferramenta), l.propria ? l.propria : daTabela, l.ajuda, l.heap});
}

}  // namespace

const std::vector<Comando>& comandos() {
  static const std::vector<Comando> lista = [] {
    std::vector<Comando> c;
    adiciona(c, algoritmos::detectores(), DetectorDaTabela);
    c.insert(c.end(), {
        {"keycgsize", KeyCgSize, "KeyCgSize - Muda o tamanho dos keypoints por fator"},
        {"keygrande", KeyGrande, "KeyGrande - Seleciona n maiores keypoints"},
        {"keyrep", KeyRep, "KeyRep    - Calcula a repetibilidade de keypoints, tendo matriz 3x3"},
        {"keyangulo", KeyAngulo, "KeyAngulo - Reescreve os angulos na convencao de quem vai le-los"},
        {"keyshow", KeyShow, "KeyShow   - Mostra keypoints"},
        {"keymyshow", KeyMyShow, "KeyMyShow - Mostra keypoints sem chamar funcao OpenCV"},
    });
    adiciona(c, algoritmos::descritores(), DescritorDaTabela);
    adiciona(c, algoritmos::casadores(), nullptr);
    c.insert(c.end(), {
        {"matshow", MatShow, "MatShow   - Mostra os casamentos"},
        {"matmyshow", MatMyShow, "MatMyShow - Mostra os casamentos sem chamar funcao OpenCV"},
        {"matroc", MatROC, "MatROC    - Calcula a curva ROC de casamentos, tendo matriz 3x3"},
        {"matacert", MatAcert, "MatAcert  - Calcula a curva de acertos de casamentos, tendo matriz 3x3"},
        {"matscore", MatScore, "MatScore  - Calcula matching score, MMA, AP e homografia, tendo matriz 3x3"},
        {"matpose", MatPose, "MatPose   - Mede a pose relativa estimada dos casamentos contra a verdadeira"},
        {"matlab", Matlab, "Matlab    - Exporta arquivo para Matlab tracar ROC, tendo matriz 3x3"},
        {"matvis", MatVis, "MatVis    - Visualiza um a um os casamentos, tendo matriz 3x3"},
        {"sobrroc", SobrROC, "SobrROC   - Sobrepoe ROCs"},
        {"filtmat", FiltMat, "FiltMat   - Calcula a taxa de acertos de casamentos, tendo matriz 3x3. Filtra."},
        // The workers' allocations are few and large (SIFT's pyramids): with
        // one arena the second worker reuses the heap the first grew instead
        // of faulting in 64 MiB heaps of its own. SIFT/SIFT/1-NN on graf and
        // two synthetic sequences, 2 threads: 1.75 -> 1.61 s, 32300 -> 1500
        // faults.
        {"varre", Varre, "Varre     - Mede detectores x descritores x casamentos em todo um dataset",
         tvm::Heap::retidoUmaArena},
        {"varrejunta", VarreJunta, "VarreJunta- Junta as fatias de uma varredura feita em partes (shard=i/n)"},
        {"seqsint", SeqSint, "SeqSint   - Gera sequencia sintetica com transformacoes exatas"},
        {"sintpose", SintPose, "SintPose  - Gera pares 3D sinteticos com poses e profundidades exatas"},
        {"graficos", Graficos, "Graficos  - Desenha MMA, repetibilidade e recall x 1-precisao de uma tabela"},
        {"relatorio", Relatorio, "Relatorio - Refaz a pagina HTML do relatorio de uma varredura"},
        {"algoritmos", Algoritmos, "Algoritmos- Lista detectores, descritores e casadores, opcoes e padroes"},
    });
    return c;
  }();
  return lista;
}

const Comando* achaComando(const char* palavraMinuscula) {
  for (const Comando& c : comandos())
    if (c.chave == palavraMinuscula) return &c;
  return nullptr;
}

void imprimeBanner() {
  std::puts("< QUIVELAR: Teste dos descritores sift, surf, riff e simple de OpenCV, v1.20>");
  std::puts("_______________________________________________________________________________");
}

void imprimeProgramas() {
  std::puts("Programas:");
  for (const Comando& c : comandos()) std::puts(c.ajuda);
  std::puts("...............................................................................");
}
