// A time bound around a call into code we cannot fix. OpenCV's YAML parser
// loops forever on some malformed text; a batch of runs must not hang on one
// damaged file, so the parse is given a generous limit.
#pragma once

#include <string>

namespace tvm {

class Vigia {
 public:
  // When `segundos` pass before destruction, `aoEstourar` runs with
  // `mensagem` (by default: the message on stderr, then exit status 1).
  Vigia(double segundos, const std::string& mensagem);
  ~Vigia();
  Vigia(const Vigia&) = delete;
  Vigia& operator=(const Vigia&) = delete;
};

// Restores the timer and the handler that were there before the last Vigia;
// for a harness that left one by a jump, past its destructor.
void desarmaVigia();

// Replaceable by a test harness that must survive the timeout. It runs in a
// signal handler: only async-signal-safe work is allowed there.
extern void (*aoEstourar)(const char* mensagem);

}  // namespace tvm
