// Files: C file handles that close themselves, wildcard expansion; and,
// through saida_segura.hpp, the one way outputs are written.
#pragma once

#include "support/saida_segura.hpp"

#include <cstdio>
#include <string>
#include <vector>

namespace tvm {

// A FILE* that is closed when it goes out of scope.
class Arquivo {
 public:
  Arquivo(const std::string& nome, const char* modo) : f_(std::fopen(nome.c_str(), modo)) {}
  ~Arquivo() {
    if (f_) std::fclose(f_);
  }
  Arquivo(const Arquivo&) = delete;
  Arquivo& operator=(const Arquivo&) = delete;

  explicit operator bool() const { return f_ != nullptr; }
  FILE* get() const { return f_; }
  // Closes now; false if anything written could not be stored.
  bool fecha();

 private:
  FILE* f_;
};

// Creates the folder and any missing parent (as mkdir -p); stops naming the
// folder when one cannot be created.
void criaPastas(const std::string& pasta);

// Appends to `names` the files that match `pattern` (shell wildcards), sorted.
// A pattern without wildcards is appended as it stands, so a missing file is
// reported by whoever opens it. With `exigeArquivo` true a wildcard pattern
// that matches nothing stops the tool; with false it adds nothing.
void vsWildCard(const std::string& pattern, std::vector<std::string>& names, bool exigeArquivo);

}  // namespace tvm
