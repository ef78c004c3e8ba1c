#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cctype>
#include <stdexcept>

namespace teste {

namespace {

void fechaSeAberto(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

[[noreturn]] void filho(const std::vector<std::string>& args, const std::string& pasta, int out, int err) {
  ::dup2(out, STDOUT_FILENO);
  ::dup2(err, STDERR_FILENO);
  const int nada = ::open("/dev/null", O_RDONLY);
  ::dup2(nada, STDIN_FILENO);
  if (!pasta.empty() && ::chdir(pasta.c_str()) != 0) ::_exit(127);
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(QUIVELAR_BIN));
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  ::execv(QUIVELAR_BIN, argv.data());
  ::_exit(127);
}

}  // namespace

Execucao roda(const std::vector<std::string>& args, const std::string& pasta, double limiteSegundos) {
  int out[2], err[2];
  // Close-on-exec: a child started by another thread must not hold these
  // pipes open, or this run would wait for that one to end.
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork");
  if (pid == 0) filho(args, pasta, out[1], err[1]);
  ::close(out[1]);
  ::close(err[1]);

  Execucao e;
  int fds[2] = {out[0], err[0]};
  std::string* destinos[2] = {&e.out, &e.err};
  const auto fim = std::chrono::steady_clock::now() + std::chrono::duration<double>(limiteSegundos);
  while (fds[0] >= 0 || fds[1] >= 0) {
    const auto resta = std::chrono::duration_cast<std::chrono::milliseconds>(fim - std::chrono::steady_clock::now());
    if (resta.count() <= 0) {
      e.estourou = true;
      ::kill(pid, SIGKILL);
      break;
    }
    pollfd p[2] = {{fds[0], POLLIN, 0}, {fds[1], POLLIN, 0}};
    if (::poll(p, 2, static_cast<int>(resta.count())) < 0) continue;
    for (int k = 0; k < 2; ++k) {
      if (fds[k] < 0 || !(p[k].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buf[4096];
      const ssize_t n = ::read(fds[k], buf, sizeof buf);
      if (n > 0)
        destinos[k]->append(buf, static_cast<size_t>(n));
      else
        fechaSeAberto(fds[k]);
    }
  }
  fechaSeAberto(fds[0]);
  fechaSeAberto(fds[1]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (WIFEXITED(status)) e.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) e.sinal = WTERMSIG(status);
  return e;
}

namespace {

// "Tempo gasto=" digits "." two digits "s", the whole of `linha`.
bool linhaDeTempo(const std::string& linha) {
  const std::string prefixo = "Tempo gasto=";
  if (linha.rfind(prefixo, 0) != 0 || linha.size() < prefixo.size() + 5 || linha.back() != 's') return false;
  const std::string numero = linha.substr(prefixo.size(), linha.size() - prefixo.size() - 1);
  const size_t ponto = numero.find('.');
  if (ponto == std::string::npos || ponto == 0 || numero.size() - ponto - 1 != 2) return false;
  for (size_t i = 0; i < numero.size(); ++i)
    if (i != ponto && !std::isdigit(static_cast<unsigned char>(numero[i]))) return false;
  return true;
}

}  // namespace

std::string semTempo(const std::string& out) {
  if (out.empty() || out.back() != '\n') return out + "<sem linha de tempo>";
  const size_t inicio = out.find_last_of('\n', out.size() - 2);
  const size_t comeco = inicio == std::string::npos ? 0 : inicio + 1;
  if (!linhaDeTempo(out.substr(comeco, out.size() - 1 - comeco))) return out + "<sem linha de tempo>";
  return out.substr(0, comeco);
}

bool terminaCom(const std::string& texto, const std::string& fim) {
  if (texto.size() < fim.size() || texto.compare(texto.size() - fim.size(), fim.size(), fim) != 0) return false;
  return texto.size() == fim.size() || texto[texto.size() - fim.size() - 1] == '\n';
}

void confereFalha(const CasoFalha& c, const PastaTemp& pasta) {
  const std::vector<std::string> antes = pasta.conteudo();
  const Execucao e = roda(c.args, pasta.caminho(), 60);
  EXPECT_EQ(e.out, c.out) << c.nome;
  EXPECT_TRUE(terminaCom(e.err, c.err)) << c.nome << ": " << e.err;
  EXPECT_EQ(e.status, 1) << c.nome;
  EXPECT_EQ(e.sinal, 0) << c.nome;
  EXPECT_EQ(pasta.conteudo(), antes) << c.nome;
}

}  // namespace teste
