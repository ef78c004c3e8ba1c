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

// Compared in this order; the first equal key wins.
const Comando comandos[] = {
    {"keysift", KeySift, "KeySift   - Gera keypoints usando SIFT"},
    {"keysurf", KeySurf, "KeySurf   - Gera keypoints usando SURF"},
    {"keyfast", KeyFast, "KeyFast   - Gera keypoints usando FAST"},
    {"keystar", KeyStar, "KeyStar   - Gera keypoints usando STAR"},
    {"keyrand", KeyRand, "KeyRand   - Gera keypoints aleatoriamente"},
    {"keycgsize", KeyCgSize, "KeyCgSize - Muda o tamanho dos keypoints por fator"},
    {"keygrande", KeyGrande, "KeyGrande - Seleciona n maiores keypoints"},
    {"keyrep", KeyRep, "KeyRep    - Calcula a repetibilidade de keypoints, tendo matriz 3x3"},
    {"keyangulo", KeyAngulo, "KeyAngulo - Reescreve os angulos na convencao de quem vai le-los"},
    {"keyshow", KeyShow, "KeyShow   - Mostra keypoints"},
    {"keymyshow", KeyMyShow, "KeyMyShow - Mostra keypoints sem chamar funcao OpenCV"},
    {"dessift", DesSift, "DesSift   - Calcula descriptors de SIFT (128)"},
    {"dessurf", DesSurf, "DesSurf   - Calcula descriptors de SURF (64)"},
    {"dessimp", DesSimp, "DesSimp   - Calcula descriptors de SIMPLE (127)"},
    {"desriff", DesRiff, "DesRiff   - Calcula descriptors de RIFF (100)"},
    {"desrihog", DesRihog, "DesRihog  - Calcula descriptors de RIHOG (80)"},
    {"desruhog", DesRUHOG, "DesRuhog  - Calcula descriptors de RUHOG (80) com aneis de tamanho variavel"},
    {"desforapro", DesForapro, "DesForapro- Calcula descriptors Forapro"},
    {"matnn", MatNN, "MatNN     - Acha casamentos de des1 para des2 usando 1-NN"},
    {"matratio", MatRatio, "MatRatio  - Acha casamentos de des1 para des2 onde 1st/2st>ratio ou acRate"},
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
    {"varre", Varre, "Varre     - Mede detectores x descritores x casamentos em todo um dataset"},
    {"varrejunta", VarreJunta, "VarreJunta- Junta as fatias de uma varredura feita em partes (shard=i/n)"},
    {"seqsint", SeqSint, "SeqSint   - Gera sequencia sintetica com transformacoes exatas"},
    {"graficos", Graficos, "Graficos  - Desenha MMA, repetibilidade e recall x 1-precisao de uma tabela"},
};

const size_t numeroComandos = sizeof(comandos) / sizeof(comandos[0]);

Ferramenta achaFerramenta(const char* palavraMinuscula) {
  for (const Comando& c : comandos)
    if (std::strcmp(c.chave, palavraMinuscula) == 0) return c.ferramenta;
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
