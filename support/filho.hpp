// Work that may crash a library, done in a child process. libhdf5 1.10 reads
// some damaged files out of bounds and dies by a signal; in a child, that
// death becomes one error line and the tool goes on (a sweep, to its next
// unit). Each call is one fork: the child does the whole read and hands back
// its result as bytes through a pipe. The parent never calls the library, so
// the library also never runs on two threads at once.
#pragma once

#include <functional>
#include <string>

namespace tvm {

// Runs `trabalho` in a child and returns the bytes it returned. A tvm::Erro
// thrown there is thrown here with the same message; a child killed by a
// signal stops the tool with "Erro: " + `oque` + " terminou pelo sinal N".
std::string emFilho(const std::function<std::string()>& trabalho, const std::string& oque);

}  // namespace tvm
