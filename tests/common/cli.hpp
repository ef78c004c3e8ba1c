// Runs the real quivelar binary and captures what it did.
#pragma once

#include <string>
#include <vector>

namespace teste {

struct Execucao {
  std::string out;
  std::string err;
  int status = -1;       // exit status when it exited
  int sinal = 0;         // the signal that killed it, 0 if none
  bool estourou = false; // killed for running past the time limit
};

// quivelar with `args` (the tool word first), in folder `pasta` when given,
// with no standard input, killed after `limiteSegundos`.
Execucao roda(const std::vector<std::string>& args, const std::string& pasta = "", double limiteSegundos = 120);

// stdout without its last line when that line is a well-formed
// "Tempo gasto=S.CCs"; otherwise the whole text followed by a marker, so a
// comparison fails and shows why.
std::string semTempo(const std::string& out);

// A command line that must fail: stdout exactly `out`, stderr ending in the
// line(s) `err` (OpenCV may log a line of its own before ours), status 1, no
// signal, and folder `pasta` left as it was.
struct CasoFalha {
  std::string nome;
  std::vector<std::string> args;
  std::string out, err;
};
class PastaTemp;
void confereFalha(const CasoFalha& c, const PastaTemp& pasta);
// True when `texto` ends with `fim` at a line start.
bool terminaCom(const std::string& texto, const std::string& fim);

}  // namespace teste
