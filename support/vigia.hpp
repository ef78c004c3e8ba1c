// A time bound around a call into code we cannot fix. OpenCV's YAML parser
// loops forever on some malformed text; a batch of runs must not hang on one
// damaged file, so the parse is given a generous limit.
#pragma once

#include <string>

namespace tvm {

class Vigia {
 public:
  // When `segundos` pass before destruction, `mensagem` goes to stderr and
  // the process ends with status 1 at once (from a signal handler: no
  // unwinding through the code that did not return). Destruction restores
  // the timer and the handler that were there before.
  Vigia(double segundos, const std::string& mensagem);
  ~Vigia();
  Vigia(const Vigia&) = delete;
  Vigia& operator=(const Vigia&) = delete;
};

}  // namespace tvm
