#include "support/arquivos.hpp"

#include "support/erro.hpp"

#include <glob.h>

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

}  // namespace tvm
