// The argument stream: words (separated by NUL bytes in the input) cut into
// tokens, then look-ups of every type and reads to the end; whatever the
// words, the leftover must be empty exactly when every token was consumed.
#include "support/argumentos.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <string>
#include <vector>

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
    int inteiro = 0;
    double real = 0;
    bool booleano = false;
    std::string texto, arquivo;
    tvm::seekFileName(in, "key", arquivo);
    tvm::seekArg(in, "camadas", inteiro);
    tvm::seekArg(in, "ratio", real);
    tvm::seekArg(in, "bcinv", booleano);
    tvm::seekArg(in, "modo", texto);
    // Read while tokens remain (a word may itself be "eof").
    while (in.proximo() >= 0) {
      const std::string t = tvm::leStr(in);
      if (t == "cor") {
        uchar b = 0;
        tvm::leNum(in, b);
      } else if (t == "dist") {
        tvm::leNum(in, real);
      }
    }
    if (!in.resto().empty()) __builtin_trap();
  });
  return 0;
}
