// The command table: one row per tool, read by both the dispatcher and the
// help list. The tools of detectors, descriptors and matchers come from the
// table of algorithms (algoritmos/tabela.hpp), in its order.
#pragma once

#include "support/memoria.hpp"

#include <string>
#include <vector>

using Ferramenta = void (*)(int argc, char** argv);

struct Comando {
  std::string chave;       // lower-case command word
  Ferramenta ferramenta;   // called with argv[0] = the command word as typed
  const char* ajuda;       // the help list's row
  tvm::Heap heap = tvm::Heap::comoVem;  // the memory lever that pays for this tool (support/memoria.hpp)
};

const std::vector<Comando>& comandos();

// The row whose key equals the lower-cased command word, or nullptr.
const Comando* achaComando(const char* palavraMinuscula);
void imprimeBanner();
void imprimeProgramas();
