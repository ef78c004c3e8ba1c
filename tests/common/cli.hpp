// Runs the real quivelar binary, or any program, and captures what it did.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace teste {

struct Execucao {
  std::string out, err;
  int status = -1;        // exit status when it exited
  int sinal = 0;          // the signal that killed it, 0 if none
  bool estourou = false;  // killed for running past the time limit
  long picoKb = 0;        // the child's peak resident memory, in KiB
};

// A child with no stdin, its stdout and stderr kept in memory (no pipe to fill
// while a test drives it). `args[0]` is looked up in PATH; `ambiente` sets
// variables (empty: removes), in the child, so only from a single-threaded
// test. Killed, by its own id, if still running at the end.
class Processo {
 public:
  Processo(const std::vector<std::string>& args, const std::string& pasta = "",
           const std::map<std::string, std::string>& ambiente = {});
  ~Processo();
  Processo(const Processo&) = delete;
  Processo& operator=(const Processo&) = delete;
  bool espera(double segundos);  // true when it has ended
  Execucao lido() const;         // what it wrote so far
  Execucao fim();                // how it ended; killed first (estourou) if still running
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int out_ = -1, err_ = -1, st_ = 0;
  struct rusage uso_ {};
  bool terminou_ = false;
};

// quivelar with `args` (the tool word first), in folder `pasta` when given.
Execucao roda(const std::vector<std::string>& args, const std::string& pasta = "", double limiteSegundos = 120,
              const std::map<std::string, std::string>& ambiente = {});
// A run that must end with status 0 and nothing on stderr; its stdout without the time line.
std::string rodaBem(const std::vector<std::string>& args, const std::string& pasta);
// The same, with exactly these warnings on stderr ("Aviso: " and the text, one line each).
std::string rodaComAvisos(const std::vector<std::string>& args, const std::string& pasta,
                          const std::vector<std::string>& avisos);

// stdout without its last line when that is a well-formed "Tempo gasto=S.CCs";
// otherwise the whole text and a marker, so a comparison fails and shows why.
std::string semTempo(const std::string& out);

// A match file whose match i pairs (20 + 10 i, 30) in image 1 with the same
// point moved `desvios[i]` pixels along x in image 2, distance column i:
// under the identity and dist 15, 3 is a correct match and 40 a wrong one.
void escreveCasamentos(const std::string& arquivo, const std::vector<double>& desvios);

}  // namespace teste
