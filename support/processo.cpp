#include "support/processo.hpp"

#include "support/erro.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace tvm {

int executa(const std::string& comando, const std::string& arquivoErro) {
  posix_spawn_file_actions_t acoes;
  posix_spawn_file_actions_init(&acoes);
  posix_spawn_file_actions_addopen(&acoes, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&acoes, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&acoes, 2, arquivoErro.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const char* args[] = {"/bin/sh", "-c", comando.c_str(), nullptr};
  pid_t pid = 0;
  const int falha = posix_spawn(&pid, "/bin/sh", &acoes, nullptr, const_cast<char* const*>(args), environ);
  posix_spawn_file_actions_destroy(&acoes);
  if (falha != 0) erro("Erro: nao consegui executar /bin/sh para ", comando);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) erro("Erro: perdi o processo de ", comando);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string aspasShell(const std::string& texto) {
  std::string r = "'";
  for (char c : texto) r += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return r + "'";
}

std::vector<std::string> palavrasShell(const std::string& comando) {
  std::vector<std::string> palavras;
  std::string atual;
  bool temPalavra = false;
  for (size_t i = 0; i < comando.size(); ++i) {
    const char c = comando[i];
    if (c == ' ' || c == '\t' || c == '\n') {
      if (temPalavra) palavras.push_back(atual);
      atual.clear();
      temPalavra = false;
      continue;
    }
    temPalavra = true;
    if (c == '\'') {
      const size_t fim = comando.find('\'', i + 1);
      atual += comando.substr(i + 1, fim == std::string::npos ? std::string::npos : fim - i - 1);
      i = fim == std::string::npos ? comando.size() : fim;
    } else if (c == '"') {
      // Inside double quotes a backslash escapes only $ ` " \ and newline.
      for (++i; i < comando.size() && comando[i] != '"'; ++i) {
        if (comando[i] == '\\' && i + 1 < comando.size() &&
            std::string("$`\"\\\n").find(comando[i + 1]) != std::string::npos)
          ++i;
        atual += comando[i];
      }
    } else if (c == '\\' && i + 1 < comando.size()) {
      atual += comando[++i];
    } else {
      atual += c;
    }
  }
  if (temPalavra) palavras.push_back(atual);
  return palavras;
}

std::string marcaDoArquivo(const std::string& arquivo) {
  struct stat info {};
  if (::stat(arquivo.c_str(), &info) != 0) return "-";
  return std::to_string(info.st_size) + "@" + std::to_string(info.st_mtim.tv_sec) + "." +
         std::to_string(info.st_mtim.tv_nsec);
}

}  // namespace tvm
