#include "matching/busca.hpp"

#include "matching/vizinhos_hamming.hpp"
#include "matching/vizinhos_l2.hpp"

#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include <opencv2/flann.hpp>

namespace {

const char* nomeDoTipo(const cv::Mat& descritores) { return binarios(descritores) ? "binarios" : "float"; }

void leStore(const std::string& arquivo, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descritores) {
  formats::leDescritores(arquivo, keypoints, descritores);
  if (keypoints.size() != static_cast<size_t>(descritores.rows)) tvm::erro("Erro: numero de keypoints != descritores");
  if (!descritores.empty() && (descritores.dims != 2 || (descritores.type() != CV_32FC1 && !binarios(descritores))))
    tvm::erro("Erro: descritores nao sao float de 32 bits nem binarios de 8 bits em ", arquivo);
  if (binarios(descritores)) return;  // every byte value is a distance of at most 8 bits
  // Finite values give distances in [0, inf], never NaN, so sorting is safe.
  if (!cv::checkRange(descritores)) tvm::erro("Erro: descritores com valor nao finito em ", arquivo);
  // Distances are sums of squares in float: past this bound one of them may
  // overflow to infinity, and then the exhaustive search finds no neighbour
  // and FLANN fails on an assertion of its own.
  if (descritores.empty()) return;
  double menor = 0, maior = 0;
  cv::minMaxIdx(descritores, &menor, &maior);
  maior = std::max(maior, -menor);
  const double limite = maiorValorDescritor(descritores.cols);
  if (maior > limite)
    tvm::erro("Erro: descritores com valor " + tvm::textoDeNumero(maior) + " grande demais em ", arquivo,
              " (com " + std::to_string(descritores.cols) + " colunas o maximo e " + tvm::textoDeNumero(limite) + ")");
}

}  // namespace

double maiorValorDescritor(int colunas) {
  // Two rows differ by at most twice this in each of `colunas` places, so a
  // squared distance stays within a quarter of FLT_MAX: rounding in any sum
  // order cannot reach infinity.
  return std::sqrt(static_cast<double>(FLT_MAX) / (16.0 * std::max(colunas, 1)));
}

ParDescritores leParDescritores(const std::string& arquivo1, const std::string& arquivo2) {
  ParDescritores par;
  leStore(arquivo1, par.keypoints1, par.descritores1);
  leStore(arquivo2, par.keypoints2, par.descritores2);
  // A Hamming distance between float bits, or an L2 one between bit strings,
  // would be a number without meaning.
  if (!par.descritores1.empty() && !par.descritores2.empty() &&
      binarios(par.descritores1) != binarios(par.descritores2))
    tvm::erro("Erro: descritores de tipos diferentes em ", arquivo1 + " (" + nomeDoTipo(par.descritores1) + ") e " +
                                                             arquivo2 + " (" + nomeDoTipo(par.descritores2) + ")");
  if (!par.descritores1.empty() && !par.descritores2.empty() && par.descritores1.cols != par.descritores2.cols)
    tvm::erro("Erro: descritores de tamanhos diferentes em ", arquivo1 + " (" + std::to_string(par.descritores1.cols) +
                                                               ") e " + arquivo2 + " (" +
                                                               std::to_string(par.descritores2.cols) + ")");
  return par;
}

bool binarios(const cv::Mat& descritores) { return descritores.type() == CV_8UC1; }

cv::Ptr<cv::DescriptorMatcher> criaMatcher(Busca modo, bool binario) {
  switch (modo) {
    case Busca::brute:
      return cv::makePtr<cv::BFMatcher>(binario ? cv::NORM_HAMMING : cv::NORM_L2, false);
    case Busca::flann:
      if (binario)
        return cv::makePtr<cv::FlannBasedMatcher>(
            cv::makePtr<cv::flann::LshIndexParams>(kTabelasLsh, kBitsChaveLsh, kSondagemLsh),
            cv::makePtr<cv::flann::SearchParams>(kChecksFlann, 0.0f, true));
      return cv::makePtr<cv::FlannBasedMatcher>(cv::makePtr<cv::flann::KDTreeIndexParams>(kArvoresFlann),
                                                cv::makePtr<cv::flann::SearchParams>(kChecksFlann, 0.0f, true));
  }
  return {};
}

namespace {

void exigeMesmoTipo(const cv::Mat& query, const cv::Mat& train) {
  if (!query.empty() && !train.empty() && binarios(query) != binarios(train))
    tvm::erro("Erro: descritores de tipos diferentes");
}

// The exhaustive k-NN of the rows' own distance.
std::vector<std::vector<cv::DMatch>> vizinhos(const cv::Mat& query, const cv::Mat& train, int k) {
  return binarios(query) ? matching::vizinhosHamming(query, train, k) : matching::vizinhosL2(query, train, k);
}

}  // namespace

namespace {

// k-NN lists of every query row; none at all for an empty query side, and
// empty lists against an empty train side.
std::vector<std::vector<cv::DMatch>> passe(const cv::Mat& query, const cv::Mat& train, int k) {
  if (query.empty()) return {};
  if (train.empty()) return std::vector<std::vector<cv::DMatch>>(static_cast<size_t>(query.rows));
  return vizinhos(query, train, k);
}

// The first of each list: a query row whose distances all overflow has no
// match, as in OpenCV.
std::vector<cv::DMatch> primeiros(const std::vector<std::vector<cv::DMatch>>& listas) {
  std::vector<cv::DMatch> matches;
  for (const std::vector<cv::DMatch>& lista : listas)
    if (!lista.empty()) matches.push_back(lista[0]);
  return matches;
}

}  // namespace

Passes calculaPasses(const cv::Mat& descritores1, const cv::Mat& descritores2, int kIda, bool volta) {
  exigeMesmoTipo(descritores1, descritores2);
  Passes p;
  p.kIda = kIda;
  p.temVolta = volta;
  p.linhas1 = descritores1.rows;
  p.linhas2 = descritores2.rows;
  if (kIda > 0) p.ida = passe(descritores1, descritores2, kIda);
  if (volta) p.volta = passe(descritores2, descritores1, 1);
  return p;
}

std::vector<cv::DMatch> nnDe(const Passes& p) {
  CV_Assert(p.kIda >= 1);
  return primeiros(p.ida);
}

std::vector<std::vector<cv::DMatch>> doisNNDe(const Passes& p) {
  CV_Assert(p.kIda == 2);
  return p.ida;
}

namespace {

// The matches of `ida` whose train row's own nearest neighbour, in `volta`,
// is their query row; sorted by distance, ties in query order.
std::vector<cv::DMatch> mutuos(const std::vector<cv::DMatch>& ida, const std::vector<cv::DMatch>& volta, int linhas2) {
  // The way back by row of store 2: an approximate search may leave a row
  // without a match (-1).
  std::vector<int> deVolta(static_cast<size_t>(linhas2), -1);
  for (const cv::DMatch& m : volta) deVolta[static_cast<size_t>(m.queryIdx)] = m.trainIdx;
  std::vector<cv::DMatch> r;
  for (const cv::DMatch& m : ida)
    if (deVolta[static_cast<size_t>(m.trainIdx)] == m.queryIdx) r.push_back(m);
  std::stable_sort(r.begin(), r.end());
  return r;
}

}  // namespace

std::vector<cv::DMatch> mutuosDe(const Passes& p) {
  CV_Assert(p.kIda >= 1 && p.temVolta);
  return mutuos(primeiros(p.ida), primeiros(p.volta), static_cast<int>(p.volta.size()));
}

std::vector<cv::DMatch> casaMutuos(const cv::Mat& descritores1, const cv::Mat& descritores2, Busca modo) {
  if (modo == Busca::brute) return mutuosDe(calculaPasses(descritores1, descritores2, 1, true));
  return mutuos(casaNN(descritores1, descritores2, modo), casaNN(descritores2, descritores1, modo),
                descritores2.rows);
}

std::vector<cv::DMatch> casaNN(const cv::Mat& query, const cv::Mat& train, Busca modo) {
  exigeMesmoTipo(query, train);
  const cv::Ptr<cv::DescriptorMatcher> matcher = criaMatcher(modo, binarios(query));
  if (!matcher) tvm::erro("Erro modoMatch desconhecido");
  std::vector<cv::DMatch> matches;
  if (query.empty() || train.empty()) return matches;
  if (modo == Busca::brute) return nnDe(calculaPasses(query, train, 1, false));
  if (!binarios(query)) {
    matcher->match(query, train, matches);
    return matches;
  }
  // LSH may find no neighbour for a row whose buckets are all empty: that row
  // has no match.
  std::vector<std::vector<cv::DMatch>> listas;
  matcher->knnMatch(query, train, listas, 1, cv::noArray(), false);
  for (const std::vector<cv::DMatch>& lista : listas)
    if (!lista.empty() && lista[0].trainIdx >= 0) matches.push_back(lista[0]);
  return matches;
}

std::vector<std::vector<cv::DMatch>> casa2NN(const cv::Mat& query, const cv::Mat& train, Busca modo) {
  constexpr int k = 2;
  exigeMesmoTipo(query, train);
  cv::Ptr<cv::DescriptorMatcher> matcher = criaMatcher(modo, binarios(query));
  if (!matcher) tvm::erro("Erro: modoMatch invalido");
  std::vector<std::vector<cv::DMatch>> listas;
  if (query.empty()) return listas;
  // OpenCV answers an empty train set with no lists at all, and FLANN refuses
  // to look for more neighbours than its index holds; below k rows the
  // exhaustive search gives the short lists that the ratio records reject.
  if (train.empty()) {
    listas.assign(query.rows, {});
    return listas;
  }
  if (modo == Busca::brute) return doisNNDe(calculaPasses(query, train, k, false));
  if (train.rows < k) return vizinhos(query, train, k);
  matcher->knnMatch(query, train, listas, k, cv::noArray(), false);
  // LSH leaves a list short, or pads it with index -1, where its buckets hold
  // too few rows: the neighbours it did find are kept.
  for (std::vector<cv::DMatch>& lista : listas)
    lista.erase(std::remove_if(lista.begin(), lista.end(), [](const cv::DMatch& m) { return m.trainIdx < 0; }),
                lista.end());
  return listas;
}

Busca leBuscaNN(tvm::ISTR& in) {
  Busca modo = Busca::brute;
  for (std::string palavra = tvm::leStr(in); palavra != "eof"; palavra = tvm::leStr(in)) {
    if (palavra == "brute")
      modo = Busca::brute;
    else if (palavra == "flann")
      modo = Busca::flann;
    else
      tvm::erro("Erro: Palavra desconhecida ", palavra);
  }
  return modo;
}

void casaPar(int argc, char** argv, const char* titulo, const char* sintaxe, const CasaPar& casa) {
  if (argc < 4)
    tvm::falhaUso({titulo, sintaxe, "  match.txt estara ordenada pela distancia. menor=melhor", "  Default=brute"});
  const ParDescritores par = leParDescritores(argv[1], argv[2]);
  tvm::ISTR opcoes(argc - 4, argv + 4);
  const Busca modo = leBuscaNN(opcoes);
  formats::impMatch(casa(par, modo), par.keypoints1, par.keypoints2, argv[3]);
}
