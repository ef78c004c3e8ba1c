#include "tests/common/pasta_temp.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace teste {

PastaTemp::PastaTemp() {
  std::string modelo = (std::filesystem::temp_directory_path() / "quivelar-teste-XXXXXX").string();
  if (::mkdtemp(modelo.data()) == nullptr) throw std::runtime_error("mkdtemp");
  caminho_ = modelo;
}

PastaTemp::~PastaTemp() {
  std::error_code ignorado;
  std::filesystem::remove_all(caminho_, ignorado);
}

std::vector<std::string> PastaTemp::conteudo() const {
  std::vector<std::string> nomes;
  for (const auto& entrada : std::filesystem::directory_iterator(caminho_))
    nomes.push_back(entrada.path().filename().string());
  std::sort(nomes.begin(), nomes.end());
  return nomes;
}

std::string leTexto(const std::string& arquivo) {
  std::ifstream in(arquivo, std::ios::binary);
  std::ostringstream texto;
  texto << in.rdbuf();
  return texto.str();
}

void escreveTexto(const std::string& arquivo, const std::string& texto) {
  std::ofstream out(arquivo, std::ios::binary);
  out << texto;
}

}  // namespace teste
