#include "support/arquivos.hpp"

#include "support/erro.hpp"

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tvm {

SaidaSegura::SaidaSegura(std::string destino) : destino_(std::move(destino)) {
  const size_t barra = destino_.find_last_of('/');
  const std::string pasta = barra == std::string::npos ? "" : destino_.substr(0, barra + 1);
  const std::string nome = barra == std::string::npos ? destino_ : destino_.substr(barra + 1);
  // Numbered too, so that two outputs of one run never share a temporary.
  static int contador = 0;
  temporario_ = pasta + ".tmp" + std::to_string(::getpid()) + "." + std::to_string(contador++) + "." + nome;
  // The rename at the end would fail on a folder; a tool writing two files
  // must learn that before it confirms the first.
  struct stat info {};
  if (::stat(destino_.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) erro("Erro abertura arquivo ", destino_);
}

SaidaSegura::~SaidaSegura() {
  if (!confirmado_) std::remove(temporario_.c_str());
}

void SaidaSegura::confirma() {
  if (std::rename(temporario_.c_str(), destino_.c_str()) != 0) erro("Erro abertura arquivo ", destino_);
  confirmado_ = true;
}

bool Arquivo::fecha() {
  if (!f_) return false;
  const bool ok = std::ferror(f_) == 0;
  const bool fechou = std::fclose(f_) == 0;
  f_ = nullptr;
  return ok && fechou;
}

void vsWildCard(const std::string& pattern, std::vector<std::string>& names, bool exigeArquivo) {
  if (pattern.find_first_of("*?[") == std::string::npos) {
    names.push_back(pattern);
    return;
  }
  glob_t resultado{};
  const int status = ::glob(pattern.c_str(), 0, nullptr, &resultado);
  if (status == 0)
    for (size_t i = 0; i < resultado.gl_pathc; ++i) names.emplace_back(resultado.gl_pathv[i]);
  ::globfree(&resultado);
  if (status != 0 && exigeArquivo) erro("Erro: nenhum arquivo para ", pattern);
}

void criaPastas(const std::string& pasta) {
  for (size_t fim = pasta.find('/', 1);; fim = pasta.find('/', fim + 1)) {
    const std::string parte = pasta.substr(0, fim);
    if (!parte.empty() && mkdir(parte.c_str(), 0777) != 0 && errno != EEXIST)
      erro("Erro: nao foi possivel criar a pasta ", pasta);
    if (fim == std::string::npos) break;
  }
  struct stat st;
  if (stat(pasta.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) erro("Erro: nao foi possivel criar a pasta ", pasta);
}

}  // namespace tvm
