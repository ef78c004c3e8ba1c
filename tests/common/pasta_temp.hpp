// A fresh folder per test, removed with everything in it afterwards.
#pragma once

#include <string>
#include <vector>

namespace teste {

class PastaTemp {
 public:
  PastaTemp();
  ~PastaTemp();
  PastaTemp(const PastaTemp&) = delete;
  PastaTemp& operator=(const PastaTemp&) = delete;

  const std::string& caminho() const { return caminho_; }
  // caminho() + "/" + nome
  std::string operator/(const std::string& nome) const { return caminho_ + "/" + nome; }
  // Names of the entries in the folder, sorted; catches stray temporaries.
  std::vector<std::string> conteudo() const;

 private:
  std::string caminho_;
};

std::string leTexto(const std::string& arquivo);
void escreveTexto(const std::string& arquivo, const std::string& texto);

}  // namespace teste
