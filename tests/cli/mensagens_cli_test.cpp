// Every tool's usage block and its messages, byte for byte, on the real
// binary: one row per case, all run in the same kind of folder.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using teste::CasoFalha;

// a.png: 120x120 texture; k.xml: 3 keypoints,
// ruim.xml the same with keypoint 1 of size 0; h.txt: identity; m.txt: 4
// matches (wrong, right, right, wrong under h.txt), vazio.txt: none;
// d1/d2.xml: descriptors, um.xml one, vazio.xml none, torto.xml more keypoints
// than rows.
void criaCena(const teste::PastaTemp& p) {
  teste::salva(teste::textura(120, 120, 31), p / "a.png");
  std::vector<cv::KeyPoint> k = {cv::KeyPoint(60, 60, 24, 30), cv::KeyPoint(30, 90, 16, 200),
                                 cv::KeyPoint(95, 25, 40, -1)};
  formats::impKeyPoints(p / "k.xml", k);
  k[1].size = 0;
  formats::impKeyPoints(p / "ruim.xml", k);
  teste::salvaMat33(cv::Matx33d::eye(), p / "h.txt");
  std::vector<cv::KeyPoint> k1, k2;
  std::vector<cv::DMatch> m;
  const float desvio[] = {40, 3, 3, 40};
  for (int i = 0; i < 4; ++i) {
    k1.emplace_back(20.0f + 10 * i, 30.0f, 8.0f);
    k2.emplace_back(20.0f + 10 * i + desvio[i], 30.0f, 8.0f);
    m.emplace_back(i, i, float(i));
  }
  formats::impMatch(m, k1, k2, p / "m.txt");
  formats::impMatch({}, k1, k2, p / "vazio.txt");
  cv::Mat d1(4, 8, CV_32F), d2(8, 8, CV_32F);
  cv::randu(d1, 0, 1);
  cv::randu(d2, 0, 1);
  formats::impDescritores(p / "d1.xml", k1, d1);
  formats::impDescritores(p / "d2.xml", {k1[0], k1[1], k1[2], k1[3], k2[0], k2[1], k2[2], k2[3]}, d2);
  formats::impDescritores(p / "um.xml", {k2[0]}, d2.row(0));
  formats::impDescritores(p / "vazio.xml", {}, cv::Mat());
  formats::impDescritores(p / "torto.xml", k2, d2);
}

const std::string N = "Erro: Numero de argumentos invalido\n";
const std::string K3 = "KeyPoints k=3\n";

const std::string uSift = "KeySift a.pgm a.xml [thresh edgethresh]\n  Ex: KeySift a.pgm a.xml 0.02 10\n";
const std::string uSurf = "KeySurf a.pgm a.xml [thresh]\n  Ex: KeySurf a.pgm a.xml 8000\n";
const std::string uFast = "KeyFast a.pgm a.xml [thresh]\n  Ex: KeyFast a.pgm a.xml 1\n";
const std::string uStar = "KeyStar a.pgm a.xml\n  Ex: KeySift a.pgm a.xml\n";
const std::string uRand =
    "KeyRand a.pgm b.pgm mat33.txt n keyA.xml keyB.xml\n  [seed=7 diamMin=30 diamMax=40 pertPt=0 pertDiam=0 pertDeg=0]\n";
const std::string uCg = "KeyCgSize ent.xml sai.xml fator\n  Change key size por fator. Pode ter ent.xml=sai.xml\n";
const std::string uGrande =
    "KeyGrande ent.pgm ent.xml sai.xml n\n  Seleciona n maiores keypoints sem interseccao com canvas\n"
    "  Se n e' zero ou muito grande, apenas filtra os keypoints com inter\n";
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

const std::vector<std::string> kRand = {"KeyRand", "a.png", "a.png", "h.txt", "5", "ka.xml", "kb.xml"};
std::vector<std::string> mais(std::vector<std::string> base, std::initializer_list<std::string> extra) {
  base.insert(base.end(), extra);
  return base;
}

const CasoFalha kCasos[] = {
    // Dispatcher: unknown words, named lower-cased.
    {"Inexistente", {"KeyFoo"}, "", "Erro: Programa inexistente keyfoo\n"},
    {"InexistenteComBranco", {"keysift "}, "", "Erro: Programa inexistente keysift \n"},
    {"InexistenteVazio", {""}, "", "Erro: Programa inexistente \n"},
    // Usage blocks: too few and too many words.
    {"SiftSozinho", {"KeySift"}, uSift, N},
    {"SiftUmNumero", {"keysift", "a.png", "a.xml", "0.02"}, uSift, N},
    {"SiftTresNumeros", {"KeySift", "a.png", "a.xml", "1", "2", "3"}, uSift, N},
    {"SurfDoisNumeros", {"KeySurf", "a.png", "a.xml", "1", "2"}, uSurf, N},
    {"FastSemSaida", {"KEYFAST", "a.png"}, uFast, N},
    {"StarComLimiar", {"KeyStar", "a.png", "a.xml", "20"}, uStar, N},
    {"RandSeisPalavras", {"KeyRand", "a.png", "b.png", "m.txt", "5", "a.xml"}, uRand, N},
    {"CgSizeSemFator", {"KeyCgSize", "a.xml", "b.xml"}, uCg, N},
    {"CgSizeDemais", {"KeyCgSize", "a.xml", "b.xml", "2", "3"}, uCg, N},
    {"GrandeSemN", {"KeyGrande", "a.png", "a.xml", "b.xml"}, uGrande, N},
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
    // Keypoint tools.
    {"RandOpcaoDesconhecida", mais(kRand, {"foo=1"}), "", "Erro: Argumento invalido foo 1\n"},
    {"RandOpcaoRepetida", mais(kRand, {"seed=1", "seed=2"}), "", "Erro: Argumento invalido seed 2\n"},
    {"RandDiametrosIguais", mais(kRand, {"diamMax=30"}), "",
     "Erro: diamMax deve ser maior que diamMin, diamMin=30 diamMax=30\n"},
    {"RandNaoCabe", mais(kRand, {"diamMin=200", "diamMax=210"}), "",
     "Erro: nenhum keypoint cabe na imagem apos 1000000 sorteios seguidos (diametros grandes demais ou "
     "transformacao leva tudo para fora)\n"},
    {"RandSemMatriz", {"KeyRand", "a.png", "a.png", "x.txt", "5", "ka.xml", "kb.xml"}, "",
     "Erro arquivo inexistente x.txt\n"},
    {"RandSaidaImpossivel", {"KeyRand", "a.png", "a.png", "h.txt", "5", "nada/ka.xml", "kb.xml"}, "",
     "Erro abertura arquivo nada/ka.xml\n"},
    {"CgSizeFatorInfinito", {"KeyCgSize", "k.xml", "s.xml", "1e300"}, "",
     "Erro: fator leva o tamanho a infinito 1e300\n"},
    {"GrandeNNegativo", {"KeyGrande", "a.png", "k.xml", "s.xml", "-1"}, "", "Erro: n invalido\n"},
    {"SiftSemCamadas", {"KeySift", "a.png", "s.xml", "0.02", "0"}, "", "Erro: numero de camadas invalido 0\n"},
    {"SiftNumeroEnorme", {"KeySift", "a.png", "s.xml", "1e20", "3"}, "", "Erro: numero fora do intervalo 1e20\n"},
    {"FastLimiarReal", {"KeyFast", "a.png", "s.xml", "1.5"}, "", "Erro: numero inteiro invalido 1.5\n"},
    // Display tools.
    {"KeyShowModo", {"keyshow", "a.png", "k.xml", "s.png", "x"}, "", "Erro: Modo invalido\n"},
    {"KeyShowModoVazio", {"keyshow", "a.png", "k.xml", "s.png", ""}, "", "Erro: Modo invalido\n"},
    {"KeyShowModoS", {"keyshow", "a.png", "k.xml", "s.png", "s"}, "", "Erro: Modo invalido\n"},
    {"KeyShowStore", {"keyshow", "a.png", "nao.xml", "s.png"}, "", "Erro abertura arquivo nao.xml\n"},
    {"MatMyShowMatch", {"matmyshow", "a.png", "a.png", "nao.txt", "s.png"}, "", "Erro arquivo inexistente nao.txt\n"},
    {"MatVisModo", {"matvis", "a.png", "a.png", "m.txt", "h.txt", "x"}, aperte, "Erro: Modo invalido\n"},
    {"MatVisMatriz", {"matvis", "a.png", "a.png", "m.txt", "nao.txt", "x"}, aperte, "Erro arquivo inexistente nao.txt\n"},
    // Descriptor tools; the count line comes before the options are checked.
    {"SimpDgaussPar", {"DesSimp", "a.png", "d.xml", "key=k.xml", "dgauss=10"}, K3, "Erro: dGauss deve ser impar\n"},
    {"SimpModo", {"DesSimp", "a.png", "d.xml", "key=k.xml", "modo=x"}, K3, "Erro: modo invalido\n"},
    {"SimpOpcaoRepetida", {"DesSimp", "a.png", "d.xml", "key=k.xml", "camadas=6", "camadas=5"}, K3,
     "Erro: Argumento invalido camadas 5\n"},
    {"RiffLarguraTexto", {"DesRiff", "a.png", "d.xml", "key=k.xml", "larguraAnel=x"}, K3,
     "Erro: numero inteiro invalido x\n"},
    {"RihogOpcaoDesconhecida", {"desrihog", "a.png", "d.xml", "key=k.xml", "foo=1"}, K3,
     "Erro: Argumento invalido foo 1\n"},
    {"SiftKeyInexistente", {"DesSift", "a.png", "d.xml", "nao.xml"}, "", "Erro abertura arquivo nao.xml\n"},
    {"SimpKeyInexistente", {"DesSimp", "a.png", "d.xml", "key=nao.xml"}, "", "Erro abertura arquivo nao.xml\n"},
    // A keypoint of size 0 stops every descriptor that reads a store.
    {"SiftRuim", {"DesSift", "a.png", "d.xml", "ruim.xml"}, K3, "Erro: keypoint 1 com tamanho ou posicao invalida\n"},
    {"SurfRuim", {"DesSurf", "a.png", "d.xml", "ruim.xml"}, K3, "Erro: keypoint 1 com tamanho ou posicao invalida\n"},
    {"SimpRuim", {"DesSimp", "a.png", "d.xml", "key=ruim.xml"}, K3,
     "Erro: keypoint 1 com tamanho ou posicao invalida\n"},
    {"RiffRuim", {"DesRiff", "a.png", "d.xml", "key=ruim.xml"}, K3,
     "Erro: keypoint 1 com tamanho ou posicao invalida\n"},
    {"RuhogRuim", {"desruhog", "a.png", "d.xml", "key=ruim.xml"}, K3,
     "Erro: keypoint 1 com tamanho ou posicao invalida\n"},
    // Matching tools.
    {"NNStoreInexistente", {"MatNN", "d1.xml", "falta.xml", "m2.txt"}, "", "Erro abertura arquivo falta.xml\n"},
    {"NNPalavra", {"MatNN", "d1.xml", "d2.xml", "m2.txt", "Flann"}, "", "Erro: Palavra desconhecida Flann\n"},
    {"NNVazio", {"MatNN", "d1.xml", "vazio.xml", "m2.txt"}, "", "Erro: nenhum descritor para casar em vazio.xml\n"},
    {"RatioTorto", {"MatRatio", "d1.xml", "torto.xml", "m2.txt"}, "", "Erro: numero de keypoints != descritores\n"},
    {"RatioUmSo", {"MatRatio", "d1.xml", "um.xml", "m2.txt", "flann"}, "", "Erro acRateTest inesperado\n"},
    {"RatioVazioAcrate", {"MatRatio", "d1.xml", "vazio.xml", "m2.txt", "acrate=0.5", "flann"}, "",
     "Erro acRateTest inesperado\n"},
    // Judging tools.
    {"ROCVazio", {"MatROC", "vazio.txt", "h.txt", "r.png"}, "", "Erro: arquivo de casamentos vazio, nada a avaliar\n"},
    {"AcertVazio", {"MatAcert", "vazio.txt", "h.txt", "a2.png"}, "",
     "Erro: arquivo de casamentos vazio, nada a avaliar\n"},
    {"ROCDistZero", {"MatROC", "m.txt", "h.txt", "r.png", "dist=0"}, "", "Erro: dist fora do intervalo\n"},
    {"MatlabDistNegativa", {"Matlab", "m.txt", "h.txt", "o.mat", "dist=-2"}, "", "Erro: dist fora do intervalo\n"},
    {"AcertEixo", {"MatAcert", "m.txt", "h.txt", "a2.png", "eixox=x"}, "", "Erro: eixox deve ser a ou r\n"},
    {"ROCPalavra", {"MatROC", "m.txt", "h.txt", "r.png", "eixox=a"}, "", "Erro: Palavra desconhecida eixox\n"},
    {"MatlabPalavra", {"Matlab", "m.txt", "h.txt", "o.mat", "cor=1,2,3"}, "", "Erro: Palavra desconhecida cor\n"},
    {"MatlabSemPasta", {"Matlab", "m.txt", "h.txt", "nao/o.mat"}, "", "Erro abertura nao/o.mat\n"},
    {"AcertMatrizInexistente", {"MatAcert", "m.txt", "x.txt", "a2.png"}, "", "Erro arquivo inexistente x.txt\n"},
    {"FiltCasamentosInexistentes", {"FiltMat", "x.txt", "h.txt"}, "", "Erro arquivo inexistente x.txt\n"},
    {"SobrTamanhos", {"SobrROC", "s.png", "a.png", "c.png"}, "", "Erro: Imagens com tamanhos diferentes\n"},
    {"SobrNenhum", {"SobrROC", "s.png", "z*.png"}, "", "Erro abertura arquivo z*.png\n"},
};

class Mensagens : public testing::TestWithParam<CasoFalha> {};

TEST_P(Mensagens, SaidaErroEStatusExatos) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  teste::salva(teste::uniforme(60, 80, 0), pasta / "c.png");
  teste::confereFalha(GetParam(), pasta);
}

INSTANTIATE_TEST_SUITE_P(Ferramentas, Mensagens, testing::ValuesIn(kCasos),
                         [](const testing::TestParamInfo<CasoFalha>& i) { return i.param.nome; });

}  // namespace
