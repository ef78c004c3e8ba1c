#include "support/filho.hpp"

#include "support/erro.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tvm {

namespace {

// Writes all of `s`; false when the pipe closed.
bool escreveTudo(int fd, const std::string& s) {
  for (size_t feito = 0; feito < s.size();) {
    const ssize_t n = ::write(fd, s.data() + feito, s.size() - feito);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    feito += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::string emFilho(const std::function<std::string()>& trabalho, const std::string& oque) {
  int canal[2];
  if (::pipe(canal) != 0) erro("Erro: sem recursos para ler ", oque);
  const pid_t pid = ::fork();
  if (pid < 0) {
    ::close(canal[0]);
    ::close(canal[1]);
    erro("Erro: sem recursos para ler ", oque);
  }
  if (pid == 0) {
    ::close(canal[0]);
    // A crash ends the child by its signal, which the parent reports, even
    // where a sanitizer would catch it and print a report of its own.
    for (int sinal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) ::signal(sinal, SIG_DFL);
    std::string r;
    try {
      r = "O" + trabalho();
    } catch (const Erro& e) {
      r = std::string("E") + e.what();
    } catch (const std::exception& e) {
      r = std::string("EErro: ") + e.what();
    }
    ::_exit(escreveTudo(canal[1], r) ? 0 : 1);
  }
  ::close(canal[1]);
  std::string r;
  char bloco[1 << 16];
  for (;;) {
    const ssize_t n = ::read(canal[0], bloco, sizeof bloco);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    r.append(bloco, static_cast<size_t>(n));
  }
  ::close(canal[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) erro("Erro: perdi o processo que lia ", oque);
  if (WIFSIGNALED(status)) erro("Erro: " + oque + " terminou pelo sinal ", std::to_string(WTERMSIG(status)));
  if (r.empty() || !WIFEXITED(status) || WEXITSTATUS(status) != 0) erro("Erro: " + oque + " falhou");
  if (r[0] == 'E') throw Erro(r.substr(1));
  return r.substr(1);
}

}  // namespace tvm
