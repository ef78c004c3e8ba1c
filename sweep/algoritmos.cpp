#include "sweep/algoritmos.hpp"

#include "descriptors/forapro.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
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
  } else if (nome == "simple") {
    int camadas = 6, dgauss = 11;
    std::string modo = "c";
    tvm::seekArg(op, "camadas", camadas);
    tvm::seekArg(op, "dgauss", dgauss);
    tvm::seekArg(op, "modo", modo);
    if (modo.empty() || (modo[0] != 'c' && modo[0] != 'i')) tvm::erro("Erro: modo invalido");
    d = proprio(nome, convencao("DesSimp", false), std::make_shared<const SIMPLE>(modo[0], camadas, dgauss));
  } else if (nome == "riff") {
    int naneis = 4, larguraAnel = 10;
    tvm::seekArg(op, "naneis", naneis);
    tvm::seekArg(op, "larguraanel", larguraAnel);
    d = proprio(nome, convencao("DesRiff", false), std::make_shared<const RIFF>(naneis, larguraAnel));
  } else if (nome == "rihog" || nome == "ruhog") {
    int naneis = 5, raio = 40, nbins = 20, ngauss = 37;
    bool bcinv = true;
    tvm::seekArg(op, "naneis", naneis);
    tvm::seekArg(op, "raio", raio);
    tvm::seekArg(op, "nbins", nbins);
    tvm::seekArg(op, "ngauss", ngauss);
    tvm::seekArg(op, "bcinv", bcinv);
    if (nome == "rihog")
      d = proprio(nome, convencao("DesRihog", false), std::make_shared<const RIHOG>(naneis, raio, nbins, ngauss, bcinv));
    else
      d = proprio(nome, convencao("DesRUHOG", false), std::make_shared<const RUHOG>(naneis, raio, nbins, ngauss, bcinv));
  } else if (nome == "forapro") {
    int nrad = 4, ncir = 4, raio = 40;
    bool radang = true, radmag = true, cirvet = true;
    tvm::seekArg(op, "nrad", nrad);
    tvm::seekArg(op, "ncir", ncir);
    tvm::seekArg(op, "raio", raio);
    tvm::seekArg(op, "radang", radang);
    tvm::seekArg(op, "radmag", radmag);
    tvm::seekArg(op, "cirvet", cirvet);
    d = proprio(nome, convencao("DesForapro", false),
                std::make_shared<const Forapro>(nrad, ncir, raio, radang, radmag, cirvet));
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
