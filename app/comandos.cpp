#include "app/comandos.hpp"

#include "descriptors/tools.hpp"
#include "display/tools.hpp"
#include "datasets/tools.hpp"
#include "evaluation/tools.hpp"
#include "keypoints/tools.hpp"
#include "matching/tools.hpp"
#include "plots/graficos.hpp"
#include "sweep/tools.hpp"

#include <cstdio>
#include <cstring>

// Compared in this order; the first equal key wins. The help rows are texts
// users know by heart and stay as they are, MatRatio's "1st/2st>ratio"
// included: it keeps the matches whose ratio is below the threshold.
//
// The memory lever (support/memoria.hpp, last field) only where it paid: CPU
// time (user + sys, median of 15 runs) and minor page faults on
// data/img1.png and the demo's stores, without -> with the lever. The other
// tools gained nothing measurable (KeyRep, MatMutuo and MatScore came later
// and are not measured yet). A single malloc arena, once set for every
// tool, gained nowhere either and made the descriptor workers' allocations
// take turns on one lock: it is gone.
const Comando comandos[] = {
    // 151 -> 102 ms, 32762 -> 4644 faults
    {"keysift", KeySift, "KeySift   - Gera keypoints usando SIFT", tvm::Heap::retido},
    // 81 -> 73 ms, 5249 -> 913 faults
    {"keysurf", KeySurf, "KeySurf   - Gera keypoints usando SURF", tvm::Heap::retido},
    {"keyfast", KeyFast, "KeyFast   - Gera keypoints usando FAST"},
    // 46 -> 42 ms, 2886 -> 835 faults
    {"keystar", KeyStar, "KeyStar   - Gera keypoints usando STAR", tvm::Heap::retido},
    {"keyrand", KeyRand, "KeyRand   - Gera keypoints aleatoriamente"},
    {"keycgsize", KeyCgSize, "KeyCgSize - Muda o tamanho dos keypoints por fator"},
    {"keygrande", KeyGrande, "KeyGrande - Seleciona n maiores keypoints"},
    {"keyrep", KeyRep, "KeyRep    - Calcula a repetibilidade de keypoints, tendo matriz 3x3"},
    {"keyangulo", KeyAngulo, "KeyAngulo - Reescreve os angulos na convencao de quem vai le-los"},
    {"keyshow", KeyShow, "KeyShow   - Mostra keypoints"},
    {"keymyshow", KeyMyShow, "KeyMyShow - Mostra keypoints sem chamar funcao OpenCV"},
    // 822 -> 793 ms, 20718 -> 1901 faults
    {"dessift", DesSift, "DesSift   - Calcula descriptors de SIFT (128)", tvm::Heap::retido},
    {"dessurf", DesSurf, "DesSurf   - Calcula descriptors de SURF (64)"},
    {"dessimp", DesSimp, "DesSimp   - Calcula descriptors de SIMPLE (127)"},
    {"desriff", DesRiff, "DesRiff   - Calcula descriptors de RIFF (100)"},
    {"desrihog", DesRihog, "DesRihog  - Calcula descriptors de RIHOG (80)"},
    {"desruhog", DesRUHOG, "DesRuhog  - Calcula descriptors de RUHOG (80) com aneis de tamanho variavel"},
    {"desforapro", DesForapro, "DesForapro- Calcula descriptors Forapro"},
    // 75 -> 70 ms, 3220 -> 994 faults
    {"matnn", MatNN, "MatNN     - Acha casamentos de des1 para des2 usando 1-NN", tvm::Heap::retido},
    // 71 -> 66 ms, 3226 -> 900 faults
    {"matratio", MatRatio, "MatRatio  - Acha casamentos de des1 para des2 onde 1st/2st>ratio ou acRate",
     tvm::Heap::retido},
    {"matmutuo", MatMutuo, "MatMutuo  - Acha casamentos mutuos (1-NN nos dois sentidos)"},
    {"matshow", MatShow, "MatShow   - Mostra os casamentos"},
    {"matmyshow", MatMyShow, "MatMyShow - Mostra os casamentos sem chamar funcao OpenCV"},
    {"matroc", MatROC, "MatROC    - Calcula a curva ROC de casamentos, tendo matriz 3x3"},
    {"matacert", MatAcert, "MatAcert  - Calcula a curva de acertos de casamentos, tendo matriz 3x3"},
    {"matscore", MatScore, "MatScore  - Calcula matching score, MMA, AP e homografia, tendo matriz 3x3"},
    {"matlab", Matlab, "Matlab    - Exporta arquivo para Matlab tracar ROC, tendo matriz 3x3"},
    {"matvis", MatVis, "MatVis    - Visualiza um a um os casamentos, tendo matriz 3x3"},
    {"sobrroc", SobrROC, "SobrROC   - Sobrepoe ROCs"},
    {"filtmat", FiltMat, "FiltMat   - Calcula a taxa de acertos de casamentos, tendo matriz 3x3. Filtra."},
    // The workers' allocations are few and large (SIFT's pyramids): with one
    // arena the second worker reuses the heap the first grew instead of
    // faulting in 64 MiB heaps of its own. SIFT/SIFT/1-NN on graf and two
    // synthetic sequences, 2 threads: 1.75 -> 1.61 s, 32300 -> 1500 faults.
    {"varre", Varre, "Varre     - Mede detectores x descritores x casamentos em todo um dataset",
     tvm::Heap::retidoUmaArena},
    {"varrejunta", VarreJunta, "VarreJunta- Junta as fatias de uma varredura feita em partes (shard=i/n)"},
    {"seqsint", SeqSint, "SeqSint   - Gera sequencia sintetica com transformacoes exatas"},
    {"graficos", Graficos, "Graficos  - Desenha MMA, repetibilidade e recall x 1-precisao de uma tabela"},
};

const size_t numeroComandos = sizeof(comandos) / sizeof(comandos[0]);

const Comando* achaComando(const char* palavraMinuscula) {
  for (const Comando& c : comandos)
    if (std::strcmp(c.chave, palavraMinuscula) == 0) return &c;
  return nullptr;
}

void imprimeBanner() {
  std::puts("< QUIVELAR: Teste dos descritores sift, surf, riff e simple de OpenCV, v1.20>");
  std::puts("_______________________________________________________________________________");
}

void imprimeProgramas() {
  std::puts("Programas:");
  for (const Comando& c : comandos) std::puts(c.ajuda);
  std::puts("...............................................................................");
}
