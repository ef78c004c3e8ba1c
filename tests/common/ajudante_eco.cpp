// A helper for tests/unit/ajudante_test.cpp: "eco X" answers X, "erro M"
// fails with M, "sinal" dies by SIGSEGV, "pid" answers its process id.
#include "support/ajudante.hpp"
#include "support/erro.hpp"

#include <unistd.h>

#include <csignal>
#include <string>

namespace {

std::string atende(const std::string& pedido) {
  if (pedido.rfind("eco ", 0) == 0) return pedido.substr(4);
  if (pedido.rfind("erro ", 0) == 0) tvm::erro(pedido.substr(5));
  if (pedido == "sinal") std::raise(SIGSEGV);
  if (pedido == "pid") return std::to_string(::getpid());
  tvm::erro("Erro: pedido desconhecido: ", pedido);
}

}  // namespace

int main() { return tvm::serveAjudante(atende); }
