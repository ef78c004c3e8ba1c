// Error exit of every tool.
//
// A tool never returns a status: on failure it calls tvm::erro, which throws
// tvm::Erro. main() catches it once, prints the message on stderr and exits
// with status 1. Throwing instead of calling exit() lets destructors run, so
// temporary output files are removed and tests can call tools in-process.
#pragma once

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvm {

class Erro : public std::runtime_error {
 public:
  explicit Erro(const std::string& mensagem) : std::runtime_error(mensagem) {}
};

// The message is a + b + c: a fixed text, then (usually) a variable part such
// as a file name or an unknown word.
[[noreturn]] void erro(const std::string& a, const std::string& b = "", const std::string& c = "");

// A tool called with the wrong number of words: prints its usage lines on
// stdout, one puts each, then stops with "Erro: Numero de argumentos invalido".
[[noreturn]] void falhaUso(std::initializer_list<const char*> linhas);
[[noreturn]] void falhaUso(const std::vector<const char*>& linhas);

}  // namespace tvm
