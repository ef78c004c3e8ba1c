// Our plug-ins: small shared libraries built beside the program that carry
// the heavy OpenCV modules (image codecs, windows). Linking those modules
// directly would load about 120 libraries at every start, a cost most tools
// never need; a plug-in is loaded on first use instead.
#pragma once

#include <string>

namespace tvm {

// The folder of the running program, with its final slash ("" when unknown).
std::string pastaDoPrograma();

// Loads `biblioteca` (found through the program's run path) once; the handle
// stays for the rest of the run. A missing plug-in stops the tool.
void* carregaPlugin(const char* biblioteca);

// The address of `nome` in `plugin`; a missing symbol stops the tool.
void* simboloPlugin(void* plugin, const char* nome);

template <typename Funcao>
Funcao funcaoPlugin(const char* biblioteca, const char* nome) {
  return reinterpret_cast<Funcao>(simboloPlugin(carregaPlugin(biblioteca), nome));
}

}  // namespace tvm
