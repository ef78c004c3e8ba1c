// A time bound around a call into code we cannot fix. OpenCV's YAML parser
// loops forever on some malformed text. The readers give it only text they
// have checked, so the bound is a last guard, measured in CPU time of the
// calling thread: a loaded machine does not trip it, a loop always does.
#pragma once

#include <ctime>
#include <string>

namespace tvm {

class Vigia {
 public:
  // When the calling thread has used `segundos` of CPU before destruction,
  // `mensagem` goes to stderr and the process ends with status 1 at once
  // (from a signal handler: no unwinding through the code that did not
  // return). One at a time in the process; destruction restores the
  // handler that was there before.
  Vigia(double segundos, const std::string& mensagem);
  ~Vigia();
  Vigia(const Vigia&) = delete;
  Vigia& operator=(const Vigia&) = delete;

 private:
  timer_t timer_{};
  bool armado_ = false;
};

}  // namespace tvm
