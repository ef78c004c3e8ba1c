// quivelar-leitor, the reader helper (tvm::pedeAoAjudante): the HDF5 reads
// of the plug-in run there, so that a file on which libhdf5 dies costs one
// error line, not the tool. formats::leHloc, leHlocCasamentos and
// leProfundidade (leitor.cpp) send it their requests. Requests and answers
// are bytes in this build's own layout; both ends are this build.
#pragma once

#include <string>

namespace formats::leitor {

constexpr const char* kPrograma = "quivelar-leitor";

// The helper's answer to a request, read with the plug-in's readers.
std::string atende(const std::string& pedido);

}  // namespace formats::leitor
