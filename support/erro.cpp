#include "support/erro.hpp"

#include <cstdio>

namespace tvm {

void erro(const std::string& a, const std::string& b, const std::string& c) { throw Erro(a + b + c); }

void falhaUso(std::initializer_list<const char*> linhas) { falhaUso(std::vector<const char*>(linhas)); }

void falhaUso(const std::vector<const char*>& linhas) {
  for (const char* linha : linhas) std::puts(linha);
  erro("Erro: Numero de argumentos invalido");
}

}  // namespace tvm
