#include "sweep/algoritmos.hpp"

#include "descriptors/proprios.hpp"
#include "features/sift.hpp"
#include "features/star.hpp"
#include "features/surf.hpp"
#include "keypoints/key_detect.hpp"
#include "matching/busca.hpp"
#include "matching/ratio.hpp"
#include "support/erro.hpp"

#include <opencv2/features2d.hpp>

#include <algorithm>
#include <memory>
#include <optional>

namespace sweep {

namespace {

void semSobras(const tvm::ISTR& opcoes, const std::string& nome) {
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", nome + "." + resto);
}

// The convention in which a single tool writes (escrita) or reads angles.
keypoints::Convencao convencao(const char* ferramenta, bool escrita) {
  keypoints::Convencao c = keypoints::Convencao::nenhuma;
  keypoints::achaConvencao(ferramenta, escrita, c);
  return c;
}

// A descriptor class with the const compute(image, keypoints, rows) every
// own descriptor has, shared so that one instance serves every image.
template <typename Classe>
Descritor proprio(const std::string& nome, keypoints::Convencao le, std::shared_ptr<const Classe> d) {
  return {nome, le, [d](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
            d->compute(img, k, linhas);
          }};
}

}  // namespace

const std::vector<std::string>& nomesDetectores() {
  static const std::vector<std::string> n = {"sift", "surf", "fast", "star", "rand"};
  return n;
}
const std::vector<std::string>& nomesDescritores() {
  static const std::vector<std::string> n = {"sift", "surf", "simple", "riff", "rihog", "ruhog", "forapro"};
  return n;
}
const std::vector<std::string>& nomesCasadores() {
  static const std::vector<std::string> n = {"nn", "ratio", "mutuo"};
  return n;
}

Detector criaDetector(const std::string& nome, tvm::ISTR& op) {
  Detector d;
  d.nome = nome;
  if (nome == "sift") {
    int nfeatures = 0, camadas = 3;
    tvm::seekArg(op, "nfeatures", nfeatures);
    tvm::seekArg(op, "camadas", camadas);
    if (nfeatures < 0) tvm::erro("Erro: sift.nfeatures fora do intervalo");
    if (camadas < 1 || camadas > 100) tvm::erro("Erro: numero de camadas invalido ", std::to_string(camadas));
    d.escreve = convencao("KeySift", true);
    d.detecta = [=](const cv::Mat_<uchar>& img) { return features::detectaSift(img, nfeatures, camadas); };
    // KeySift then DesSift build the same scale space twice; detecting and
    // describing in one pass gives the same keypoints and rows, once, as
    // long as the descriptor is SIFT's default one.
    if (nfeatures == 0 && camadas == 3) {
      d.descreveComo = "sift";
      d.detectaEDescreve = [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
        features::criaSift()->detectAndCompute(img, cv::noArray(), k, linhas);
      };
    }
  } else if (nome == "surf") {
    double limiar = 0;
    std::optional<double> t;
    if (tvm::seekArg(op, "limiar", limiar)) t = limiar;
    const features::SURF surf = keypoints::surfDoKeySurf(t);
    d.escreve = convencao("KeySurf", true);
    d.detecta = [=](const cv::Mat_<uchar>& img) {
      std::vector<cv::KeyPoint> k;
      surf.detect(img, k);
      return k;
    };
  } else if (nome == "fast") {
    int limiar = 10;
    tvm::seekArg(op, "limiar", limiar);
    d.escreve = convencao("KeyFast", true);
    d.detecta = [=](const cv::Mat_<uchar>& img) { return keypoints::detectaFast(img, limiar); };
  } else if (nome == "star") {
    const features::StarDetector star = keypoints::starDoKeyStar();
    d.escreve = convencao("KeyStar", true);
    d.detecta = [=](const cv::Mat_<uchar>& img) {
      std::vector<cv::KeyPoint> k;
      star.detect(img, k);
      return k;
    };
  } else if (nome == "rand") {
    d.aleatorio = true;
    d.escreve = convencao("KeyRand", true);
    tvm::seekArg(op, "n", d.nRand);
    keypoints::leParamRand(op, d.rand);
    if (d.nRand < 1 || d.nRand > keypoints::kMaxPares) tvm::erro("Erro: rand.n fora do intervalo");
    if (d.rand.diamMax <= d.rand.diamMin) tvm::erro("Erro: diamMax deve ser maior que diamMin");
  } else {
    tvm::erro("Erro: detector desconhecido ", nome);
  }
  semSobras(op, nome);
  return d;
}

namespace {

// The tool of each own descriptor, whose angle convention it shares.
const char* ferramentaPropria(const std::string& nome) {
  static const std::pair<const char*, const char*> tabela[] = {
      {"simple", "DesSimp"}, {"riff", "DesRiff"}, {"rihog", "DesRihog"}, {"ruhog", "DesRUHOG"}, {"forapro", "DesForapro"}};
  for (const auto& [n, f] : tabela)
    if (nome == n) return f;
  return nullptr;
}

}  // namespace

Descritor criaDescritor(const std::string& nome, tvm::ISTR& op) {
  Descritor d;
  if (nome == "sift") {
    // One instance per call: several images are described at once.
    d = {nome, convencao("DesSift", false), [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
           features::criaSift()->compute(img, k, linhas);
         }};
  } else if (nome == "surf") {
    const features::SURF surf;
    d = {nome, convencao("DesSurf", false), [surf](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& linhas) {
           surf.compute(img, k, linhas);
         }};
  } else if (const char* ferramenta = ferramentaPropria(nome)) {
    // Options read as the descriptor's own tool reads them.
    const std::shared_ptr<const ::Descritor> proprioLido = descritorProprio(nome).leOpcoes(op)();
    d = proprio(nome, convencao(ferramenta, false), proprioLido);
  } else {
    tvm::erro("Erro: descritor desconhecido ", nome);
  }
  semSobras(op, nome);
  return d;
}

Casador criaCasador(const std::string& nome, tvm::ISTR& op) {
  if (nome == "nn") {
    const Busca busca = leBuscaNN(op);
    return {nome, [busca](const cv::Mat& a, const cv::Mat& b) {
              std::vector<cv::DMatch> m = casaNN(a, b, busca);
              std::sort(m.begin(), m.end());
              return m;
            }};
  }
  if (nome == "ratio") {
    const OpcoesRatio opcoes = leOpcoesRatio(op);
    return {nome, [opcoes](const cv::Mat& a, const cv::Mat& b) {
              return selecionaRatio(casa2NN(a, b, opcoes.busca), opcoes);
            }};
  }
  if (nome == "mutuo") {
    const Busca busca = leBuscaNN(op);
    return {nome, [busca](const cv::Mat& a, const cv::Mat& b) { return casaMutuos(a, b, busca); }};
  }
  tvm::erro("Erro: casamento desconhecido ", nome);
}

}  // namespace sweep
