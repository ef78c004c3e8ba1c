// A lever on glibc's allocator for a short process that works on large
// images. Only the tools for which a measurement showed it to pay pull it; the
// table in app/comandos.cpp says which, with the figures beside each row.
#pragma once

namespace tvm {

// A fresh process pays a page fault for every 4 KiB it touches the first
// time, and glibc returns large freed blocks to the system at once, so the
// next image buffer faults in all over again. With `retido` freed memory is
// kept for reuse and the heap asks for transparent huge pages, where the
// kernel honours that request: about 500 faults fewer per 2 MiB touched.
// `retidoUmaArena` also puts every thread on that one heap, which pays only
// where threads allocate rarely and in large blocks (a lock guards it).
// With `comoVem` glibc stays as it comes.
enum class Heap { comoVem, retido, retidoUmaArena };
void preparaMemoria(Heap heap);

}  // namespace tvm
