#include "app/comandos.hpp"

#include <cstdio>
#include <cstring>

// Compared in this order; the first equal key wins.
const Comando comandos[] = {
    {"keysift", nullptr, "KeySift   - Gera keypoints usando SIFT"},
    {"keysurf", nullptr, "KeySurf   - Gera keypoints usando SURF"},
    {"keyfast", nullptr, "KeyFast   - Gera keypoints usando FAST"},
    {"keystar", nullptr, "KeyStar   - Gera keypoints usando STAR"},
    {"keyrand", nullptr, "KeyRand   - Gera keypoints aleatoriamente"},
    {"keycgsize", nullptr, "KeyCgSize - Muda o tamanho dos keypoints por fator"},
    {"keygrande", nullptr, "KeyGrande - Seleciona n maiores keypoints"},
    {"keyshow", nullptr, "KeyShow   - Mostra keypoints"},
    {"keymyshow", nullptr, "KeyMyShow - Mostra keypoints sem chamar funcao OpenCV"},
    {"dessift", nullptr, "DesSift   - Calcula descriptors de SIFT (128)"},
    {"dessurf", nullptr, "DesSurf   - Calcula descriptors de SURF (64)"},
    {"dessimp", nullptr, "DesSimp   - Calcula descriptors de SIMPLE (127)"},
    {"desriff", nullptr, "DesRiff   - Calcula descriptors de RIFF (100)"},
    {"desrihog", nullptr, "DesRihog  - Calcula descriptors de RIHOG (80)"},
    {"desruhog", nullptr, "DesRuhog  - Calcula descriptors de RUHOG (80) com aneis de tamanho variavel"},
    {"desforapro", nullptr, "DesForapro- Calcula descriptors Forapro"},
    {"matnn", nullptr, "MatNN     - Acha casamentos de des1 para des2 usando 1-NN"},
    {"matratio", nullptr, "MatRatio  - Acha casamentos de des1 para des2 onde 1st/2st>ratio ou acRate"},
    {"matshow", nullptr, "MatShow   - Mostra os casamentos"},
    {"matmyshow", nullptr, "MatMyShow - Mostra os casamentos sem chamar funcao OpenCV"},
    {"matroc", nullptr, "MatROC    - Calcula a curva ROC de casamentos, tendo matriz 3x3"},
    {"matacert", nullptr, "MatAcert  - Calcula a curva de acertos de casamentos, tendo matriz 3x3"},
    {"matlab", nullptr, "Matlab    - Exporta arquivo para Matlab tracar ROC, tendo matriz 3x3"},
    {"matvis", nullptr, "MatVis    - Visualiza um a um os casamentos, tendo matriz 3x3"},
    {"sobrroc", nullptr, "SobrROC   - Sobrepoe ROCs"},
    {"filtmat", nullptr, "FiltMat   - Calcula a taxa de acertos de casamentos, tendo matriz 3x3. Filtra."},
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
