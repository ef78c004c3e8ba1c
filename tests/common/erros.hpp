// In-process checks of the one failure path: what tvm::erro said.
#pragma once

#include "support/argumentos.hpp"
#include "support/erro.hpp"

#include <functional>
#include <string>
#include <vector>

namespace teste {

// The message `f` stopped with, or "(sem erro)" when it returned.
inline std::string mensagemDe(const std::function<void()>& f) {
  try {
    f();
  } catch (const tvm::Erro& e) {
    return e.what();
  }
  return "(sem erro)";
}

// Words as a tool receives them in argv, kept alive for an ISTR built on them.
struct Palavras {
  explicit Palavras(std::vector<std::string> w) : texto(std::move(w)) {
    for (std::string& s : texto) ptrs.push_back(s.data());
  }
  int n() const { return static_cast<int>(ptrs.size()); }
  char** argv() { return ptrs.data(); }
  tvm::ISTR istr() { return tvm::ISTR(n(), argv()); }

  std::vector<std::string> texto;
  std::vector<char*> ptrs;
};

}  // namespace teste
