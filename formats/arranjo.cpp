#include "formats/arranjo.hpp"

#include "support/erro.hpp"

#include <climits>
#include <cstring>
#include <type_traits>

namespace formats {

namespace {

struct Tipo {
  const char* nome;
  int profundidade;  // the OpenCV depth of the same bits; -1 for int64, which has none
  int64_t tamanho;
  bool flutuante;
};

constexpr Tipo kTipos[] = {{"<f4", CV_32F, 4, true},  {"<f8", CV_64F, 8, true},  {"<f2", CV_16F, 2, true},
                           {"|u1", CV_8U, 1, false}, {"<i4", CV_32S, 4, false}, {"<i8", -1, 8, false}};

const Tipo* procura(const std::string& nome) {
  for (const Tipo& t : kTipos)
    if (nome == t.nome) return &t;
  return nullptr;
}

// Every value of an integer array must be in [lo, hi] to keep it in `tipo`.
[[noreturn]] void foraDaFaixa(double valor, int tipo, const std::string& onde) {
  tvm::erro("Erro: valor " + std::to_string(static_cast<long long>(valor)) + " de ", onde,
            tipo == CV_8U ? " nao cabe em uint8" : " nao cabe em int32");
}

}  // namespace

int64_t bytesDe(const InfoArranjo& info) {
  const Tipo* t = procura(info.tipo);
  if (t == nullptr) return -1;
  int64_t b = t->tamanho;
  for (int64_t d : info.forma) {
    if (d < 0 || (d > 0 && b > INT64_MAX / d)) return -1;
    b *= d;
  }
  return b;
}

cv::Mat comoMatriz(const void* dados, const InfoArranjo& info, int tipo, const std::string& onde) {
  const Tipo* t = procura(info.tipo);
  if (t == nullptr) tvm::erro("Erro: tipo '" + info.tipo + "' de ", onde, " nao e lido (so <f4 <f8 <f2 |u1 <i4 <i8)");
  if (tipo != CV_32F && tipo != CV_64F && tipo != CV_32S && tipo != CV_8U)
    tvm::erro("Erro: tipo de matriz pedido invalido para ", onde);
  if (info.forma.size() > 2)
    tvm::erro("Erro: ", onde, " tem " + std::to_string(info.forma.size()) + " dimensoes; so ate 2 sao lidas");
  int lados[2] = {1, 1};
  for (size_t i = 0; i < info.forma.size(); ++i) {
    if (info.forma[i] < 0 || info.forma[i] > INT_MAX)
      tvm::erro("Erro: forma de ", onde, " grande demais para uma matriz");
    lados[i] = static_cast<int>(info.forma[i]);
  }
  const bool inteiro = tipo == CV_32S || tipo == CV_8U;
  if (inteiro && t->flutuante)
    tvm::erro("Erro: ", onde, " tem tipo " + info.tipo + ", que nao passa a inteiro sem perda");
  const double lo = tipo == CV_8U ? 0 : INT32_MIN, hi = tipo == CV_8U ? 255 : INT32_MAX;
  cv::Mat r(lados[0], lados[1], tipo);
  if (r.empty()) return r;
  if (t->profundidade < 0) {
    // int64: no OpenCV depth holds it, so each value is range-checked and
    // converted here (memcpy: the caller's bytes need not be aligned).
    const auto* p = static_cast<const unsigned char*>(dados);
    const auto copia = [&](auto* destino) {
      for (size_t k = 0; k < r.total(); ++k) {
        int64_t v;
        std::memcpy(&v, p + 8 * k, 8);
        if (inteiro && (v < lo || v > hi)) foraDaFaixa(static_cast<double>(v), tipo, onde);
        destino[k] = static_cast<std::remove_pointer_t<decltype(destino)>>(v);
      }
    };
    switch (tipo) {
      case CV_8U: copia(r.ptr<uchar>()); break;
      case CV_32S: copia(r.ptr<int>()); break;
      case CV_32F: copia(r.ptr<float>()); break;
      default: copia(r.ptr<double>()); break;
    }
    return r;
  }
  const cv::Mat fonte(lados[0], lados[1], t->profundidade, const_cast<void*>(dados));
  if (inteiro && t->profundidade != CV_8U) {
    double menor = 0, maior = 0;
    cv::minMaxIdx(fonte, &menor, &maior);
    if (menor < lo) foraDaFaixa(menor, tipo, onde);
    if (maior > hi) foraDaFaixa(maior, tipo, onde);
  }
  fonte.convertTo(r, tipo);
  return r;
}

}  // namespace formats
