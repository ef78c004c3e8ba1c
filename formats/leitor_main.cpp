// quivelar-leitor: the reader helper (formats/leitor.hpp), started by the
// program when it first reads an HDF5 file.
#include "formats/leitor.hpp"
#include "support/ajudante.hpp"

int main() { return tvm::serveAjudante(formats::leitor::atende); }
