// Work that may crash a library, done in a helper program of our own.
// libhdf5 1.10 reads some damaged files out of bounds and dies by a signal;
// in a helper, that death becomes one error line and the tool goes on (a
// sweep, to its next unit). The helper is started once, by posix_spawn, and
// answers requests one at a time over a socket: a fork of this process would
// copy locks other threads hold (the allocator's, the loader's) and could
// wait on them forever. A helper that dies is started again on the next
// request; it ends when this process ends or closes its socket.
#pragma once

#include <string>

namespace tvm {

// Sends `pedido` to the helper program `programa` (found beside this program
// or one folder up, as the plug-ins are) and returns its answer. An error the
// helper reports is thrown here with its message; a helper killed by a signal
// stops the tool with "Erro: " + `oque` + " terminou pelo sinal N". Safe from
// any thread: requests wait their turn.
std::string pedeAoAjudante(const char* programa, const std::string& pedido, const std::string& oque);

// The helper's side: reads each request from standard input, answers it
// with `atende` on standard output, and returns when its input ends. A
// tvm::Erro (or other exception) thrown by `atende` goes back as the error.
int serveAjudante(std::string (*atende)(const std::string& pedido));

}  // namespace tvm
