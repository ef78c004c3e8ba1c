#include "sweep/progresso.hpp"

#include <unistd.h>

#include <cstdio>

namespace sweep {

namespace {

std::string duracao(double s) {
  char t[32];
  if (s < 60)
    std::snprintf(t, sizeof t, "%.0fs", s);
  else if (s < 3600)
    std::snprintf(t, sizeof t, "%dm%02ds", static_cast<int>(s) / 60, static_cast<int>(s) % 60);
  else
    std::snprintf(t, sizeof t, "%dh%02dm", static_cast<int>(s) / 3600, static_cast<int>(s) / 60 % 60);
  return t;
}

}  // namespace

Progresso::Progresso(int unidades, int sequencias)
    : total_(unidades),
      sequencias_(sequencias),
      terminal_(isatty(STDERR_FILENO) == 1),
      inicio_(std::chrono::steady_clock::now()) {}

std::string Progresso::estimativa() const {
  const double passados = std::chrono::duration<double>(std::chrono::steady_clock::now() - inicio_).count();
  if (feitas_ == 0) return "?";
  return duracao(passados / feitas_ * (total_ - feitas_));
}

void Progresso::unidade() {
  ++feitas_;
  if (!terminal_) return;
  constexpr int kLargura = 30;
  const int cheias = total_ > 0 ? feitas_ * kLargura / total_ : kLargura;
  std::fprintf(stderr, "\r[%s%s] %d/%d unidades, faltam ~%s   ", std::string(cheias, '#').c_str(),
               std::string(kLargura - cheias, '.').c_str(), feitas_, total_, estimativa().c_str());
  std::fflush(stderr);
  linhaAberta_ = true;
}

void Progresso::sequencia(const std::string& nome) {
  ++sequenciasFeitas_;
  if (terminal_) return;
  std::fprintf(stderr, "Varre: sequencia %s pronta (%d/%d), %d/%d unidades calculadas, faltam ~%s\n", nome.c_str(),
               sequenciasFeitas_, sequencias_, feitas_, total_, estimativa().c_str());
}

void Progresso::fim() {
  if (linhaAberta_) std::fputc('\n', stderr);
  linhaAberta_ = false;
}

}  // namespace sweep
