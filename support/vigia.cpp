#include "support/vigia.hpp"

#include "support/saida_segura.hpp"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cmath>
#include <cstring>

namespace tvm {

namespace {

// Prepared before arming: a signal handler may not build strings.
char mensagemPronta[512];

void escreveESai(const char* mensagem) {
  const ssize_t escrito = ::write(STDERR_FILENO, mensagem, std::strlen(mensagem));
  (void)escrito;
  removeTemporarios();
  ::_exit(1);
}

void tratador(int) { aoEstourar(mensagemPronta); }

struct sigaction acaoAnterior;
itimerval timerAnterior;

}  // namespace

void (*aoEstourar)(const char* mensagem) = escreveESai;

Vigia::Vigia(double segundos, const std::string& mensagem) {
  const std::string linha = mensagem + "\n";
  std::strncpy(mensagemPronta, linha.c_str(), sizeof mensagemPronta - 1);
  mensagemPronta[sizeof mensagemPronta - 1] = '\0';
  struct sigaction acao {};
  acao.sa_handler = tratador;
  sigemptyset(&acao.sa_mask);
  ::sigaction(SIGALRM, &acao, &acaoAnterior);
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(segundos);
  timer.it_value.tv_usec = static_cast<suseconds_t>((segundos - std::floor(segundos)) * 1e6);
  ::setitimer(ITIMER_REAL, &timer, &timerAnterior);
}

Vigia::~Vigia() { desarmaVigia(); }

void desarmaVigia() {
  ::setitimer(ITIMER_REAL, &timerAnterior, nullptr);
  ::sigaction(SIGALRM, &acaoAnterior, nullptr);
}

}  // namespace tvm
