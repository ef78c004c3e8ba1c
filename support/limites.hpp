// Limits that stop a hostile or mistaken input before it takes the machine's
// memory. A 15 KB PNG may declare 4000 x 4000 pixels and a 1 MB store.gz may
// inflate to gigabytes; without a bound the process is killed by the system,
// or takes the machine down with it, before any message.
//
// Each limit has a default and an environment variable that changes it (a
// whole number; anything else stops the tool with a message naming it):
//   QUIVELAR_MAX_MEGAPIXELS  largest image read, in millions of pixels
//                            (default 100), checked against the size the
//                            file declares, before any pixel is decoded;
//   QUIVELAR_MAX_STORE_MB    largest store text, in MB of 10^6 bytes
//                            (default 512), inflated for a .gz store;
//   QUIVELAR_MAX_MEMORIA_MB  memory a detector may plan to use, in MB
//                            (default: what the system reports available).
#pragma once

#include <cstdint>
#include <string>

namespace tvm {

constexpr int64_t kMegapixelsPadrao = 100;
constexpr int64_t kStoreMbPadrao = 512;

// The limits in force, read from the environment at every call.
int64_t limitePixels();
int64_t limiteStoreBytes();

// Stops the tool when an image of largura x altura pixels passes
// limitePixels(); the message names `file`, the size and the variable.
void verificaPixels(int64_t largura, int64_t altura, const std::string& file);

// Bytes this process may still take: QUIVELAR_MAX_MEMORIA_MB when set,
// otherwise the smaller of the system's available memory (MemAvailable) and
// what the cgroup limit leaves; -1 when neither can be read.
int64_t memoriaDisponivel();

// Stops the tool when `bytes`, the estimate of what `oque` (a tool and its
// input, for the message) would take, passes memoriaDisponivel().
void verificaMemoria(double bytes, const std::string& oque);

}  // namespace tvm
