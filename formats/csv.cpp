#include "formats/csv.hpp"

#include "support/arquivos.hpp"
#include "support/erro.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace formats {

namespace {

// An exclusive lock on the file's folder for the life of the object: the
// read, append and rename of one run then never interleave with another's.
class TravaPasta {
 public:
  explicit TravaPasta(const std::string& arquivo) {
    const size_t barra = arquivo.find_last_of('/');
    const std::string pasta = barra == std::string::npos ? "." : barra == 0 ? "/" : arquivo.substr(0, barra);
    fd_ = ::open(pasta.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
  }
  ~TravaPasta() {
    if (fd_ >= 0) ::close(fd_);
  }
  TravaPasta(const TravaPasta&) = delete;
  TravaPasta& operator=(const TravaPasta&) = delete;

 private:
  int fd_ = -1;
};

}  // namespace

std::string campoCSV(const std::string& texto) {
  if (texto.find_first_of(",\"\n\r") == std::string::npos) return texto;
  std::string r = "\"";
  for (char c : texto) {
    if (c == '"') r += '"';
    r += c;
  }
  return r + "\"";
}

void acrescentaCSV(const std::string& arquivo, const std::string& cabecalho, const std::string& linha,
                   tvm::SaidaSegura* junto) {
  const TravaPasta trava(arquivo);
  std::string texto;
  if (std::ifstream f{arquivo, std::ios::binary}) {
    std::ostringstream todo;
    todo << f.rdbuf();
    texto = todo.str();
  }
  if (texto.empty()) {
    texto = cabecalho + "\n";
  } else {
    const size_t fim = texto.find('\n');
    if (texto.compare(0, fim, cabecalho) != 0 || fim != cabecalho.size())
      tvm::erro("Erro: colunas diferentes das desta ferramenta em ", arquivo);
    if (texto.back() != '\n') texto += '\n';
  }
  tvm::SaidaSegura saida(arquivo);
  escreveTexto(saida, texto + linha + "\n");
  if (junto)
    tvm::SaidaSegura::confirmaJuntas({&saida, junto});
  else
    saida.confirma();
}

std::string tabelaCSV(const std::string& cabecalho, const std::vector<std::string>& linhas) {
  std::string texto = cabecalho + "\n";
  for (const std::string& l : linhas) texto += l + "\n";
  return texto;
}

void escreveTexto(tvm::SaidaSegura& saida, const std::string& texto) { saida.escreve(texto); }

}  // namespace formats
