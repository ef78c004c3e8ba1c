#include "algoritmos/tabela.hpp"

#include "algoritmos/opencv.hpp"
#include "algoritmos/tools.hpp"
#include "descriptors/des_sift.hpp"
#include "descriptors/proprios.hpp"
#include "descriptors/rootsift.hpp"
#include "descriptors/tools.hpp"
#include "features/memoria.hpp"
#include "features/sift.hpp"
#include "features/star.hpp"
#include "features/surf.hpp"
#include "keypoints/key_detect.hpp"
#include "keypoints/tools.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "matching/tools.hpp"
#include "support/erro.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

namespace algoritmos {

namespace {

using C = keypoints::Convencao;

// Peak bytes per pixel of a detector of features/memoria.hpp with its
// default options, over the program's base.
double porPixel(features::Detector d) {
  return features::memoriaDetector(d, cv::Size(1000, 1000)) / 1e6 -
         features::memoriaDetector(d, cv::Size(0, 0)) / 1e6;
}

// --- the older detectors, configured as their tools configure them ---

Detector criaSift(tvm::ISTR& op) {
  Detector d;
  int nfeatures = 0, camadas = 3;
  tvm::seekArg(op, "nfeatures", nfeatures);
  tvm::seekArg(op, "camadas", camadas);
  if (nfeatures < 0) tvm::erro("Erro: sift.nfeatures fora do intervalo");
  if (camadas < 1 || camadas > 100) tvm::erro("Erro: numero de camadas invalido ", std::to_string(camadas));
  d.detecta = [=](const cv::Mat_<uchar>& img) { return features::detectaSift(img, nfeatures, camadas); };
  // KeySift then DesSift build the same scale space twice; detecting and
  // describing in one pass gives the same keypoints and rows, once, as long
  // as the descriptor is SIFT's default one.
  if (nfeatures == 0 && camadas == 3) {
    d.descreveComo = "sift";
    d.detectaEDescreve = [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
      features::criaSift()->detectAndCompute(img, cv::noArray(), k, linhas);
    };
  }
  return d;
}

// Our SURF and STAR: one const detector serves every image.
template <typename Proprio>
Detector detectorProprio(const Proprio& proprio) {
  Detector d;
  d.detecta = [proprio](const cv::Mat_<uchar>& img) {
    std::vector<cv::KeyPoint> k;
    proprio.detect(img, k);
    return k;
  };
  return d;
}

Detector criaSurf(tvm::ISTR& op) {
  double limiar = 0;
  std::optional<double> t;
  if (tvm::seekArg(op, "limiar", limiar)) t = limiar;
  return detectorProprio(keypoints::surfDoKeySurf(t));
}

Detector criaFast(tvm::ISTR& op) {
  Detector d;
  int limiar = 10;
  tvm::seekArg(op, "limiar", limiar);
  d.detecta = [=](const cv::Mat_<uchar>& img) { return keypoints::detectaFast(img, limiar); };
  return d;
}

Detector criaStar(tvm::ISTR&) { return detectorProprio(keypoints::starDoKeyStar()); }

Detector criaRand(tvm::ISTR& op) {
  Detector d;
  d.aleatorio = true;
  tvm::seekArg(op, "n", d.nRand);
  keypoints::leParamRand(op, d.rand);
  if (d.nRand < 1 || d.nRand > keypoints::kMaxPares) tvm::erro("Erro: rand.n fora do intervalo");
  if (d.rand.diamMax <= d.rand.diamMin) tvm::erro("Erro: diamMax deve ser maior que diamMin");
  return d;
}

// --- OpenCV's features: one object per call, since a sweep runs several
// images at once and OpenCV's objects keep state between calls ---

using Fabrica = cv::Ptr<cv::Feature2D> (*)(const Valores&);
using MenorLado = int (*)(const Valores&);

void verificaLado(const char* nome, int menor, const cv::Mat& img) {
  if (img.rows < menor || img.cols < menor)
    tvm::erro("Erro: imagem pequena demais para ", nome,
              " (" + std::to_string(img.cols) + "x" + std::to_string(img.rows) + ", minimo " + std::to_string(menor) +
                  "x" + std::to_string(menor) + ")");
}

std::function<Detector(tvm::ISTR&)> detectorOpenCV(const char* nome, const std::vector<Opcao>& opcoes,
                                                     Fabrica fabrica, bool descreve, MenorLado menorLado = nullptr) {
  return [=](tvm::ISTR& op) {
    const Valores v(nome, opcoes, op);
    fabrica(v);  // every value checked now, before any image
    Detector d;
    d.menorLado = menorLado ? menorLado(v) : 4;
    const int menor = d.menorLado;
    d.detecta = [v, fabrica, nome, menor](const cv::Mat_<uchar>& img) {
      verificaLado(nome, menor, img);
      std::vector<cv::KeyPoint> k;
      fabrica(v)->detect(img, k);
      return k;
    };
    if (descreve) {
      d.descreveComo = nome;
      d.detectaEDescreve = [v, fabrica, nome, menor](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k,
                                                    cv::Mat& linhas) {
        verificaLado(nome, menor, img);
        fabrica(v)->detectAndCompute(img, cv::noArray(), k, linhas);
      };
    }
    return d;
  };
}

using VerificaKeypoints = void (*)(const Valores&, const std::vector<cv::KeyPoint>&, cv::Size);

std::function<Descritor(tvm::ISTR&)> descritorOpenCV(const char* nome, const std::vector<Opcao>& opcoes,
                                                       Fabrica fabrica, VerificaKeypoints verifica) {
  return [=](tvm::ISTR& op) {
    const Valores v(nome, opcoes, op);
    fabrica(v);
    Descritor d;
    d.calcula = [v, fabrica, verifica](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
      if (verifica) verifica(v, k, img.size());
      fabrica(v)->compute(img, k, linhas);
    };
    return d;
  };
}

void verificaOrb(const Valores& v, const std::vector<cv::KeyPoint>& k, cv::Size) { verificaParaOrb(v, k); }

// --- the older descriptors ---

Descritor criaDesSift(tvm::ISTR&) {
  Descritor d;
  d.calcula = [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
    features::criaSift()->compute(img, k, linhas);
  };
  return d;
}

Descritor criaRootSift(tvm::ISTR&) {
  Descritor d;
  d.calcula = [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
    k = descriptors::angulosEm0a360(std::move(k));
    features::criaSift()->compute(img, k, linhas);
    descriptors::raizSift(linhas);
  };
  return d;
}

Descritor criaDesSurf(tvm::ISTR&) {
  Descritor d;
  const features::SURF surf;
  d.calcula = [surf](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
    surf.compute(img, k, linhas);
  };
  return d;
}

// An own descriptor (descriptors/proprios.hpp), its options read as its
// tool reads them; one const instance serves every image.
std::function<Descritor(tvm::ISTR&)> proprio(const char* nome) {
  return [nome](tvm::ISTR& op) {
    const std::shared_ptr<const ::Descritor> lido = descritorProprio(nome).leOpcoes(op)();
    Descritor d;
    d.calcula = [lido](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
      lido->compute(img, k, linhas);
    };
    return d;
  };
}

// The option list of an own descriptor, for the docs: its tool's usage
// line, where every option is written with its default.
std::vector<Opcao> opcoesDoUso(const char* nome) {
  std::vector<Opcao> r;
  const std::string uso = descritorProprio(nome).uso.front();
  const std::string chave = "key=KeyA.xml ";
  const size_t a = uso.find(chave) + chave.size(), b = uso.rfind(']');
  const std::string lista = uso.substr(a, b - a);
  for (size_t i = 0; i < lista.size();) {
    const size_t fim = std::min(lista.find(' ', i), lista.size());
    const std::string palavra = lista.substr(i, fim - i);
    const size_t igual = palavra.find('=');
    r.push_back({tvm::minuscula(palavra.substr(0, igual)), palavra.substr(igual + 1), ""});
    i = fim + 1;
  }
  return r;
}

// --- matchers ---

Casador criaNN(tvm::ISTR& op) {
  const Busca busca = leBuscaNN(op);
  const auto ordena = [](std::vector<cv::DMatch> m) {
    std::sort(m.begin(), m.end());
    return m;
  };
  Casador c;
  c.nome = "nn";
  c.casa = [busca, ordena](const cv::Mat& a, const cv::Mat& b) { return ordena(casaNN(a, b, busca)); };
  if (busca == Busca::brute) {
    c.kIda = 1;
    c.dasPasses = [ordena](const Passes& p) { return ordena(nnDe(p)); };
  }
  return c;
}

// MatRatio stops on a store with fewer than two rows, where no ratio exists;
// in a sweep, an image with no described keypoint or one has no match.
Casador criaRatio(tvm::ISTR& op) {
  const OpcoesRatio opcoes = leOpcoesRatio(op);
  Casador c;
  c.nome = "ratio";
  c.casa = [opcoes](const cv::Mat& a, const cv::Mat& b) {
    if (a.empty() || b.rows < 2) return std::vector<cv::DMatch>();
    return selecionaRatio(casa2NN(a, b, opcoes.busca), opcoes);
  };
  if (opcoes.busca == Busca::brute) {
    c.kIda = 2;
    c.dasPasses = [opcoes](const Passes& p) {
      if (p.linhas1 == 0 || p.linhas2 < 2) return std::vector<cv::DMatch>();
      return selecionaRatio(doisNNDe(p), opcoes);
    };
  }
  return c;
}

Casador criaMutuo(tvm::ISTR& op) {
  const Busca busca = leBuscaNN(op);
  Casador c;
  c.nome = "mutuo";
  c.casa = [busca](const cv::Mat& a, const cv::Mat& b) { return casaMutuos(a, b, busca); };
  if (busca == Busca::brute) {
    c.kIda = 1;
    c.volta = true;
    c.dasPasses = mutuosDe;
  }
  return c;
}

const std::vector<Opcao> kBusca = {{"brute", "", "busca exaustiva (padrao)"},
                                   {"flann", "", "FLANN: arvores KD (float) ou LSH (binarios)"}};

}  // namespace

// bytes/pixel of the OpenCV rows: peak resident size of detectAndCompute
// (detect for detectors alone) on 2000^2 less 1000^2 grey images, noise
// and smooth, the larger, over 3e6 pixels; BRISK also takes 46 MB whatever
// the image (the intercept). KAZE's 530 is its nonlinear scale
// space: 4 octaves x 4 layers of full-size float images and their
// derivatives.
//
// The memory lever (support/memoria.hpp, a row's last field) only where it
// paid: CPU time (user + sys, median of 15 runs) and minor page faults on
// data/img1.png and the demo's stores, without -> with the lever:
//   KeySift 151 -> 102 ms, 32762 -> 4644 faults   KeySurf 81 -> 73 ms, 5249 -> 913
//   KeyStar 46 -> 42 ms, 2886 -> 835              DesSift 822 -> 793 ms, 20718 -> 1901
//   MatNN 75 -> 70 ms, 3220 -> 994                MatRatio 71 -> 66 ms, 3226 -> 900
// The other tools gained nothing measurable.
const std::vector<LinhaDetector>& detectores() {
  static const std::vector<LinhaDetector> t = {
      {"sift", "KeySift", "KeySift   - Gera keypoints usando SIFT",
       {{"nfeatures", "0", "keypoints mantidos (0: todos)"}, {"camadas", "3", "camadas por oitava"}}, C::horario,
       "diametro da vizinhanca, 2 x 1.6 x escala", porPixel(features::Detector::sift), criaSift, KeySift,
       tvm::Heap::retido},
      {"surf", "KeySurf", "KeySurf   - Gera keypoints usando SURF",
       {{"limiar", "", "limiar do hessiano; dado, 2 camadas por oitava (o da ferramenta)"}}, C::horario,
       "1.2 x escala x 9 / 1.2 (lado do filtro)", porPixel(features::Detector::surf), criaSurf, KeySurf,
       tvm::Heap::retido},
      {"fast", "KeyFast", "KeyFast   - Gera keypoints usando FAST", {{"limiar", "10", "limiar de intensidade"}},
       C::nenhuma, "7 (o circulo de Bresenham)", porPixel(features::Detector::fast), criaFast, KeyFast},
      {"star", "KeyStar", "KeyStar   - Gera keypoints usando STAR", {}, C::nenhuma, "lado do filtro bi-nivel",
       porPixel(features::Detector::star), criaStar, KeyStar, tvm::Heap::retido},
      {"rand", "KeyRand", "KeyRand   - Gera keypoints aleatoriamente",
       {{"n", "1000", "pares por par de imagens"},
        {"seed", "7", "semente"},
        {"diammin", "30", "menor diametro"},
        {"diammax", "40", "maior diametro"},
        {"pertpt", "0", "perturbacao da posicao"},
        {"pertdiam", "0", "perturbacao do diametro"},
        {"pertdeg", "0", "perturbacao do angulo"}},
       C::antiHorario, "sorteado entre diammin e diammax", 0, criaRand, KeyRand},
      {"orb", "KeyOrb", "KeyOrb    - Gera keypoints usando ORB (OpenCV)", kOpcoesOrb, C::horario,
       "31 x escala do nivel (o patch do descritor)", 10, detectorOpenCV("orb", kOpcoesOrb, criaOrb, true, menorLadoOrb),
       nullptr},
      {"brisk", "KeyBrisk", "KeyBrisk  - Gera keypoints usando BRISK (OpenCV)", kOpcoesBrisk, C::horario,
       "diametro do padrao de amostras na escala", 20,
       detectorOpenCV("brisk", kOpcoesBrisk, criaBrisk, true, menorLadoBrisk), nullptr, tvm::Heap::comoVem, 46e6},
      {"akaze", "KeyAkaze", "KeyAkaze  - Gera keypoints usando AKAZE (OpenCV)", kOpcoesAkaze, C::horario,
       "2 x escala nao linear", 135, detectorOpenCV("akaze", kOpcoesAkaze, criaAkaze, true), nullptr},
      // KAZE's detect leaves every angle 0: its orientation comes with the
      // descriptor (DesKaze's store holds it).
      {"kaze", "KeyKaze", "KeyKaze   - Gera keypoints usando KAZE (OpenCV)", kOpcoesKaze, C::nenhuma,
       "2 x escala nao linear", 530, detectorOpenCV("kaze", kOpcoesKaze, criaKaze, true), nullptr},
      {"agast", "KeyAgast", "KeyAgast  - Gera keypoints usando AGAST (OpenCV)", kOpcoesAgast, C::nenhuma,
       "7 (o circulo de teste)", 19, detectorOpenCV("agast", kOpcoesAgast, criaAgast, false), nullptr},
      {"gftt", "KeyGftt", "KeyGftt   - Gera keypoints usando Shi-Tomasi (GFTT, OpenCV)", kOpcoesGftt, C::nenhuma,
       "blocksize", 35, detectorOpenCV("gftt", kOpcoesGftt, criaGftt, false), nullptr},
      {"harris", "KeyHarris", "KeyHarris - Gera keypoints usando Harris (GFTT, OpenCV)", kOpcoesHarris, C::nenhuma,
       "blocksize", 35, detectorOpenCV("harris", kOpcoesHarris, criaGftt, false), nullptr},
      {"mser", "KeyMser", "KeyMser   - Gera keypoints usando MSER (OpenCV)", kOpcoesMser, C::nenhuma,
       "diametro do circulo de area igual a da regiao (x2)", 67,
       detectorOpenCV("mser", kOpcoesMser, criaMser, false), nullptr},
      {"blob", "KeyBlob", "KeyBlob   - Gera keypoints usando SimpleBlobDetector (OpenCV)", kOpcoesBlob,
       C::nenhuma, "diametro da mancha", 42, detectorOpenCV("blob", kOpcoesBlob, criaBlob, false),
       nullptr},
  };
  return t;
}

const std::vector<LinhaDescritor>& descritores() {
  static const std::vector<LinhaDescritor> t = {
      {"sift", "DesSift", "DesSift   - Calcula descriptors de SIFT (128)", {}, C::horario, C::horario, Elemento::real, "128",
       porPixel(features::Detector::sift), nullptr, "sift", criaDesSift, DesSift, tvm::Heap::retido},
      {"surf", "DesSurf", "DesSurf   - Calcula descriptors de SURF (64)", {}, C::nenhuma, C::horario, Elemento::real, "64",
       porPixel(features::Detector::surf), nullptr, "surf", criaDesSurf, DesSurf},
      {"simple", "DesSimp", "DesSimp   - Calcula descriptors de SIMPLE (127)", opcoesDoUso("simple"),
       C::antiHorario, C::nenhuma, Elemento::real, "127 (camadas=6)", 0, nullptr, "sift", proprio("simple"), DescritorProprioDaTabela},
      {"riff", "DesRiff", "DesRiff   - Calcula descriptors de RIFF (100)", opcoesDoUso("riff"), C::nenhuma, C::nenhuma,
       Elemento::real, "100", 0, nullptr, "sift", proprio("riff"), DescritorProprioDaTabela},
      {"rihog", "DesRihog", "DesRihog  - Calcula descriptors de RIHOG (80)", opcoesDoUso("rihog"), C::nenhuma, C::nenhuma,
       Elemento::real, "80", 0, nullptr, "sift", proprio("rihog"), DescritorProprioDaTabela},
      {"ruhog", "DesRUHOG", "DesRuhog  - Calcula descriptors de RUHOG (80) com aneis de tamanho variavel",
       opcoesDoUso("ruhog"), C::nenhuma, C::nenhuma, Elemento::real, "80", 0, nullptr, "sift", proprio("ruhog"), DescritorProprioDaTabela},
      {"forapro", "DesForapro", "DesForapro- Calcula descriptors Forapro", opcoesDoUso("forapro"), C::nenhuma, C::nenhuma,
       Elemento::real, "depende de nrad e ncir", 0, nullptr, "sift", proprio("forapro"), DescritorProprioDaTabela},
      {"orb", "DesOrb", "DesOrb    - Calcula descriptors de ORB (256 bits, OpenCV)", kOpcoesOrb, C::horario, C::horario,
       Elemento::binario, "32 bytes", 10, "orb,rand,fast,agast,gftt,harris", "orb", descritorOpenCV("orb", kOpcoesOrb, criaOrb, verificaOrb),
       nullptr},
      {"brisk", "DesBrisk", "DesBrisk  - Calcula descriptors de BRISK (512 bits, OpenCV)", kOpcoesBrisk,
       C::nenhuma, C::horario, Elemento::binario, "64 bytes", 20, nullptr, "brisk",
       descritorOpenCV("brisk", kOpcoesBrisk, criaBrisk, nullptr), nullptr},
      {"akaze", "DesAkaze", "DesAkaze  - Calcula descriptors de AKAZE (486 bits, OpenCV)", kOpcoesAkaze, C::horario, C::horario,
       Elemento::binario, "61 bytes (descriptor_size=0)", 135, "akaze", "akaze",
       descritorOpenCV("akaze", kOpcoesAkaze, criaAkaze, verificaParaAkaze), nullptr},
      {"kaze", "DesKaze", "DesKaze   - Calcula descriptors de KAZE (64, OpenCV)", kOpcoesKaze, C::nenhuma, C::horario,
       Elemento::real, "64 (128 com extended=1)", 530, "kaze", "kaze",
       descritorOpenCV("kaze", kOpcoesKaze, criaKaze, verificaParaKaze), nullptr},
      {"rootsift", "DesRootSift", "DesRootSift- Calcula descriptors de RootSIFT (128)", {}, C::horario, C::horario,
       Elemento::real, "128", porPixel(features::Detector::sift), nullptr, "sift", criaRootSift, nullptr,
       tvm::Heap::comoVem, descriptors::verificaParaSift},
  };
  return t;
}

const std::vector<LinhaCasador>& casadores() {
  static const std::vector<LinhaCasador> t = {
      {"nn", "MatNN", "MatNN     - Acha casamentos de des1 para des2 usando 1-NN", kBusca, criaNN, MatNN,
       tvm::Heap::retido},
      {"ratio", "MatRatio", "MatRatio  - Acha casamentos de des1 para des2 onde 1st/2st>ratio ou acRate",
       {{"ratio", "0.8", "limiar de 1o/2o vizinho"},
        {"acrate", "", "fracao mantida, pela ordem= (no lugar de ratio)"},
        {"ordem", "r", "r (razao) ou d (distancia)"},
        kBusca[0],
        kBusca[1]},
       criaRatio, MatRatio, tvm::Heap::retido},
      {"mutuo", "MatMutuo", "MatMutuo  - Acha casamentos mutuos (1-NN nos dois sentidos)", kBusca, criaMutuo,
       MatMutuo},
  };
  return t;
}

const char* textoDaAjuda(const char* ajuda) {
  const char* traco = std::strstr(ajuda, "- ");
  return traco ? traco + 2 : ajuda;
}

const char* nomeElemento(Elemento e) { return e == Elemento::binario ? "binario/Hamming" : "float/L2"; }

namespace {

template <typename Linha>
const Linha* acha(const std::vector<Linha>& tabela, const std::string& nome) {
  for (const Linha& l : tabela)
    if (nome == l.nome) return &l;
  return nullptr;
}

void semSobras(const tvm::ISTR& opcoes, const std::string& nome) {
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", nome + "." + resto);
}

}  // namespace

const LinhaDetector* detector(const std::string& nome) { return acha(detectores(), nome); }
const LinhaDescritor* descritor(const std::string& nome) { return acha(descritores(), nome); }
const LinhaCasador* casador(const std::string& nome) { return acha(casadores(), nome); }

namespace {

// A row's algorithm built from its option words, none left over.
template <typename Linha>
auto constroi(const Linha* l, const std::string& nome, tvm::ISTR& op, const char* desconhecido) {
  if (l == nullptr) tvm::erro(desconhecido, nome);
  auto algoritmo = l->cria(op);
  semSobras(op, nome);
  algoritmo.nome = nome;
  return algoritmo;
}

}  // namespace

Detector criaDetector(const std::string& nome, tvm::ISTR& op) {
  Detector d = constroi(detector(nome), nome, op, "Erro: detector desconhecido ");
  d.escreve = detector(nome)->escreve;
  return d;
}

Descritor criaDescritor(const std::string& nome, tvm::ISTR& op) {
  Descritor d = constroi(descritor(nome), nome, op, "Erro: descritor desconhecido ");
  d.le = descritor(nome)->le;
  return d;
}

Casador criaCasador(const std::string& nome, tvm::ISTR& op) {
  return constroi(casador(nome), nome, op, "Erro: casamento desconhecido ");
}

bool parLegal(const std::string& det, const std::string& des) {
  if (ehFonte(det) || ehFonte(des)) return det == des;
  const LinhaDescritor* l = descritor(des);
  if (l == nullptr) return false;
  if (l->soDe == nullptr) return true;
  return ("," + std::string(l->soDe) + ",").find("," + det + ",") != std::string::npos;
}

bool achaConvencao(const std::string& nome, bool escrita, keypoints::Convencao& c) {
  const std::string n = tvm::minuscula(nome);
  if (n == "opencv") {
    c = C::horario;
    return true;
  }
  if (n == "ccw") {
    c = C::antiHorario;
    return true;
  }
  for (const LinhaDetector& l : detectores())
    if (tvm::minuscula(l.ferramenta) == n) {
      c = escrita ? l.escreve : C::nenhuma;
      return true;
    }
  for (const LinhaDescritor& l : descritores())
    if (tvm::minuscula(l.ferramenta) == n) {
      c = escrita ? l.escreve : l.le;
      return true;
    }
  return false;
}

std::string nomes(const char* tipo) {
  std::string r;
  const auto junta = [&r](const char* n) { r += (r.empty() ? "" : ",") + std::string(n); };
  const std::string t = tipo;
  if (t == "det")
    for (const auto& l : detectores()) junta(l.nome);
  if (t == "des")
    for (const auto& l : descritores()) junta(l.nome);
  if (t == "mat")
    for (const auto& l : casadores()) junta(l.nome);
  return r;
}

}  // namespace algoritmos
