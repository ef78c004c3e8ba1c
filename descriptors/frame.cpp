#include "descriptors/frame.hpp"

#include "features/memoria.hpp"
#include "features/sift.hpp"
#include "formats/stores.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

size_t linhasRepetidas(const cv::Mat& descriptors) {
  const cv::Mat d = descriptors.isContinuous() ? descriptors : descriptors.clone();
  const size_t largura = d.cols * d.elemSize();
  std::vector<int> ordem(d.rows);
  for (int i = 0; i < d.rows; ++i) ordem[i] = i;
  const auto compara = [&](int a, int b) { return std::memcmp(d.ptr(a), d.ptr(b), largura); };
  std::sort(ordem.begin(), ordem.end(), [&](int a, int b) { return compara(a, b) < 0; });
  size_t repetidas = 0;
  for (size_t i = 0; i < ordem.size(); ++i) {
    const bool igualAnterior = i > 0 && compara(ordem[i - 1], ordem[i]) == 0;
    const bool igualProxima = i + 1 < ordem.size() && compara(ordem[i], ordem[i + 1]) == 0;
    repetidas += igualAnterior || igualProxima;
  }
  return repetidas;
}

void avisaStore(const std::string& saida, size_t dados, const cv::Mat& descriptors) {
  const size_t linhas = static_cast<size_t>(descriptors.rows);
  if (linhas < dados)
    tvm::aviso(std::to_string(dados - linhas) + " de " + std::to_string(dados) +
               " keypoints descartados pelo descritor: " + saida + " guarda " + std::to_string(linhas) +
               "; compare os descritores nos keypoints que ficaram");
  tvm::avisaSeVazio(linhas, saida);
  const size_t repetidas = linhasRepetidas(descriptors);
  if (2 * repetidas > linhas)
    tvm::aviso(std::to_string(repetidas) + " de " + std::to_string(linhas) + " linhas de " + saida +
               " repetem outra linha: regioes pequenas demais para o descritor? (KeyCgSize)");
}

namespace {

char** depoisDaSaida(int argc, char** argv) { return argc > 3 ? argv + 3 : nullptr; }

}  // namespace

FrameDescritor::FrameDescritor(int argc, char** argv, const std::vector<const char*>& uso)
    : opcoes_(argc > 3 ? argc - 3 : 0, depoisDaSaida(argc, argv)) {
  if (argc < 3) tvm::falhaUso(uso);
  saida_ = argv[2];
  tvm::le(imagem_, argv[1]);
  semOpcoes_ = argc == 3;
  if (semOpcoes_) return;
  std::string arquivoKeys;
  if (tvm::seekArg(opcoes_, "key", arquivoKeys)) {
    keypoints_ = formats::leKeyPoints(arquivoKeys);
  } else {
    features::verificaMemoriaDetector(features::Detector::sift, imagem_.size(), argv[1]);
    keypoints_ = features::detectaSift(imagem_);
  }
  std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints_.size()));
}

void FrameDescritor::verificaResto() const {
  const std::string resto = opcoes_.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
}

void FrameDescritor::grava(const cv::Mat& descriptors) const {
  formats::impDescritores(saida_, keypoints_, descriptors);
  if (semOpcoes_)
    tvm::aviso("sem opcoes nenhum keypoint e' lido nem detectado: " + saida_ +
               " fica vazio (key=KeyA.xml le um store; qualquer opcao detecta com SIFT)");
  else
    avisaStore(saida_, keypoints_.size(), descriptors);
}
