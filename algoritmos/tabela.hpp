// Every detector, descriptor and matcher the program knows: one row each.
//
// The rest of the program reads these rows and nothing else:
//   - the single tools (KeyOrb, DesOrb, ...; the hand-written tools of the
//     older algorithms are named by their rows),
//   - Varre's det=/des=/mat= names and its ALG.OPCAO=valor options,
//   - the help list, the usage lines of the row tools and of Varre,
//   - `quivelar Algoritmos`, the README's table of algorithms,
//   - the bad-input suite, which runs every row tool on hostile files.
// Adding an algorithm of OpenCV is one row in tabela.cpp (its builder beside
// it in opencv.cpp) and one row in the test of agreement with OpenCV.
//
// Options are words ALG.OPCAO=valor in a sweep and OPCAO=valor in a row
// tool, any letter case. A detector and a descriptor of the same name (orb,
// brisk, akaze, kaze) share one option list, the parameters of the one
// OpenCV object, so that det=orb des=orb run as one detectAndCompute pass.
//
// Angles: each detector writes keypoint angles in a convention and each
// descriptor reads them in one (keypoints/convencao.hpp); the sweep converts
// between them, and KeyAngulo does it between single tools.
#pragma once

#include "formats/externos.hpp"
#include "keypoints/convencao.hpp"
#include "keypoints/key_rand.hpp"
#include "matching/busca.hpp"
#include "support/argumentos.hpp"
#include "support/memoria.hpp"

#include <opencv2/core.hpp>

#include <functional>
#include <string>
#include <vector>

namespace algoritmos {

using Ferramenta = void (*)(int argc, char** argv);

struct Opcao {
  std::string nome;     // lower case
  std::string padrao;   // the default as a user types it; "" when absent by default
  std::string sentido;  // a few words for the usage lines and the README
};

// Descriptor rows: 32-bit floats compared by L2 distance, or bytes of bits
// compared by Hamming distance (matching/busca.hpp decides by the type).
enum class Elemento { real, binario };
const char* nomeElemento(Elemento e);  // "float/L2" or "binario/Hamming"

// A detector built from its option words, ready for a sweep.
struct Detector {
  std::string nome;
  keypoints::Convencao escreve = keypoints::Convencao::nenhuma;
  // Null for rand, whose keypoints come in pairs per image pair.
  std::function<std::vector<cv::KeyPoint>(const cv::Mat_<uchar>&)> detecta;
  // A detector that also describes in the same pass (SIFT, ORB...: one scale
  // space for both) names that descriptor; its rows are then taken as they
  // come. Empty when the options make the pass differ from the descriptor's.
  std::string descreveComo;
  std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)> detectaEDescreve;
  // The smallest image side it takes: below it OpenCV's ORB, BRISK, AKAZE
  // and MSER stop on assertions that name no option and no file.
  int menorLado = 1;
  bool aleatorio = false;
  int nRand = 1000;
  keypoints::ParamRand rand;
  // Features another program wrote (feat=): read, not computed, from an
  // image's path and its name in the dataset. Null for the detectors above.
  std::function<formats::Caracteristicas(const std::string& caminho, const std::string& nome)> deArquivo;
  // A pair's keypoints and matches read together (mat=npz:), per image pair.
  std::function<formats::CasamentosDados(const std::string& caminho1, const std::string& caminho2)> dePar;
  // The files read for image `caminho` of a sequence whose image 1 is
  // `caminho1` (pair sources: those of the pair 1-caminho), whose sizes and
  // times sign a sweep's units: a changed file is measured again.
  std::function<std::vector<std::string>(const std::string& caminho1, const std::string& caminho)> arquivos;
};

// A descriptor built from its option words.
struct Descritor {
  std::string nome;
  keypoints::Convencao le = keypoints::Convencao::nenhuma;
  // Computes one row per kept keypoint; may drop keypoints (SURF drops those
  // it cannot place), and stops on a keypoint it cannot describe.
  std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)> calcula;
};

struct Casador {
  std::string nome;
  // Matches of image 1's rows to image 2's, best first.
  std::function<std::vector<cv::DMatch>(const cv::Mat&, const cv::Mat&)> casa;
  // An exhaustive matcher also answers, bit for bit as `casa`, from searches
  // shared with a pair's other matchers (matching/busca.hpp): those it needs
  // (a forward kIda-NN, the backward 1-NN) and how it reads them. Empty
  // for FLANN, whose approximate answers depend on k.
  int kIda = 0;
  bool volta = false;
  std::function<std::vector<cv::DMatch>(const Passes&)> dasPasses;
  // Matches another program wrote (mat=h5:, mat=npz:), taken as they are:
  // those of a file by the images' names and keypoint counts, or (`dados`)
  // those read with the pair's keypoints by the detector `soCom`.
  std::function<std::vector<cv::DMatch>(const std::string& nome1, const std::string& nome2, size_t n1, size_t n2)>
      doArquivo;
  bool dados = false;
  std::string soCom;  // the detectors it serves: a name, or "h5:" for every one of that kind
  std::vector<std::string> arquivos;  // the files it reads, for the units' signatures
};

// Sources of features and matches from other programs' files: Varre's
// feat=TIPO:ARG and mat=TIPO:ARG (and ext=COMANDO). Each builds what the
// sweep runs: a detector that reads keypoints and rows (and the descriptor
// of the same name that takes them as they are), or a matcher that reads
// matches (formats/externos.hpp has the layouts).
struct OpcoesFontes {
  float tamanho = formats::kTamanhoPadrao;  // keypoints without a size
  int topk = 0;                             // > 0: the k best by score per image
  std::string saida;                        // the sweep's folder (ext= keeps its outputs there)
};
struct Fonte {
  Detector detector;
  Descritor descritor;
  Casador casador;
  bool comCaracteristicas = false, comCasamentos = false;
};
struct LinhaFonte {
  const char* nome;       // the TIPO of TIPO:ARG
  const char* chave;      // "feat", "mat" or "ext"
  const char* argumento;  // what ARG is
  const char* layout;     // the layout read
  std::function<Fonte(const std::string& argumento, const OpcoesFontes& opcoes)> cria;
};
const std::vector<LinhaFonte>& fontes();
// The source of `chave` named TIPO:ARG (`texto`); stops on an unknown TIPO.
Fonte criaFonte(const std::string& chave, const std::string& texto, const OpcoesFontes& opcoes);
// Whether a name is a source's (it holds a ':').
bool ehFonte(const std::string& nome);
// Whether matcher `cas` gives rows to the units of detector `det`.
bool casadorServe(const Casador& cas, const Detector& det);

struct LinhaDetector {
  const char* nome;        // det=nome
  const char* ferramenta;  // its single tool, as the help list spells it
  const char* ajuda;       // its help row
  std::vector<Opcao> opcoes;
  keypoints::Convencao escreve;
  const char* regiao;      // what a keypoint's size is, in the image
  double bytesPorPixel;    // peak memory of a run with default options, over the program's base
  std::function<Detector(tvm::ISTR& opcoes)> cria;
  Ferramenta propria;      // its hand-written tool; nullptr: the row tool (ferramentas.cpp)
  tvm::Heap heap = tvm::Heap::comoVem;  // the memory lever that pays for its tool
  double bytesFixos = 0;   // what a run takes over the base whatever the image (BRISK's tables)
};

struct LinhaDescritor {
  const char* nome;        // des=nome
  const char* ferramenta;
  const char* ajuda;
  std::vector<Opcao> opcoes;
  keypoints::Convencao le;
  // The angles in its store when it detected the keypoints itself (BRISK and
  // KAZE also overwrite given angles with the orientation they compute).
  keypoints::Convencao escreve;
  Elemento elemento;
  const char* dimensao;    // the row's length, as text ("128", "61 (camadas=5)")
  double bytesPorPixel;    // peak memory of a description pass over the base (0: patches only)
  // The detectors whose keypoints it can describe, by commas, or nullptr for
  // any: AKAZE's and KAZE's descriptors read the scale level their detector
  // stored in each keypoint, ORB's its pyramid level (0 for detectors
  // without levels).
  const char* soDe;
  // The detector whose keypoints its tool describes when given none.
  const char* detectaCom;
  std::function<Descritor(tvm::ISTR& opcoes)> cria;
  Ferramenta propria;
  tvm::Heap heap = tvm::Heap::comoVem;
  // For the row tool: stops, naming the files, on given keypoints the
  // library would describe out of its buffers. nullptr: none needed.
  void (*verificaDados)(const cv::Mat_<uchar>& imagem, const std::vector<cv::KeyPoint>& keypoints,
                        const std::string& arquivoImagem, const std::string& arquivoKeys) = nullptr;
};

// The text of a help row after the tool's name and "- ".
const char* textoDaAjuda(const char* ajuda);

struct LinhaCasador {
  const char* nome;        // mat=nome
  const char* ferramenta;
  const char* ajuda;
  std::vector<Opcao> opcoes;
  std::function<Casador(tvm::ISTR& opcoes)> cria;
  Ferramenta propria;
  tvm::Heap heap = tvm::Heap::comoVem;
};

const std::vector<LinhaDetector>& detectores();
const std::vector<LinhaDescritor>& descritores();
const std::vector<LinhaCasador>& casadores();

// The row of a name (lower case), or nullptr.
const LinhaDetector* detector(const std::string& nome);
const LinhaDescritor* descritor(const std::string& nome);
const LinhaCasador* casador(const std::string& nome);

// A row's `cria` consumes the option words it knows and leaves the rest.
// These builders, the sweep's, consume the option words of one algorithm
// (the part after "ALG.") and stop on a word left over.
// An unknown name stops with "Erro: detector desconhecido " and the like.
Detector criaDetector(const std::string& nome, tvm::ISTR& opcoes);
Descritor criaDescritor(const std::string& nome, tvm::ISTR& opcoes);
Casador criaCasador(const std::string& nome, tvm::ISTR& opcoes);

// Whether the descriptor `des` can describe the keypoints of detector `det`
// (a source's descriptor only its own detector's).
bool parLegal(const std::string& det, const std::string& des);

// The convention of angles a tool writes (escrita) or reads, by the tool's
// name in any letter case, or "opencv" / "ccw". False for a name that is
// neither. KeyCgSize, KeyGrande and KeyAngulo's input pass angles through
// and are not named.
bool achaConvencao(const std::string& nome, bool escrita, keypoints::Convencao& c);

// The names of a kind joined by commas, in table order, for usage lines.
std::string nomes(const char* tipo);  // "det", "des" or "mat"

// The whole table as Markdown: what `quivelar Algoritmos` prints and the
// README holds between its markers (a test keeps them equal).
std::string tabelaMarkdown();

}  // namespace algoritmos
