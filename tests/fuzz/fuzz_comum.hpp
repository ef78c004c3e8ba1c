// What the fuzz targets share: the input written to a scratch file for the
// readers that take file names, and the one failure a reader may report.
#pragma once

#include "support/erro.hpp"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace fuzz {

// A scratch file per process, rewritten for every input.
inline std::string escreveEntrada(const uint8_t* data, size_t size, const std::string& extensao) {
  const std::string nome = "/tmp/quivelar-fuzz-" + std::to_string(::getpid()) + extensao;
  FILE* f = std::fopen(nome.c_str(), "wb");
  if (f) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
  }
  return nome;
}

// Runs `f`; a tvm::Erro is the expected way to reject bad input. Anything else
// escaping (another exception, a crash, a sanitizer report) is a finding.
template <typename F>
void aceitaErro(F&& f) {
  try {
    f();
  } catch (const tvm::Erro&) {
  }
}

}  // namespace fuzz
