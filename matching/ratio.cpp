#include "matching/ratio.hpp"

#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cmath>

namespace {

// A kept match carries the sort key of its order in its distance field.
cv::DMatch comoSaida(const RegistroRatio& registro, char ordem) {
  cv::DMatch m = registro.match;
  m.distance = ordem == 'r' ? registro.r : registro.d1;
  return m;
}

}  // namespace

std::vector<RegistroRatio> registrosRatio(const std::vector<std::vector<cv::DMatch>>& listas) {
  std::vector<RegistroRatio> registros;
  registros.reserve(listas.size());
  for (const std::vector<cv::DMatch>& lista : listas) {
    if (lista.size() != 2) tvm::erro("Erro acRateTest inesperado");
    const float d1 = lista[0].distance;
    const float d2 = lista[1].distance;
    float r = static_cast<double>(d2) > tvm::epsilon ? d1 / d2 : static_cast<float>(tvm::infinito);
    // Two distances that overflowed to infinity give no usable ratio either,
    // and a NaN would break the sort.
    if (std::isnan(r)) r = static_cast<float>(tvm::infinito);
    registros.push_back({lista[0], d1, r});
  }
  return registros;
}

void ordenaRegistros(std::vector<RegistroRatio>& registros, char ordem) {
  if (ordem == 'd')
    std::sort(registros.begin(), registros.end(),
              [](const RegistroRatio& a, const RegistroRatio& b) { return a.d1 < b.d1; });
  else if (ordem == 'r')
    std::sort(registros.begin(), registros.end(),
              [](const RegistroRatio& a, const RegistroRatio& b) { return a.r < b.r; });
  else
    tvm::erro("Erro: ordem invalida");
}

void ratioTest(const std::vector<std::vector<cv::DMatch>>& listas, std::vector<cv::DMatch>& saida, char ordem,
               double limiar) {
  std::vector<RegistroRatio> registros = registrosRatio(listas);
  ordenaRegistros(registros, ordem);
  saida.clear();
  for (const RegistroRatio& registro : registros)
    if (static_cast<double>(registro.r) < limiar) saida.push_back(comoSaida(registro, ordem));
}

void acRateTest(const std::vector<std::vector<cv::DMatch>>& listas, std::vector<cv::DMatch>& saida, char ordem,
                double taxa) {
  std::vector<RegistroRatio> registros = registrosRatio(listas);
  ordenaRegistros(registros, ordem);
  const size_t n = registros.size();
  // nearbyint follows the processor's rounding: to nearest, ties to even.
  const double keep = std::nearbyint(static_cast<double>(n) * taxa);
  if (!(keep >= 0.0 && keep <= static_cast<double>(n))) tvm::erro("Erro acRate invalido");
  const size_t mantidos = static_cast<size_t>(keep);
  saida.clear();
  saida.reserve(mantidos);
  for (size_t i = 0; i < mantidos; ++i) saida.push_back(comoSaida(registros[i], ordem));
}

OpcoesRatio leOpcoesRatio(tvm::ISTR& in) {
  OpcoesRatio opcoes;
  for (std::string palavra = tvm::leStr(in); palavra != "eof"; palavra = tvm::leStr(in)) {
    if (palavra == "ratio") {
      tvm::leNum(in, opcoes.ratio);
      if (opcoes.ratio < 0.0 || opcoes.ratio > 1.0) tvm::erro("Erro: ratio fora do intervalo");
      opcoes.modo = ModoRatio::ratio;
    } else if (palavra == "acrate") {
      tvm::leNum(in, opcoes.acRate);
      if (opcoes.acRate < 0.0 || opcoes.acRate > 1.0) tvm::erro("Erro: acRate fora do intervalo");
      opcoes.modo = ModoRatio::acRate;
    } else if (palavra == "ordem") {
      // Only the first letter counts, so "ratio" and "dist" work too.
      const std::string valor = tvm::leStr(in);
      if (valor.empty()) tvm::erro("Erro: ordem=NULO");
      if (valor[0] != 'r' && valor[0] != 'd') tvm::erro("Erro: ordem deve ser r ou d");
      opcoes.ordem = valor[0];
    } else if (palavra == "brute") {
      opcoes.busca = Busca::brute;
    } else if (palavra == "flann") {
      opcoes.busca = Busca::flann;
    } else {
      tvm::erro("Erro: Palavra desconhecida ", palavra);
    }
  }
  return opcoes;
}

std::vector<cv::DMatch> selecionaRatio(const std::vector<std::vector<cv::DMatch>>& listas, const OpcoesRatio& opcoes) {
  std::vector<cv::DMatch> saida;
  switch (opcoes.modo) {
    case ModoRatio::ratio:
      ratioTest(listas, saida, opcoes.ordem, opcoes.ratio);
      return saida;
    case ModoRatio::acRate:
      acRateTest(listas, saida, opcoes.ordem, opcoes.acRate);
      return saida;
  }
  tvm::erro("Erro: modo invalido");
}
