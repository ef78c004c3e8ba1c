// Running another program: the external feature extractors of a sweep.
#pragma once

#include <string>
#include <vector>

namespace tvm {

// Runs `comando` with /bin/sh -c, its standard input from /dev/null, its
// standard output discarded and its standard error into the file
// `arquivoErro`; waits for it. Returns its exit status, or 128 + the
// signal that ended it. Stops when the shell cannot be started.
int executa(const std::string& comando, const std::string& arquivoErro);

// `texto` quoted for /bin/sh: between single quotes, each quote inside as '\''.
std::string aspasShell(const std::string& texto);

// The words /bin/sh makes of `comando`, quotes and backslashes taken off:
// 'a b' and "a b" are one word, a backslash escapes the next character. Expansions
// ($, `, globs) are left as written; the words serve to name a command.
std::vector<std::string> palavrasShell(const std::string& comando);

// The size and modification time of a file as text ("-" when it is not
// there): enough to tell that it changed.
std::string marcaDoArquivo(const std::string& arquivo);

}  // namespace tvm
