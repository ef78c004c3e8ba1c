#include "support/arquivos.hpp"

#include "support/erro.hpp"

#include <glob.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

namespace tvm {

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
