#include "support/ajudante.hpp"

#include "support/erro.hpp"
#include "support/plugin.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>

extern char** environ;

namespace tvm {

namespace {

// A frame: its length (uint64) and its bytes. MSG_NOSIGNAL: a helper that
// died makes a failed send, not a SIGPIPE.
bool envia(int fd, const char* dados, size_t n) {
  for (size_t feito = 0; feito < n;) {
    const ssize_t k = ::send(fd, dados + feito, n - feito, MSG_NOSIGNAL);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) return false;
    feito += static_cast<size_t>(k);
  }
  return true;
}

bool recebe(int fd, char* dados, size_t n) {
  for (size_t feito = 0; feito < n;) {
    const ssize_t k = ::read(fd, dados + feito, n - feito);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) return false;
    feito += static_cast<size_t>(k);
  }
  return true;
}

bool enviaQuadro(int fd, char tipo, const std::string& s) {
  const uint64_t n = s.size();
  return envia(fd, &tipo, 1) && envia(fd, reinterpret_cast<const char*>(&n), sizeof n) && envia(fd, s.data(), n);
}

bool recebeQuadro(int fd, char& tipo, std::string& s) {
  uint64_t n = 0;
  if (!recebe(fd, &tipo, 1) || !recebe(fd, reinterpret_cast<char*>(&n), sizeof n)) return false;
  // The helper is ours, but a frame is not trusted beyond what fits.
  if (n > (uint64_t(1) << 40)) return false;
  s.resize(n);
  return recebe(fd, s.data(), n);
}

// The helper of one program, started on first use.
struct Ajudante {
  std::mutex vez;
  pid_t pid = -1;
  int fd = -1;

  void inicia(const char* programa, const std::string& oque) {
    int par[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, par) != 0) erro("Erro: sem recursos para ler ", oque);
    posix_spawn_file_actions_t acoes;
    posix_spawn_file_actions_init(&acoes);
    posix_spawn_file_actions_adddup2(&acoes, par[1], 0);
    posix_spawn_file_actions_adddup2(&acoes, par[1], 1);
    posix_spawn_file_actions_addopen(&acoes, 2, "/dev/null", O_WRONLY, 0);
    // Everything else this process has open stays here.
    posix_spawn_file_actions_addclosefrom_np(&acoes, 3);
    const std::string pasta = pastaDoPrograma();
    int falha = ENOENT;
    for (const std::string& caminho : {pasta + programa, pasta + "../" + programa}) {
      if (::access(caminho.c_str(), X_OK) != 0) continue;
      char* const args[] = {const_cast<char*>(caminho.c_str()), nullptr};
      falha = ::posix_spawn(&pid, caminho.c_str(), &acoes, nullptr, args, environ);
      break;
    }
    posix_spawn_file_actions_destroy(&acoes);
    ::close(par[1]);
    if (falha != 0) {
      ::close(par[0]);
      pid = -1;
      erro("Erro: nao consegui iniciar ", programa, " para " + oque);
    }
    fd = par[0];
  }

  // After a failed exchange: the helper is gone or of no more use.
  [[noreturn]] void perdido(const std::string& oque) {
    ::close(fd);
    fd = -1;
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    pid = -1;
    if (WIFSIGNALED(status) && WTERMSIG(status) != SIGKILL)
      erro("Erro: " + oque + " terminou pelo sinal ", std::to_string(WTERMSIG(status)));
    erro("Erro: " + oque + " falhou");
  }
};

}  // namespace

std::string pedeAoAjudante(const char* programa, const std::string& pedido, const std::string& oque) {
  // One helper per program, kept for the rest of the run.
  static std::mutex mapa;
  static std::map<std::string, Ajudante> ajudantes;
  Ajudante* a = nullptr;
  {
    const std::lock_guard<std::mutex> trava(mapa);
    a = &ajudantes[programa];
  }
  Ajudante& ajudante = *a;
  const std::lock_guard<std::mutex> trava(ajudante.vez);
  if (ajudante.pid < 0) ajudante.inicia(programa, oque);
  char tipo = 0;
  std::string resposta;
  if (!enviaQuadro(ajudante.fd, 'P', pedido) || !recebeQuadro(ajudante.fd, tipo, resposta)) ajudante.perdido(oque);
  if (tipo == 'E') throw Erro(resposta);
  if (tipo != 'O') ajudante.perdido(oque);
  return resposta;
}

int serveAjudante(std::string (*atende)(const std::string& pedido)) {
  // It ends when its input does, which is when the program that started it
  // ends: only that program holds the other end (PR_SET_PDEATHSIG would end
  // it with the thread that started it instead).
  // A crash ends the helper by its signal, which the parent reports, even
  // where a sanitizer would catch it and print a report of its own.
  for (int sinal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) ::signal(sinal, SIG_DFL);
  for (;;) {
    char tipo = 0;
    std::string pedido, resposta;
    if (!recebeQuadro(0, tipo, pedido) || tipo != 'P') return 0;
    char resultado = 'O';
    try {
      resposta = atende(pedido);
    } catch (const Erro& e) {
      resultado = 'E';
      resposta = e.what();
    } catch (const std::exception& e) {
      resultado = 'E';
      resposta = std::string("Erro: ") + e.what();
    }
    if (!enviaQuadro(1, resultado, resposta)) return 0;
  }
}

}  // namespace tvm
