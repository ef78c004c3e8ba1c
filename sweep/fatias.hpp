// Shards of a sweep, for running one sweep as many jobs (a Slurm job array,
// GNU parallel over ssh) and merging them into the table one process writes.
//
// Shard i of n (0 <= i < n) takes the units of work i*U/n .. (i+1)*U/n - 1
// of the U units in table order (sequences by name, then detectors, then
// descriptors): contiguous blocks, so shards differ by at most one unit, a
// shard keeps a sequence's detections together as far as its block allows,
// and the shards' rows in shard order are the unsharded table, byte for byte.
//
// Units are shared: every shard computes into SAIDA/unidades/ (distinct file
// names per unit) and resumes like a single sweep. When a shard ends it writes,
// all together or none (tvm::SaidaSegura::confirmaJuntas):
//   SAIDA/fatias/fatia-I-de-N.resultados.csv  .tempos.csv  .curvas.csv
//   SAIDA/fatias/fatia-I-de-N.txt             the manifest, one "key values" per line:
//     plano <signature of every unit file name of the whole sweep>
//     unidades <first> <end> <total>          its block, [first, end) of total
//     linhas <rows of resultados> <rows of tempos> <rows of curvas>
//     falhas <units with a failed row>
//     graficos <0|1>
// The manifest's presence says the shard is finished; its counts let the
// merge refuse a table that is not the one the shard wrote.
#pragma once

#include <string>
#include <vector>

namespace sweep {

struct Fatia {
  int indice = 0, total = 1;  // shard indice of total, from 0
};

// [inicio, fim) of `unidades` units for shard f.
struct Faixa {
  int inicio = 0, fim = 0;
};
Faixa faixa(int unidades, const Fatia& f);

// "i/n" as given to shard=; stops the tool on anything else.
Fatia leFatia(const std::string& texto);

// Slurm's array variables (null when unset): the shard is the task's index
// less the array's minimum, of SLURM_ARRAY_TASK_COUNT. False when there is no
// array; stops the tool when the variables disagree.
bool fatiaDoSlurm(const char* id, const char* contagem, const char* minimo, Fatia& f);

// "fatias/fatia-I-de-N", relative to SAIDA; the files add their extensions.
std::string nomeFatia(const Fatia& f);

struct Manifesto {
  std::string plano;
  Faixa unidades;
  int totalUnidades = 0;
  long linhas = 0, tempos = 0, curvas = 0, poses = 0;
  int falhas = 0;
  bool graficos = true;
};

// Bodies (no header line) of the four tables of a shard or of a whole sweep.
struct Tabelas {
  std::string linhas, tempos, curvas, poses;
};

// Writes a shard's tables and manifest together.
void gravaFatia(const std::string& saida, const Fatia& f, const Manifesto& m, const Tabelas& t);

struct Juncao {
  int fatias = 0, unidades = 0, falhas = 0;
  bool graficos = true;
};

// Checks that SAIDA/fatias holds every shard of one sweep, each once and
// complete (the error names the missing, repeated or foreign ones), and
// writes SAIDA/resultados.csv, tempos.csv and curvas.csv together.
Juncao junta(const std::string& saida);

// A whole file; false when it cannot be read.
bool leTexto(const std::string& arquivo, std::string& texto);
// The body of a table without its header line.
std::string corpo(const std::string& texto);

}  // namespace sweep
