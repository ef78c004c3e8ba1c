// The argument stream: words (separated by NUL bytes in the input) cut into
// tokens, then look-ups of every type and some reads. Whatever the words:
// - the token count is what the cutting rule gives, counted here apart: each
//   blank-free piece of a word makes one token more than it has '=' and ',';
// - no token holds a blank, '=' or ',';
// - the leftover is empty exactly when no unconsumed token is left, checked
//   after the look-ups and again after reading part of what remains.
#include "support/argumentos.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <cctype>
#include <string>
#include <vector>

namespace {

int tokensEsperados(const std::vector<std::string>& words) {
  int n = 0;
  for (const std::string& w : words) {
    bool dentro = false;
    for (unsigned char ch : w) {
      if (std::isspace(ch)) {
        dentro = false;
        continue;
      }
      if (!dentro) ++n;
      dentro = true;
      if (ch == '=' || ch == ',') ++n;
    }
  }
  return n;
}

void confereResto(const tvm::ISTR& in) {
  if (in.resto().empty() != (in.proximo() < 0)) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> words(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0)
      words.emplace_back();
    else
      words.back() += static_cast<char>(data[i]);
  }
  std::vector<char*> ptrs;
  for (std::string& w : words) ptrs.push_back(w.data());

  fuzz::aceitaErro([&] {
    tvm::ISTR in(static_cast<int>(ptrs.size()), ptrs.data());
    if (in.tamanho() != tokensEsperados(words)) __builtin_trap();
    for (int i = 0; i < in.tamanho(); ++i)
      for (unsigned char ch : in.token(i))
        if (std::isspace(ch) || ch == '=' || ch == ',') __builtin_trap();
    int inteiro = 0;
    double real = 0;
    bool booleano = false;
    std::string texto, arquivo;
    tvm::seekArg(in, "key", arquivo);
    tvm::seekArg(in, "camadas", inteiro);
    tvm::seekArg(in, "ratio", real);
    tvm::seekArg(in, "bcinv", booleano);
    tvm::seekArg(in, "modo", texto);
    confereResto(in);
    // Read about half of what is left (a word may itself be "eof").
    int restantes = 0;
    for (int i = in.proximo(); i >= 0; i = in.proximo(i + 1)) ++restantes;
    for (int lidos = 0; lidos < restantes / 2 && in.proximo() >= 0; ++lidos) {
      const std::string t = tvm::leStr(in);
      if (t == "cor") {
        uchar b = 0;
        tvm::leNum(in, b);
      } else if (t == "dist") {
        tvm::leNum(in, real);
      }
    }
    confereResto(in);
  });
  return 0;
}
