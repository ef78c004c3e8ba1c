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

int TabelaCSV::coluna(const std::string& nome) const {
  for (size_t i = 0; i < colunas.size(); ++i)
    if (colunas[i] == nome) return static_cast<int>(i);
  return -1;
}

bool analisaCSV(const std::string& texto, TabelaCSV& tabela) {
  tabela = TabelaCSV();
  std::vector<std::vector<std::string>> linhas;
  std::vector<std::string> campos;
  std::string campo;
  bool aspas = false, linhaVazia = true;
  auto fechaLinha = [&] {
    if (!linhaVazia) {
      campos.push_back(campo);
      linhas.push_back(campos);
    }
    campos.clear();
    campo.clear();
    linhaVazia = true;
  };
  for (size_t i = 0; i < texto.size(); ++i) {
    const char c = texto[i];
    if (aspas) {
      if (c != '"') {
        campo += c;
      } else if (i + 1 < texto.size() && texto[i + 1] == '"') {
        campo += '"';
        ++i;
      } else {
        aspas = false;
      }
    } else if (c == '"') {
      aspas = true;
      linhaVazia = false;
    } else if (c == ',') {
      campos.push_back(campo);
      campo.clear();
      linhaVazia = false;
    } else if (c == '\n') {
      fechaLinha();
    } else if (c != '\r') {
      campo += c;
      linhaVazia = false;
    }
  }
  if (aspas) return false;
  fechaLinha();
  if (linhas.empty()) return false;
  tabela.colunas = linhas.front();
  for (size_t i = 1; i < linhas.size(); ++i) {
    if (linhas[i].size() != tabela.colunas.size()) return false;
    tabela.linhas.push_back(std::move(linhas[i]));
  }
  return true;
}

TabelaCSV leTabelaCSV(const std::string& arquivo) {
  std::ifstream f{arquivo, std::ios::binary};
  if (!f) tvm::erro("Erro abertura arquivo ", arquivo);
  std::ostringstream todo;
  todo << f.rdbuf();
  TabelaCSV tabela;
  if (!analisaCSV(todo.str(), tabela)) tvm::erro("Erro: tabela CSV mal formada em ", arquivo);
  tabela.arquivo = arquivo;
  return tabela;
}

}  // namespace formats
