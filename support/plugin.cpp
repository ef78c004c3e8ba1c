#include "support/plugin.hpp"

#include "support/erro.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace tvm {

std::string pastaDoPrograma() {
  char caminho[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", caminho, sizeof caminho - 1);
  if (n <= 0) return "";
  const std::string programa(caminho, static_cast<size_t>(n));
  return programa.substr(0, programa.find_last_of('/') + 1);
}

void* carregaPlugin(const char* biblioteca) {
  // Beside the program, or one folder up (the tests and benchmarks live in
  // subfolders of the build); then the run path. The run path alone is not
  // enough: under the sanitizers dlopen does not see the program's own.
  // dlopen counts references and returns the same handle on later calls.
  const std::string pasta = pastaDoPrograma();
  for (const std::string& caminho : {pasta + biblioteca, pasta + "../" + biblioteca, std::string(biblioteca)})
    if (void* plugin = ::dlopen(caminho.c_str(), RTLD_NOW | RTLD_LOCAL)) return plugin;
  erro("Erro: biblioteca nao carregada ", biblioteca, std::string(": ") + ::dlerror());
}

void* simboloPlugin(void* plugin, const char* nome) {
  void* simbolo = ::dlsym(plugin, nome);
  if (simbolo == nullptr) erro("Erro: simbolo ausente na biblioteca ", nome);
  return simbolo;
}

}  // namespace tvm
