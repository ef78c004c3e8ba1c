// Running another program: the external feature extractors of a sweep.
#pragma once

#include <string>

namespace tvm {

// Runs `comando` with /bin/sh -c, its standard input from /dev/null, its
// standard output discarded and its standard error into the file
// `arquivoErro`; waits for it. Returns its exit status, or 128 + the
// signal that ended it. Stops when the shell cannot be started.
int executa(const std::string& comando, const std::string& arquivoErro);

// `texto` quoted for /bin/sh: between single quotes, each quote inside as '\''.
std::string aspasShell(const std::string& texto);

// The size and modification time of a file as text ("-" when it is not
// there): enough to tell that it changed.
std::string marcaDoArquivo(const std::string& arquivo);

}  // namespace tvm
