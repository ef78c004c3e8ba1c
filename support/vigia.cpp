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

// Only async-signal-safe calls: it runs in the signal handler.
void tratador(int) {
  const ssize_t escrito = ::write(STDERR_FILENO, mensagemPronta, std::strlen(mensagemPronta));
  (void)escrito;
  removeTemporarios();
  ::_exit(1);
}

struct sigaction acaoAnterior;
itimerval timerAnterior;

}  // namespace

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

Vigia::~Vigia() {
  ::setitimer(ITIMER_REAL, &timerAnterior, nullptr);
  ::sigaction(SIGALRM, &acaoAnterior, nullptr);
}

}  // namespace tvm
