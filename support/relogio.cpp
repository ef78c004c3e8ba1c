#include "support/relogio.hpp"

#include <chrono>

namespace tvm {

int centseg() {
  using namespace std::chrono;
  return static_cast<int>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count() / 10);
}

}  // namespace tvm
