#include "support/plugin.hpp"

#include "support/erro.hpp"

#include <dlfcn.h>

namespace tvm {

void* carregaPlugin(const char* biblioteca) {
  // dlopen counts references and returns the same handle on later calls.
  void* plugin = ::dlopen(biblioteca, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) erro("Erro: biblioteca nao carregada ", biblioteca, std::string(": ") + ::dlerror());
  return plugin;
}

void* simboloPlugin(void* plugin, const char* nome) {
  void* simbolo = ::dlsym(plugin, nome);
  if (simbolo == nullptr) erro("Erro: simbolo ausente na biblioteca ", nome);
  return simbolo;
}

}  // namespace tvm
