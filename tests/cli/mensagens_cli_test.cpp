// Every tool's usage block and its messages, byte for byte, on the real
// binary: one row per case, all run in the same kind of folder.
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

// stdout exactly `out`, stderr ending in the line(s) `err` (OpenCV may log a
// line of its own before ours).
struct CasoFalha {
  std::string nome;
  std::vector<std::string> args;
  std::string out, err;
  std::map<std::string, std::string> ambiente = {};  // as teste::roda takes it
};

// ruim.xml: k.xml with keypoint 1 of size 0; m.txt: wrong, right, right,
// wrong under h.txt; torto.xml: fewer keypoints than rows.
void criaCena(const teste::PastaTemp& p) {
  teste::salva(teste::textura(120, 120, 31), p / "a.png");
  teste::salva(teste::uniforme(60, 80, 0), p / "c.png");
  std::vector<cv::KeyPoint> k = {cv::KeyPoint(60, 60, 24, 30), cv::KeyPoint(30, 90, 16, 200),
                                 cv::KeyPoint(95, 25, 40, -1)};
  formats::impKeyPoints(p / "k.xml", k);
  k[1].size = 0;
  formats::impKeyPoints(p / "ruim.xml", k);

  teste::salvaMat33(cv::Matx33d::eye(), p / "h.txt");
  teste::escreveCasamentos(p / "m.txt", {40, 3, 3, 40});
  teste::escreveCasamentos(p / "vazio.txt", {});
  cv::Mat d(8, 8, CV_32F);
  cv::randu(d, 0, 1);
  const std::vector<cv::KeyPoint> k8(8, cv::KeyPoint(20, 30, 8));
  formats::impDescritores(p / "d1.xml", {k8.begin(), k8.begin() + 4}, d.rowRange(0, 4));
  formats::impDescritores(p / "d2.xml", k8, d);
  formats::impDescritores(p / "um.xml", {k8[0]}, d.row(0));
  formats::impDescritores(p / "vazio.xml", {}, cv::Mat());
  formats::impDescritores(p / "torto.xml", k, d);
  cv::Mat enorme(4, 8, CV_32F, cv::Scalar(1e20f));
  enorme.row(1) *= -1;
  formats::impDescritores(p / "enorme.xml", {k8.begin(), k8.begin() + 4}, enorme);
  formats::impDescritores(p / "flannEnorme.xml", {k8.begin(), k8.begin() + 4}, enorme * 3e18);
  k = {cv::KeyPoint(60, 60, 24, 30), cv::KeyPoint(30, 90, 0.2f, 200), cv::KeyPoint(95, 25, 40, -1)};
  formats::impKeyPoints(p / "pequeno.xml", k);
  k[1].size = 16;
  k[1].angle = 1e10f;
  formats::impKeyPoints(p / "angulo.xml", k);
  // Little to store, much to decode or parse.
  teste::salva(teste::uniforme(1000, 1200, 0), p / "g.png");
  teste::salva(teste::uniforme(1000, 1001, 0), p / "g.bmp");
  const std::string texto = "%YAML:1.0\n---\nkeypoints: [ 1., 2., 3., 4., 5., 0, -1 ]\n" + std::string(2000000, ' ');
  teste::escreveTexto(p / "grande.yml", texto);
  gzFile gz = gzopen((p / "grande.yml.gz").c_str(), "wb");
  gzwrite(gz, texto.data(), static_cast<unsigned>(texto.size()));
  gzclose(gz);
}

const char* const kLista =
    "< QUIVELAR: Teste dos descritores sift, surf, riff e simple de OpenCV, v1.20>\n"
    "_______________________________________________________________________________\n" "Programas:\n"
    "KeySift   - Gera keypoints usando SIFT\n" "KeySurf   - Gera keypoints usando SURF\n"
    "KeyFast   - Gera keypoints usando FAST\n" "KeyStar   - Gera keypoints usando STAR\n"
    "KeyRand   - Gera keypoints aleatoriamente\n" "KeyOrb    - Gera keypoints usando ORB (OpenCV)\n"
    "KeyBrisk  - Gera keypoints usando BRISK (OpenCV)\n" "KeyAkaze  - Gera keypoints usando AKAZE (OpenCV)\n"
    "KeyKaze   - Gera keypoints usando KAZE (OpenCV)\n" "KeyAgast  - Gera keypoints usando AGAST (OpenCV)\n"
    "KeyGftt   - Gera keypoints usando Shi-Tomasi (GFTT, OpenCV)\n"
    "KeyHarris - Gera keypoints usando Harris (GFTT, OpenCV)\n" "KeyMser   - Gera keypoints usando MSER (OpenCV)\n"
    "KeyBlob   - Gera keypoints usando SimpleBlobDetector (OpenCV)\n"
    "KeyCgSize - Muda o tamanho dos keypoints por fator\n"
    "KeyGrande - Seleciona n maiores keypoints\n"
    "KeyRep    - Calcula a repetibilidade de keypoints, tendo matriz 3x3\n"
    "KeyAngulo - Reescreve os angulos na convencao de quem vai le-los\n" "KeyShow   - Mostra keypoints\n"
    "KeyMyShow - Mostra keypoints sem chamar funcao OpenCV\n" "DesSift   - Calcula descriptors de SIFT (128)\n"
    "DesSurf   - Calcula descriptors de SURF (64)\n" "DesSimp   - Calcula descriptors de SIMPLE (127)\n"
    "DesRiff   - Calcula descriptors de RIFF (100)\n" "DesRihog  - Calcula descriptors de RIHOG (80)\n"
    "DesRuhog  - Calcula descriptors de RUHOG (80) com aneis de tamanho variavel\n"
    "DesForapro- Calcula descriptors Forapro\n" "DesOrb    - Calcula descriptors de ORB (256 bits, OpenCV)\n"
    "DesBrisk  - Calcula descriptors de BRISK (512 bits, OpenCV)\n"
    "DesAkaze  - Calcula descriptors de AKAZE (486 bits, OpenCV)\n"
    "DesKaze   - Calcula descriptors de KAZE (64, OpenCV)\n" "DesRootSift- Calcula descriptors de RootSIFT (128)\n"
    "MatNN     - Acha casamentos de des1 para des2 usando 1-NN\n"
    "MatRatio  - Acha casamentos de des1 para des2 onde 1st/2st>ratio ou acRate\n"
    "MatMutuo  - Acha casamentos mutuos (1-NN nos dois sentidos)\n"
    "MatShow   - Mostra os casamentos\n" "MatMyShow - Mostra os casamentos sem chamar funcao OpenCV\n"
    "MatROC    - Calcula a curva ROC de casamentos, tendo matriz 3x3\n"
    "MatAcert  - Calcula a curva de acertos de casamentos, tendo matriz 3x3\n"
    "MatScore  - Calcula matching score, MMA, AP e homografia, tendo matriz 3x3\n"
    "MatPose   - Mede a pose relativa estimada dos casamentos contra a verdadeira\n"
    "Matlab    - Exporta arquivo para Matlab tracar ROC, tendo matriz 3x3\n"
    "MatVis    - Visualiza um a um os casamentos, tendo matriz 3x3\n" "SobrROC   - Sobrepoe ROCs\n"
    "FiltMat   - Calcula a taxa de acertos de casamentos, tendo matriz 3x3. Filtra.\n"
    "Varre     - Mede detectores x descritores x casamentos em todo um dataset\n"
    "VarreJunta- Junta as fatias de uma varredura feita em partes (shard=i/n)\n"
    "SeqSint   - Gera sequencia sintetica com transformacoes exatas\n"
    "SintPose  - Gera pares 3D sinteticos com poses e profundidades exatas\n"
    "Graficos  - Desenha MMA, repetibilidade e recall x 1-precisao de uma tabela\n"
    "Relatorio - Refaz a pagina HTML do relatorio de uma varredura\n"
    "Algoritmos- Lista detectores, descritores e casadores, opcoes e padroes\n"
    "...............................................................................\n";

const std::string N = "Erro: Numero de argumentos invalido\n";
const std::string K3 = "KeyPoints k=3\n";
const std::string kRuim = "Erro: keypoint 1 com tamanho ou posicao invalida\n";
const std::string kVazio = "Erro: arquivo de casamentos vazio, nada a avaliar\n";
const std::string kEnorme = "Erro: descritores com valor 1e+20 grande demais em enorme.xml (com 8 colunas o maximo e 1.63048e+18)\n";
const std::string kPixels =
    "Erro: imagem g.png de 1200x1000 pixels passa do limite de 1 megapixels (QUIVELAR_MAX_MEGAPIXELS muda o limite)\n";
// g.png under QUIVELAR_MAX_MEMORIA_MB=15.
std::string memoria(const std::string& detector, int mb) {
  return "Erro: " + detector + " em g.png (1200x1000) precisaria de cerca de " + std::to_string(mb) +
         " MB, mais que os 15 MB de memoria disponivel (QUIVELAR_MAX_MEMORIA_MB muda o limite)\n";
}
std::string kGrande(const std::string& arquivo) {
  return "Erro: texto de " + arquivo + " passa do limite de 1 MB (QUIVELAR_MAX_STORE_MB muda o limite)\n";
}

const std::string uSift = "KeySift a.pgm a.xml [thresh edgethresh]\n  Ex: KeySift a.pgm a.xml 0.02 10\n";
const std::string uRand =
    "KeyRand a.pgm b.pgm mat33.txt n keyA.xml keyB.xml\n  [seed=7 diamMin=30 diamMax=40 pertPt=0 pertDiam=0 pertDeg=0]\n";
const std::string uCg = "KeyCgSize ent.xml sai.xml fator\n  Change key size por fator. Pode ter ent.xml=sai.xml\n";
const std::string uGrande =
    "KeyGrande ent.pgm ent.xml sai.xml n\n  Seleciona n maiores keypoints sem interseccao com canvas\n"
    "  Se n e' zero ou muito grande, apenas filtra os keypoints com inter\n";
const std::string uAngulo =
    "KeyAngulo ent.xml sai.xml [para=opencv de=ccw]\n"
    "  Reescreve os angulos na convencao de quem vai le-los, de 0 a 360. Pode ter ent.xml=sai.xml\n"
    "  opencv: sentido horario na tela (KeySift, KeySurf, DesSift)\n"
    "  ccw: anti-horario na tela, y para cima (KeyRand, DesSimp)\n"
    "  para= e de= aceitam o nome da ferramenta (para=DesSimp de=KeySift); sem de=, a outra\n";
const std::string uKeyShow =
    "keyshow a.pgm a.xml a.ppm [modo]\n  modo=r/n/R/N r=rich n=normal minuscula=vermelho maiuscula=multicor\n"
    "  Default=r\n";
const std::string uDesSift = "DesSift a.pgm DesA.xml [KeyA.xml]\n";
const std::string uSimp =
    "DesSimp a.pgm DesA.xml [key=KeyA.xml camadas=6 dgauss=11 modo=i/c]\n  Se keyA.xml nao for fornecido, usa-se SIFT.\n"
    "  camadas       = 1,  2,  3,  4,  5,   6\n  descriptorSize= 7, 19, 37, 61, 91, 127\n"
    "  dgauss deve ser impar. tnl=91.\n  modo=inplace ou copy (default).\n";
const std::string uRiff =
    "DesRiff a.pgm DesA.xml [key=KeyA.xml naneis=4 larguraAnel=10]\n  Se keyA.xml nao for fornecido, usa-se SIFT.\n";
const std::string uHog = " a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]\n"
                         "  Se keyA.xml nao for fornecido, usa-se SIFT.\n  bcinv=brightness-contrast invariant\n";
const std::string uForapro =
    "DesForapro a.pgm DesA.xml [key=KeyA.xml nrad=4 ncir=4 raio=40 radang=1 radmag=1 cirvet=1]\n"
    "  Se keyA.xml nao for fornecido, usa-se SIFT.\n";
const std::string uNN =
    "MatNN: Acha casamentos do des1 para des2 usando 1-NN\nMatNN des1.xml des2.xml match.txt [ brute | flann ]\n"
    "  match.txt estara ordenada pela distancia. menor=melhor\n  Default=brute\n";
const std::string uRatio =
    "MatRatio: Acha casamentos de des1 para des2 onde 1st/2nd>ratio\n"
    "MatRatio des1.xml des2.xml match.txt [ratio=val | acrate=val | ordem=r ou d | brute | flann ]\n"
    "  ratio: distancia_melhor/distancia_segundo_melhor. Limiariza pelo ratio e ordena por r/d\n"
    "  acrate: acceptance rate entre 0 e 1. Ordena por r/d e apaga.\n"
    "  ordem=r (ratio) ou d (distance).\n  Default: ratio=0.8 ordem=r brute\n";
const std::string uMatShow = "MatShow: Mostra os casamentos\nMatShow img1.pgm img2.pgm match.txt sai.png\n";
const std::string uMatMyShow =
    "MatMyShow: Mostra os casamentos sem chamar funcao OpenCV\nMatMyShow img1.pgm img2.pgm match.txt sai.png\n";
const std::string uMatVis =
    "MatVis: Mostra um a um os casamentos, tendo matriz 3x3\nMatVis img1.pgm img2.pgm match.txt mat33.txt [a/e/t]\n"
    "  Acerto: quando distancia(inv(mat33)*k2,k1)<=15\n  a: so acertos, e: so erros, t: todos(default)\n";
const std::string aperte = "Aperte ESC para sair\n";
const std::string acerto = "  Acerto: quando distancia(inv(mat33)*k2,k1)<=dist\n  dist default = 15\n";
const std::string uFilt =
    "FiltMat: Calcula taxa de erro/acerto de casamento, tendo matriz 3x3\n         Filtra casamentos errados\n"
    "FiltMat match.txt mat33.txt [dist] [filtmat.txt]\n" + acerto;
const std::string uRoc =
    "MatROC: Calcula a curva ROC de casamentos, tendo matriz 3x3\n"
    "MatROC match.txt mat33.txt saida.png [dist=val | cor=b,g,r | arquivo=nome.txt]\n" + acerto;
const std::string uAcert = "MatAcert: Curva de taxa de acerto, tendo matriz 3x3\n"
                           "MatAcert match.txt mat33.txt saida.png [dist=val | cor=b,g,r | eixox=a/r]\n" +
                           acerto + "  eixox=a: acceptance. eixox=r: rejection.\n";
const std::string uMatlab = "Matlab: Exporta arquivo Matlab para tracar ROC, tendo matriz 3x3\n"
                            "Matlab match.txt mat33.txt saida.mat [dist=val]\n" + acerto;


const CasoFalha kCasos[] = {
    // Dispatcher: no word gives the program list; unknown words are named lower-cased.
    {"SemPalavra", {}, kLista, N},
    {"Inexistente", {"KeyFoo"}, "", "Erro: Programa inexistente keyfoo\n"},
    {"InexistenteComBranco", {"keysift "}, "", "Erro: Programa inexistente keysift \n"},
    {"InexistenteVazio", {""}, "", "Erro: Programa inexistente \n"},
    // Usage blocks: too few and too many words.
    {"SiftSozinho", {"KeySift"}, uSift, N},
    {"SiftUmNumero", {"keysift", "a.png", "a.xml", "0.02"}, uSift, N},
    {"SiftTresNumeros", {"KeySift", "a.png", "a.xml", "1", "2", "3"}, uSift, N},
    {"SurfDoisNumeros", {"KeySurf", "a.png", "a.xml", "1", "2"}, "KeySurf a.pgm a.xml [thresh]\n  Ex: KeySurf a.pgm a.xml 8000\n", N},
    {"FastSemSaida", {"KEYFAST", "a.png"}, "KeyFast a.pgm a.xml [thresh]\n  Ex: KeyFast a.pgm a.xml 1\n", N},
    {"StarComLimiar", {"KeyStar", "a.png", "a.xml", "20"}, "KeyStar a.pgm a.xml\n  Ex: KeySift a.pgm a.xml\n", N},
    {"RandSeisPalavras", {"KeyRand", "a.png", "b.png", "m.txt", "5", "a.xml"}, uRand, N},
    {"CgSizeSemFator", {"KeyCgSize", "a.xml", "b.xml"}, uCg, N},
    {"CgSizeDemais", {"KeyCgSize", "a.xml", "b.xml", "2", "3"}, uCg, N},
    {"GrandeSemN", {"KeyGrande", "a.png", "a.xml", "b.xml"}, uGrande, N},
    {"AnguloSemSaida", {"KeyAngulo", "k.xml"}, uAngulo, N},
    {"KeyShowTres", {"keyshow", "a.png", "k.xml"}, uKeyShow, N},
    {"KeyShowSeis", {"KeyShow", "a.png", "k.xml", "s.png", "r", "x"}, uKeyShow, N},
    {"KeyMyShowCinco", {"keymyshow", "a.png", "k.xml", "s.png", "R"}, "keymyshow a.pgm a.xml a.ppm\n", N},
    {"DesSiftDois", {"DesSift", "a.png"}, uDesSift, N},
    {"DesSiftCinco", {"DesSift", "a.png", "d.xml", "k.xml", "x"}, uDesSift, N},
    {"DesSurfDois", {"dessurf", "a.png"}, "DesSurf a.pgm DesA.xml [KeyA.xml]\n", N},
    {"DesSimpDois", {"DesSimp", "a.png"}, uSimp, N},
    {"DesRiffUm", {"DesRiff"}, uRiff, N},
    {"DesRihogUm", {"DesRihog"}, "DesRihog" + uHog, N},
    {"DesRuhogDois", {"desruhog", "a.png"}, "DesRUHOG" + uHog, N},
    {"DesForaproDois", {"DesForapro", "a.png"}, uForapro, N},
    {"MatNNTres", {"MatNN", "d1.xml", "d2.xml"}, uNN, N},
    {"MatRatioUm", {"MatRatio"}, uRatio, N},
    {"MatShowQuatro", {"matshow", "a.png", "a.png", "m.txt"}, uMatShow, N},
    {"MatShowSeis", {"matshow", "a.png", "a.png", "m.txt", "s.png", "x"}, uMatShow, N},
    {"MatMyShowSeis", {"matmyshow", "a", "b", "c", "d", "e"}, uMatMyShow, N},
    {"MatVisQuatro", {"matvis", "a.png", "a.png", "m.txt"}, uMatVis, N},
    {"MatVisSete", {"matvis", "a.png", "a.png", "m.txt", "h.txt", "t", "x"}, uMatVis, N},
    {"FiltMatCurto", {"FiltMat", "m.txt"}, uFilt, N},
    {"FiltMatLongo", {"filtmat", "m", "h", "15", "f.txt", "x"}, uFilt, N},
    {"MatROCCurto", {"MatROC", "m.txt", "h.txt"}, uRoc, N},
    // Three options are one too many, by design.
    {"MatROCTresOpcoes", {"matroc", "m", "h", "s.png", "dist=3", "cor=0,0,0", "arquivo=a"}, uRoc, N},
    {"MatAcertCurto", {"MatAcert", "m", "h"}, uAcert, N},
    {"MatAcertLongo", {"matacert", "m", "h", "s.png", "a", "b", "c", "d"}, uAcert, N},
    {"MatlabCurto", {"Matlab", "m", "h"}, uMatlab, N},
    {"MatlabLongo", {"matlab", "m", "h", "s.mat", "dist=3", "x"}, uMatlab, N},
    {"SobrROC", {"SobrROC", "s.png"}, "SobrROC sai.ppm r1.png r2.png ...\n", N},
    {"RandOpcaoDesconhecida", {"KeyRand", "a.png", "a.png", "h.txt", "5", "ka.xml", "kb.xml", "foo=1"}, "", "Erro: Argumento invalido foo 1\n"},
    {"RandOpcaoRepetida", {"KeyRand", "a.png", "a.png", "h.txt", "5", "ka.xml", "kb.xml", "seed=1", "seed=2"}, "",
     "Erro: Argumento invalido seed 2\n"},
    {"RandDiametrosIguais", {"KeyRand", "a.png", "a.png", "h.txt", "5", "ka.xml", "kb.xml", "diamMax=30"}, "",
     "Erro: diamMax deve ser maior que diamMin, diamMin=30 diamMax=30\n"},
    {"RandNaoCabe", {"KeyRand", "a.png", "a.png", "h.txt", "5", "ka.xml", "kb.xml", "diamMin=200", "diamMax=210"}, "",
     "Erro: nenhum keypoint cabe na imagem apos 1000000 sorteios seguidos (diametros grandes demais ou "
     "transformacao leva tudo para fora)\n"},
    {"RandSaidaImpossivel", {"KeyRand", "a.png", "a.png", "h.txt", "5", "nada/ka.xml", "kb.xml"}, "", "Erro abertura arquivo nada/ka.xml\n"},
    {"CgSizeFatorInfinito", {"KeyCgSize", "k.xml", "s.xml", "1e300"}, "", "Erro: fator leva o tamanho a infinito 1e300\n"},
    {"GrandeNNegativo", {"KeyGrande", "a.png", "k.xml", "s.xml", "-1"}, "", "Erro: n invalido\n"},
    {"AnguloConvencao", {"KeyAngulo", "k.xml", "s.xml", "para=horario"}, "", "Erro: convencao de angulo desconhecida horario\n"},
    {"AnguloDeFerramentaSemAngulo", {"KeyAngulo", "k.xml", "s.xml", "de=KeyGrande"}, "",
     "Erro: convencao de angulo desconhecida KeyGrande\n"},
    {"AnguloOpcao", {"KeyAngulo", "k.xml", "s.xml", "para=ccw", "x=1"}, "", "Erro: Argumento invalido x 1\n"},
    {"AnguloStore", {"KeyAngulo", "nao.xml", "s.xml"}, "", "Erro abertura arquivo nao.xml\n"},
    {"SiftSemCamadas", {"KeySift", "a.png", "s.xml", "0.02", "0"}, "", "Erro: numero de camadas invalido 0\n"},
    {"SiftNumeroEnorme", {"KeySift", "a.png", "s.xml", "1e20", "3"}, "", "Erro: numero fora do intervalo 1e20\n"},
    {"FastLimiarReal", {"KeyFast", "a.png", "s.xml", "1.5"}, "", "Erro: numero inteiro invalido 1.5\n"},
    {"KeyShowModo", {"keyshow", "a.png", "k.xml", "s.png", "x"}, "", "Erro: Modo invalido\n"},
    {"KeyShowModoVazio", {"keyshow", "a.png", "k.xml", "s.png", ""}, "", "Erro: Modo invalido\n"},
    {"KeyShowStore", {"keyshow", "a.png", "nao.xml", "s.png"}, "", "Erro abertura arquivo nao.xml\n"},
    {"MatVisModo", {"matvis", "a.png", "a.png", "m.txt", "h.txt", "x"}, aperte, "Erro: Modo invalido\n"},
    {"MatVisSemDisplay", {"matvis", "a.png", "a.png", "m.txt", "h.txt"}, aperte,
     "Erro: MatVis precisa de uma tela grafica e a variavel DISPLAY nao esta definida\n", {{"DISPLAY", ""}}},
    {"MatVisTelaAusente", {"matvis", "a.png", "a.png", "m.txt", "h.txt"}, aperte,
     "Erro: nao foi possivel abrir a tela grafica DISPLAY=:9931\n", {{"DISPLAY", ":9931"}}},
    {"MatVisMatriz", {"matvis", "a.png", "a.png", "m.txt", "nao.txt", "x"}, aperte, "Erro arquivo inexistente nao.txt\n"},
    // Descriptor tools; the count line comes before the options are checked.
    {"SimpDgaussPar", {"DesSimp", "a.png", "d.xml", "key=k.xml", "dgauss=10"}, K3, "Erro: dGauss deve ser impar\n"},
    {"SimpModo", {"DesSimp", "a.png", "d.xml", "key=k.xml", "modo=x"}, K3, "Erro: modo invalido\n"},
    {"SimpOpcaoRepetida", {"DesSimp", "a.png", "d.xml", "key=k.xml", "camadas=6", "camadas=5"}, K3, "Erro: Argumento invalido camadas 5\n"},
    {"RiffLarguraTexto", {"DesRiff", "a.png", "d.xml", "key=k.xml", "larguraAnel=x"}, K3, "Erro: numero inteiro invalido x\n"},
    {"RihogOpcaoDesconhecida", {"desrihog", "a.png", "d.xml", "key=k.xml", "foo=1"}, K3, "Erro: Argumento invalido foo 1\n"},
    {"SimpKeyInexistente", {"DesSimp", "a.png", "d.xml", "key=nao.xml"}, "", "Erro abertura arquivo nao.xml\n"},
    // A keypoint of size 0 stops every descriptor that reads a store.
    {"SiftRuim", {"DesSift", "a.png", "d.xml", "ruim.xml"}, K3, kRuim},
    {"SimpRuim", {"DesSimp", "a.png", "d.xml", "key=ruim.xml"}, K3, kRuim},
    {"RiffRuim", {"DesRiff", "a.png", "d.xml", "key=ruim.xml"}, K3, kRuim},
    {"RuhogRuim", {"desruhog", "a.png", "d.xml", "key=ruim.xml"}, K3, kRuim},
    {"NNStoreInexistente", {"MatNN", "d1.xml", "falta.xml", "m2.txt"}, "", "Erro abertura arquivo falta.xml\n"},
    {"NNPalavra", {"MatNN", "d1.xml", "d2.xml", "m2.txt", "Flann"}, "", "Erro: Palavra desconhecida Flann\n"},
    {"NNVazio", {"MatNN", "d1.xml", "vazio.xml", "m2.txt"}, "", "Erro: nenhum descritor para casar em vazio.xml\n"},
    {"RatioTorto", {"MatRatio", "d1.xml", "torto.xml", "m2.txt"}, "", "Erro: numero de keypoints != descritores\n"},
    {"RatioUmSo", {"MatRatio", "d1.xml", "um.xml", "m2.txt", "flann"}, "",
     "Erro acRateTest inesperado: um.xml tem 1 descritor(es), a razao precisa de ao menos 2\n"},
    {"RatioVazioAcrate", {"MatRatio", "d1.xml", "vazio.xml", "m2.txt", "acrate=0.5", "flann"}, "",
     "Erro acRateTest inesperado: vazio.xml tem 0 descritor(es), a razao precisa de ao menos 2\n"},
    // Squared distances of such values overflow a float.
    {"NNEnorme", {"MatNN", "d1.xml", "enorme.xml", "m2.txt"}, "", kEnorme},
    {"RatioFlannEnorme", {"MatRatio", "flannEnorme.xml", "d2.xml", "m2.txt", "flann"}, "",
     "Erro: descritores com valor 3e+38 grande demais em flannEnorme.xml (com 8 colunas o maximo e 1.63048e+18)\n"},
    // What OpenCV's SIFT descriptor cannot take.
    {"SiftPequeno", {"DesSift", "a.png", "d.xml", "pequeno.xml"}, K3,
     "Erro: keypoint 1 de pequeno.xml com tamanho 0.2 pequeno demais para SIFT (minimo 1.03709 na oitava 0)\n"},
    {"SiftAngulo", {"DesSift", "a.png", "d.xml", "angulo.xml"}, K3,
     "Erro: keypoint 1 de angulo.xml com angulo 1e+10 fora de -36000..36000 graus\n"},
    {"RandDiametroNegativo", {"KeyRand", "a.png", "a.png", "h.txt", "5", "ka.xml", "kb.xml", "diamMin=-100", "diamMax=-50"}, "",
     "Erro: diamMin deve ser ao menos 1, diamMin=-100\n"},
    // Limits on what an input may make a tool take.
    {"PixelsDemais", {"KeySift", "g.png", "s.xml"}, "", kPixels, {{"QUIVELAR_MAX_MEGAPIXELS", "1"}}},
    // A format read through imread: the same limit, before it decodes.
    {"PixelsDemaisBmp", {"KeySift", "g.bmp", "s.xml"}, "", "Erro abertura arquivo g.bmp\n", {{"QUIVELAR_MAX_MEGAPIXELS", "1"}}},
    {"PixelsDemaisShow", {"KeyMyShow", "g.png", "k.xml", "s.png"}, "", kPixels, {{"QUIVELAR_MAX_MEGAPIXELS", "1"}}},
    {"LimiteInvalido", {"KeySift", "a.png", "s.xml"}, "",
     "Erro: variavel de ambiente QUIVELAR_MAX_MEGAPIXELS invalida: '1e3' (deve ser um inteiro positivo)\n",
     {{"QUIVELAR_MAX_MEGAPIXELS", "1e3"}}},
    {"MemoriaInvalida", {"KeyFast", "a.png", "s.xml"}, "",
     "Erro: variavel de ambiente QUIVELAR_MAX_MEMORIA_MB invalida: '0' (deve ser um inteiro positivo)\n",
     {{"QUIVELAR_MAX_MEMORIA_MB", "0"}}},
    {"MemoriaSift", {"KeySift", "g.png", "s.xml"}, "", memoria("SIFT", 294), {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"MemoriaSurf", {"KeySurf", "g.png", "s.xml"}, "", memoria("SURF", 53), {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"MemoriaStar", {"KeyStar", "g.png", "s.xml"}, "", memoria("STAR", 38), {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"MemoriaFast", {"KeyFast", "g.png", "s.xml"}, "", memoria("FAST", 24), {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"MemoriaDesSift", {"DesSift", "g.png", "d.xml"}, "", memoria("SIFT", 294), {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"MemoriaDesSurf", {"DesSurf", "g.png", "d.xml"}, "", memoria("SURF", 53), {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"MemoriaDesRihog", {"DesRihog", "g.png", "d.xml", "naneis=5"}, "", memoria("SIFT", 294),
     {{"QUIVELAR_MAX_MEMORIA_MB", "15"}}},
    {"StoreGrande", {"KeyCgSize", "grande.yml", "s.xml", "2"}, "", kGrande("grande.yml"), {{"QUIVELAR_MAX_STORE_MB", "1"}}},
    {"StoreGzGrande", {"KeyCgSize", "grande.yml.gz", "s.xml", "2"}, "", kGrande("grande.yml.gz"),
     {{"QUIVELAR_MAX_STORE_MB", "1"}}},
    {"ROCVazio", {"MatROC", "vazio.txt", "h.txt", "r.png"}, "", kVazio},
    {"AcertVazio", {"MatAcert", "vazio.txt", "h.txt", "a2.png"}, "", kVazio},
    {"ROCDistZero", {"MatROC", "m.txt", "h.txt", "r.png", "dist=0"}, "", "Erro: dist fora do intervalo\n"},
    {"AcertEixo", {"MatAcert", "m.txt", "h.txt", "a2.png", "eixox=x"}, "", "Erro: eixox deve ser a ou r\n"},
    {"ROCPalavra", {"MatROC", "m.txt", "h.txt", "r.png", "eixox=a"}, "", "Erro: Palavra desconhecida eixox\n"},
    {"MatlabPalavra", {"Matlab", "m.txt", "h.txt", "o.mat", "cor=1,2,3"}, "", "Erro: Palavra desconhecida cor\n"},
    {"MatlabSemPasta", {"Matlab", "m.txt", "h.txt", "nao/o.mat"}, "", "Erro abertura nao/o.mat\n"},
    {"AcertMatrizInexistente", {"MatAcert", "m.txt", "x.txt", "a2.png"}, "", "Erro arquivo inexistente x.txt\n"},
    {"FiltCasamentosInexistentes", {"FiltMat", "x.txt", "h.txt"}, "", "Erro arquivo inexistente x.txt\n"},
    {"SobrTamanhos", {"SobrROC", "s.png", "a.png", "c.png"}, "", "Erro: Imagens com tamanhos diferentes\n"},
    {"SobrNenhum", {"SobrROC", "s.png", "z*.png"}, "", "Erro abertura arquivo z*.png\n"},
};

void PrintTo(const CasoFalha& c, std::ostream* os) { *os << testing::PrintToString(c.args); }

class Mensagens : public testing::TestWithParam<CasoFalha> {};

TEST_P(Mensagens, SaidaErroEStatusExatos) {
  const CasoFalha& c = GetParam();
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::vector<std::string> antes = pasta.conteudo();
  const teste::Execucao e = teste::roda(c.args, pasta.caminho(), 60, c.ambiente);
  EXPECT_EQ(e.out, c.out);
  const std::string err = "\n" + e.err;  // our lines whole, after any of OpenCV's
  EXPECT_EQ(err.substr(err.size() - std::min(err.size(), c.err.size() + 1)), "\n" + c.err) << e.err;
  EXPECT_EQ(std::make_pair(e.status, e.sinal), std::make_pair(1, 0));  // status 1, no signal
  EXPECT_EQ(pasta.conteudo(), antes);
}

INSTANTIATE_TEST_SUITE_P(Ferramentas, Mensagens, testing::ValuesIn(kCasos),
                         [](const testing::TestParamInfo<CasoFalha>& i) { return i.param.nome; });

// The table of algorithms in docs/ is the program's, as scripts/readme-algoritmos writes it.
TEST(Documentos, TabelaDeAlgoritmosDosDocsEDoPrograma) {
  const std::string doc = teste::leTexto(std::string(QUIVELAR_FONTE) + "/docs/algorithms.md");
  const std::string inicio = "<!-- algoritmos -->\n", fim = "<!-- /algoritmos -->";
  const size_t a = doc.find(inicio), b = doc.find(fim);
  ASSERT_NE(a, std::string::npos);
  ASSERT_NE(b, std::string::npos);
  teste::PastaTemp p;
  EXPECT_EQ(doc.substr(a + inicio.size(), b - a - inicio.size()), teste::rodaBem({"Algoritmos"}, p.caminho()))
      << "scripts/readme-algoritmos refaz a copia de docs/algorithms.md";
}

}  // namespace
