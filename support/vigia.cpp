#include "support/vigia.hpp"

#include "support/saida_segura.hpp"

#include <signal.h>
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

}  // namespace

Vigia::Vigia(double segundos, const std::string& mensagem) {
  const std::string linha = mensagem + "\n";
  std::strncpy(mensagemPronta, linha.c_str(), sizeof mensagemPronta - 1);
  mensagemPronta[sizeof mensagemPronta - 1] = '\0';
  struct sigaction acao {};
  acao.sa_handler = tratador;
  sigemptyset(&acao.sa_mask);
  ::sigaction(SIGALRM, &acao, &acaoAnterior);
  sigevent evento{};
  evento.sigev_notify = SIGEV_SIGNAL;
  evento.sigev_signo = SIGALRM;
  if (::timer_create(CLOCK_THREAD_CPUTIME_ID, &evento, &timer_) != 0) return;  // unguarded, never wrong
  armado_ = true;
  itimerspec prazo{};
  prazo.it_value.tv_sec = static_cast<time_t>(segundos);
  prazo.it_value.tv_nsec = static_cast<long>((segundos - std::floor(segundos)) * 1e9);
  ::timer_settime(timer_, 0, &prazo, nullptr);
}

Vigia::~Vigia() {
  if (armado_) ::timer_delete(timer_);
  ::sigaction(SIGALRM, &acaoAnterior, nullptr);
}

}  // namespace tvm
