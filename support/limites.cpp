#include "support/limites.hpp"

#include "support/erro.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

namespace tvm {

namespace {

constexpr int64_t kMega = 1000000;

// A positive whole number from variable `nome`, or `padrao` when it is unset.
int64_t variavel(const char* nome, int64_t padrao) {
  const char* texto = std::getenv(nome);
  if (texto == nullptr) return padrao;
  char* fim = nullptr;
  errno = 0;
  const long long v = std::strtoll(texto, &fim, 10);
  // The largest value still counts bytes in an int64_t after * 10^6.
  if (fim == texto || *fim != '\0' || errno != 0 || v <= 0 || v > std::numeric_limits<int64_t>::max() / kMega)
    erro("Erro: variavel de ambiente ", nome, std::string(" invalida: '") + texto + "' (deve ser um inteiro positivo)");
  return v;
}

// The value of the first line of `arquivo` that starts with `chave`, in
// kB; -1 when there is none.
int64_t kbDe(const char* arquivo, const std::string& chave) {
  std::ifstream f(arquivo);
  for (std::string linha; std::getline(f, linha);)
    if (linha.rfind(chave, 0) == 0) {
      std::istringstream in(linha.substr(chave.size()));
      int64_t kb = -1;
      return in >> kb ? kb : -1;
    }
  return -1;
}

// A cgroup v2 number ("max" means no limit); -1 when unreadable.
int64_t numeroCgroup(const char* arquivo) {
  std::ifstream f(arquivo);
  int64_t v = -1;
  return f >> v ? v : -1;
}

std::string mb(double bytes) { return std::to_string(static_cast<long long>(bytes / kMega + 0.5)); }

}  // namespace

int64_t limitePixels() { return variavel("QUIVELAR_MAX_MEGAPIXELS", kMegapixelsPadrao) * kMega; }

int64_t limiteStoreBytes() { return variavel("QUIVELAR_MAX_STORE_MB", kStoreMbPadrao) * kMega; }

void verificaPixels(int64_t largura, int64_t altura, const std::string& file) {
  const int64_t limite = limitePixels();
  // The decoders pass sides below 2^31, so the product fits.
  if (largura * altura > limite)
    erro("Erro: imagem " + file + " de " + std::to_string(largura) + "x" + std::to_string(altura) +
             " pixels passa do limite de " + std::to_string(limite / kMega),
         " megapixels (QUIVELAR_MAX_MEGAPIXELS muda o limite)");
}

int64_t memoriaDisponivel() {
  if (std::getenv("QUIVELAR_MAX_MEMORIA_MB")) return variavel("QUIVELAR_MAX_MEMORIA_MB", 0) * kMega;
  int64_t livre = -1;
  const int64_t kb = kbDe("/proc/meminfo", "MemAvailable:");
  if (kb >= 0) livre = kb * 1024;
  const int64_t maximo = numeroCgroup("/sys/fs/cgroup/memory.max"), usado = numeroCgroup("/sys/fs/cgroup/memory.current");
  if (maximo >= 0 && usado >= 0) {
    const int64_t resta = maximo > usado ? maximo - usado : 0;
    livre = livre < 0 ? resta : std::min(livre, resta);
  }
  return livre;
}

void verificaMemoria(double bytes, const std::string& oque) {
  const int64_t livre = memoriaDisponivel();
  if (livre >= 0 && bytes > static_cast<double>(livre))
    erro("Erro: " + oque + " precisaria de cerca de " + mb(bytes) + " MB, mais que os " + mb(static_cast<double>(livre)),
         " MB de memoria disponivel (QUIVELAR_MAX_MEMORIA_MB muda o limite)");
}

}  // namespace tvm
