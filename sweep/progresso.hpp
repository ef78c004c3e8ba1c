// Progress of a long sweep on stderr: on a terminal one line redrawn after
// every unit, with a bar and an estimate of the time left; otherwise (a log,
// a batch job) one line per finished sequence, so logs stay short.
#pragma once

#include <chrono>
#include <string>

namespace sweep {

class Progresso {
 public:
  // `unidades` to compute in this run, over `sequencias` sequences.
  Progresso(int unidades, int sequencias);
  void unidade();
  void sequencia(const std::string& nome);
  void fim();

 private:
  std::string estimativa() const;

  int total_, feitas_ = 0, sequencias_, sequenciasFeitas_ = 0;
  bool terminal_;
  bool linhaAberta_ = false;
  std::chrono::steady_clock::time_point inicio_;
};

}  // namespace sweep
