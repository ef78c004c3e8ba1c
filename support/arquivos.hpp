// Files: safe output, C file handles that close themselves, wildcard
// expansion.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace tvm {

// An output written under a temporary name beside its target and renamed onto
// it by confirma(). If the run fails first, the destructor removes the
// temporary: a failed run never leaves a half-written file, and a tool may
// read the very file it is about to replace. The temporary keeps the target's
// whole name at its end, so extensions (".xml.gz", ".png") still choose the
// format.
class SaidaSegura {
 public:
  explicit SaidaSegura(std::string destino);
  ~SaidaSegura();
  SaidaSegura(const SaidaSegura&) = delete;
  SaidaSegura& operator=(const SaidaSegura&) = delete;

  const std::string& temporario() const { return temporario_; }
  const std::string& destino() const { return destino_; }
  // Renames the temporary onto the target; stops the tool if that fails.
  void confirma();

 private:
  std::string destino_;
  std::string temporario_;
  bool confirmado_ = false;
};

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
