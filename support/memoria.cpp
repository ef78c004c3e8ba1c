#include "support/memoria.hpp"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace tvm {

namespace {

constexpr size_t kMiB = size_t(1) << 20;
constexpr size_t kHuge = 2 * kMiB;

void retemHeap() {
  // Buffers up to glibc's largest threshold come from the heap and go back
  // to it when freed, instead of mmap/munmap round trips that fault them in
  // again on every reuse; freed memory is not trimmed away.
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(32 * kMiB));
  mallopt(M_TRIM_THRESHOLD, static_cast<int>(1024 * kMiB));
  // The next growth of the heap takes this much more ahead of use: address
  // space only, no page is touched until used.
  mallopt(M_TOP_PAD, static_cast<int>(512 * kMiB));

  // A block larger than what the heap has free forces that growth; the
  // whole new stretch is then marked for huge pages.
  void* bloco = malloc(16 * kMiB);
  if (bloco == nullptr) return;
  const uintptr_t inicio = (reinterpret_cast<uintptr_t>(bloco) + kHuge - 1) & ~(kHuge - 1);
  const uintptr_t fim = reinterpret_cast<uintptr_t>(sbrk(0)) & ~(kHuge - 1);
  if (fim > inicio) madvise(reinterpret_cast<void*>(inicio), fim - inicio, MADV_HUGEPAGE);
  free(bloco);
}

}  // namespace

void preparaMemoria(Heap heap) {
#ifdef QUIVELAR_HEAP_RETIDO_FORCADO
  // A build for scripts/bench-tools only: every tool with the lever, or
  // every tool without it, to measure what it does for each tool.
  if (!QUIVELAR_HEAP_RETIDO_FORCADO) heap = Heap::comoVem;
  else if (heap == Heap::comoVem) heap = Heap::retido;
#endif
  if (heap == Heap::comoVem) return;
  if (heap == Heap::retidoUmaArena) mallopt(M_ARENA_MAX, 1);
  retemHeap();
}

}  // namespace tvm
