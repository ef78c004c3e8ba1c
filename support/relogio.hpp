// The clock behind every tool's closing line "Tempo gasto=S.CCs".
#pragma once

namespace tvm {

// Monotonic wall clock in hundredths of a second; only differences matter.
int centseg();

}  // namespace tvm
