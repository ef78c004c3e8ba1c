#include "support/argumentos.hpp"

#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cctype>

namespace tvm {

namespace {

// Splits one blank-free piece at '=' and ',', keeping empty fields ("modo=").
void cortaPedaco(const std::string& pedaco, std::vector<std::string>& tokens) {
  std::string atual;
  for (char ch : pedaco) {
    if (ch == '=' || ch == ',') {
      tokens.push_back(atual);
      atual.clear();
    } else {
      atual += ch;
    }
  }
  tokens.push_back(atual);
}

bool iguaisSemCaixa(const std::string& a, const std::string& b) {
  return a.size() == b.size() && minuscula(a) == minuscula(b);
}

// Finds `key` with a value token after it; returns the value's index or -1.
int achaValor(ISTR& in, const std::string& key) {
  for (int i = in.proximo(); i >= 0; i = in.proximo(i + 1)) {
    if (!iguaisSemCaixa(in.token(i), key)) continue;
    if (i + 1 >= in.tamanho()) return -1;
    in.consome(i);
    in.consome(i + 1);
    return i + 1;
  }
  return -1;
}

bool textoBooleano(const std::string& text, bool& value) {
  const std::string t = minuscula(text);
  if (t == "true" || t == "1") {
    value = true;
    return true;
  }
  if (t == "false" || t == "0") {
    value = false;
    return true;
  }
  return false;
}

}  // namespace

ISTR::ISTR(int n, char** words) {
  for (int w = 0; w < n; ++w) {
    const std::string word = words[w];
    size_t i = 0;
    while (i < word.size()) {
      while (i < word.size() && std::isspace(static_cast<unsigned char>(word[i]))) ++i;
      size_t fim = i;
      while (fim < word.size() && !std::isspace(static_cast<unsigned char>(word[fim]))) ++fim;
      if (fim > i) cortaPedaco(word.substr(i, fim - i), tokens_);
      i = fim;
    }
  }
  consumido_.assign(tokens_.size(), false);
}

std::string ISTR::resto() const {
  std::string texto;
  for (size_t i = 0; i < tokens_.size(); ++i) {
    if (consumido_[i]) continue;
    if (!texto.empty()) texto += ' ';
    texto += tokens_[i].empty() ? std::string("\"\"") : tokens_[i];
  }
  return texto;
}

int ISTR::proximo(size_t inicio) const {
  for (size_t i = inicio; i < tokens_.size(); ++i)
    if (!consumido_[i]) return static_cast<int>(i);
  return -1;
}

bool seekArg(ISTR& in, const std::string& key, int& value) {
  const int i = achaValor(in, key);
  if (i < 0) return false;
  convArg(value, in.token(i));
  return true;
}

bool seekArg(ISTR& in, const std::string& key, double& value) {
  const int i = achaValor(in, key);
  if (i < 0) return false;
  convArg(value, in.token(i));
  return true;
}

bool seekArg(ISTR& in, const std::string& key, bool& value) {
  const int i = achaValor(in, key);
  if (i < 0) return false;
  if (!textoBooleano(in.token(i), value)) erro("Erro: valor booleano invalido ", in.token(i));
  return true;
}

bool seekArg(ISTR& in, const std::string& key, std::string& value) {
  const int i = achaValor(in, key);
  if (i < 0) return false;
  value = in.token(i);
  return true;
}

void seekArgs(ISTR& in, std::initializer_list<OpcaoNum> opcoes) {
  for (const OpcaoNum& o : opcoes) {
    if (o.inteiro)
      seekArg(in, o.chave, *o.inteiro);
    else
      seekArg(in, o.chave, *o.real);
  }
}

std::string leStr(ISTR& in) {
  const int i = in.proximo();
  if (i < 0) return "eof";
  in.consome(i);
  return in.token(i);
}

std::string leFileName(ISTR& in) {
  const int i = in.proximo();
  if (i < 0) return "";
  in.consome(i);
  return in.token(i);
}

void leNum(ISTR& in, double& value) {
  const int i = in.proximo();
  if (i < 0) erro("Erro: falta um valor numerico");
  in.consome(i);
  convArg(value, in.token(i));
}

void leNum(ISTR& in, uchar& value) {
  const int i = in.proximo();
  if (i < 0) erro("Erro: falta um valor numerico");
  in.consome(i);
  int v = 0;
  if (!textoParaInt(in.token(i), v) || v < 0 || v > 255) erro("Erro: valor fora de 0 a 255 ", in.token(i));
  value = static_cast<uchar>(v);
}

void convArg(int& value, const std::string& text) {
  if (!textoParaInt(text, value)) erro("Erro: numero inteiro invalido ", text);
}

void convArg(double& value, const std::string& text) {
  if (!textoParaDouble(text, value)) erro("Erro: numero invalido ", text);
}

std::string minuscula(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
  return text;
}

}  // namespace tvm
