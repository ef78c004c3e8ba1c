// The own descriptors as a table: a name, the usage block of its tool and how
// its options are read. A new descriptor is its class (a Descritor) plus one
// line here and its row in the table of algorithms (algoritmos/tabela.cpp),
// which gives it its tool and its place in a sweep.
//
//   DesXxx a.pgm DesA.xml [key=KeyA.xml option=value ...]
#pragma once

#include "descriptors/descritor.hpp"
#include "support/argumentos.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// Builds the descriptor from options already read. Building is where the
// option values are checked, so a tool first makes sure that every option
// word was recognised.
using ConstroiDescritor = std::function<std::unique_ptr<Descritor>()>;

struct DescritorProprio {
  const char* nome;               // "simple", "riff", "rihog", "ruhog", "forapro"
  std::vector<const char*> uso;   // the tool's usage block
  // Consumes the descriptor's option words (any letter case); an option not
  // given keeps its default, so an empty stream gives the default descriptor.
  ConstroiDescritor (*leOpcoes)(tvm::ISTR& opcoes);
};

const std::vector<DescritorProprio>& descritoresProprios();

// Stops with "Erro: descritor desconhecido " for a name not in the table.
const DescritorProprio& descritorProprio(const std::string& nome);

// The whole tool: keypoints and options (descriptors/frame.hpp), the rows, the
// store.
void rodaDescritorProprio(const DescritorProprio& d, int argc, char** argv);

// The tool of the entry whose usage line starts with argv[0], in any letter
// case (the dispatcher passes the command word as typed).
void DescritorProprioDaTabela(int argc, char** argv);
