// Option words read against a row's option list (algoritmos/tabela.hpp), so
// that a default is written once, in the row, and the help, the README and
// the builder all read it there.
#pragma once

#include "algoritmos/tabela.hpp"

#include <string>
#include <utility>
#include <vector>

namespace algoritmos {

class Valores {
 public:
  // Consumes from `in` the words of every option of `opcoes`; the rest is
  // left for the caller's check of leftovers. `alg` names the algorithm in
  // messages ("Erro: orb.nlevels fora do intervalo (1 a 32)").
  Valores(const char* alg, const std::vector<Opcao>& opcoes, tvm::ISTR& in);

  // The value of option `nome`, checked against [menor, maior].
  int inteiro(const char* nome, int menor, int maior) const;
  double real(const char* nome, double menor, double maior) const;
  bool sim(const char* nome) const;
  // One of the words of `escolhas` (any letter case), as its number.
  int escolha(const char* nome, const std::vector<std::pair<const char*, int>>& escolhas) const;

 private:
  const std::string& texto(const char* nome) const;
  [[noreturn]] void foraDoIntervalo(const char* nome, const std::string& limites) const;

  std::string alg_;
  std::vector<std::pair<std::string, std::string>> valores_;
};

}  // namespace algoritmos
