#include "algoritmos/opcoes.hpp"

#include "support/erro.hpp"
#include "support/numeros.hpp"

namespace algoritmos {

Valores::Valores(const char* alg, const std::vector<Opcao>& opcoes, tvm::ISTR& in) : alg_(alg) {
  for (const Opcao& o : opcoes) {
    std::string v = o.padrao;
    tvm::seekArg(in, o.nome, v);
    valores_.emplace_back(o.nome, v);
  }
}

const std::string& Valores::texto(const char* nome) const {
  for (const auto& [n, v] : valores_)
    if (n == nome) return v;
  // A builder asking for an option its row does not list is a bug here.
  tvm::erro("Erro: opcao sem linha na tabela ", alg_ + "." + nome);
}

void Valores::foraDoIntervalo(const char* nome, const std::string& limites) const {
  tvm::erro("Erro: ", alg_ + "." + nome, " fora do intervalo (" + limites + ")");
}

int Valores::inteiro(const char* nome, int menor, int maior) const {
  int v = 0;
  tvm::convArg(v, texto(nome));
  if (v < menor || v > maior) foraDoIntervalo(nome, std::to_string(menor) + " a " + std::to_string(maior));
  return v;
}

double Valores::real(const char* nome, double menor, double maior) const {
  double v = 0;
  tvm::convArg(v, texto(nome));
  if (!(v >= menor && v <= maior))
    foraDoIntervalo(nome, tvm::textoDeNumero(menor) + " a " + tvm::textoDeNumero(maior));
  return v;
}

bool Valores::sim(const char* nome) const {
  const std::string v = tvm::minuscula(texto(nome));
  if (v == "1" || v == "true") return true;
  if (v == "0" || v == "false") return false;
  tvm::erro("Erro: valor booleano invalido ", texto(nome));
}

int Valores::escolha(const char* nome, const std::vector<std::pair<const char*, int>>& escolhas) const {
  const std::string v = tvm::minuscula(texto(nome));
  std::string lista;
  for (const auto& [palavra, valor] : escolhas) {
    if (v == palavra) return valor;
    lista += (lista.empty() ? "" : "|") + std::string(palavra);
  }
  tvm::erro("Erro: ", alg_ + "." + nome, " deve ser " + lista + ": " + v);
}

}  // namespace algoritmos
