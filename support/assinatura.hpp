// A short, stable name for a text: FNV-1a over its bytes, 64 bits in
// hexadecimal. Names a sweep's units by their options and an external
// command's outputs by the command; not a defence against anyone.
#pragma once

#include <cstdio>
#include <string>

namespace tvm {

inline std::string assinatura(const std::string& texto) {
  unsigned long long h = 1469598103934665603ULL;
  for (unsigned char c : texto) h = (h ^ c) * 1099511628211ULL;
  char s[17];
  std::snprintf(s, sizeof s, "%016llx", h);
  return s;
}

}  // namespace tvm
