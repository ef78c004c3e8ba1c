// The entry point with no word: banner and program list, byte for byte
// (unknown words are in mensagens_cli_test).
#include "tests/common/cli.hpp"

#include <gtest/gtest.h>

namespace {

const char* const kListaEsperada =
    "< QUIVELAR: Teste dos descritores sift, surf, riff e simple de OpenCV, v1.20>\n"
    "_______________________________________________________________________________\n"
    "Programas:\n"
    "KeySift   - Gera keypoints usando SIFT\n"
    "KeySurf   - Gera keypoints usando SURF\n"
    "KeyFast   - Gera keypoints usando FAST\n"
    "KeyStar   - Gera keypoints usando STAR\n"
    "KeyRand   - Gera keypoints aleatoriamente\n"
    "KeyCgSize - Muda o tamanho dos keypoints por fator\n"
    "KeyGrande - Seleciona n maiores keypoints\n"
    "KeyShow   - Mostra keypoints\n"
    "KeyMyShow - Mostra keypoints sem chamar funcao OpenCV\n"
    "DesSift   - Calcula descriptors de SIFT (128)\n"
    "DesSurf   - Calcula descriptors de SURF (64)\n"
    "DesSimp   - Calcula descriptors de SIMPLE (127)\n"
    "DesRiff   - Calcula descriptors de RIFF (100)\n"
    "DesRihog  - Calcula descriptors de RIHOG (80)\n"
    "DesRuhog  - Calcula descriptors de RUHOG (80) com aneis de tamanho variavel\n"
    "DesForapro- Calcula descriptors Forapro\n"
    "MatNN     - Acha casamentos de des1 para des2 usando 1-NN\n"
    "MatRatio  - Acha casamentos de des1 para des2 onde 1st/2st>ratio ou acRate\n"
    "MatShow   - Mostra os casamentos\n"
    "MatMyShow - Mostra os casamentos sem chamar funcao OpenCV\n"
    "MatROC    - Calcula a curva ROC de casamentos, tendo matriz 3x3\n"
    "MatAcert  - Calcula a curva de acertos de casamentos, tendo matriz 3x3\n"
    "Matlab    - Exporta arquivo para Matlab tracar ROC, tendo matriz 3x3\n"
    "MatVis    - Visualiza um a um os casamentos, tendo matriz 3x3\n"
    "SobrROC   - Sobrepoe ROCs\n"
    "FiltMat   - Calcula a taxa de acertos de casamentos, tendo matriz 3x3. Filtra.\n"
    "...............................................................................\n";

TEST(Entrada, NoWordPrintsBannerAndListAndIsNotTimed) {
  const teste::Execucao e = teste::roda({});
  EXPECT_EQ(e.out, kListaEsperada);
  EXPECT_EQ(e.err, "Erro: Numero de argumentos invalido\n");
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.sinal, 0);
}

}  // namespace
