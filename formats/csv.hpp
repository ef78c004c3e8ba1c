// Tables of results, for pandas, R or a spreadsheet as they are.
//
//   header line: column names separated by commas
//   one line per result, the same columns; a field holding a comma, a double
//   quote or a line break is quoted ("..." with inner quotes doubled);
//   an undefined measure is written NA, which pandas and R read as missing.
#pragma once

#include "support/arquivos.hpp"

#include <string>
#include <vector>

namespace formats {

// A text field, quoted when it must be.
std::string campoCSV(const std::string& texto);

// Appends one line to the table in `arquivo`, after `cabecalho` when the file
// does not exist or is empty. The file is replaced whole (its old lines, then
// the new one), so a failed run leaves it as it was; runs appending to tables
// of one folder at the same time take turns, so no line is lost. A file that
// starts with another header stops the tool: its columns would not match.
// `junto`, another output of the run already written, replaces its file
// together with the table: both or neither.
void acrescentaCSV(const std::string& arquivo, const std::string& cabecalho, const std::string& linha,
                   tvm::SaidaSegura* junto = nullptr);

// A whole table as text.
std::string tabelaCSV(const std::string& cabecalho, const std::vector<std::string>& linhas);

// A table read back: the header's column names and each row's fields, quotes
// removed. Blank lines are skipped.
struct TabelaCSV {
  std::string arquivo;  // where it was read from, for messages
  std::vector<std::string> colunas;
  std::vector<std::vector<std::string>> linhas;
  // Index of a column, or -1.
  int coluna(const std::string& nome) const;
};
// The table in `texto`; false when a quote is left open or a row has another
// number of fields than the header.
bool analisaCSV(const std::string& texto, TabelaCSV& tabela);
// The table in a file; stops naming the file when it cannot be read, is
// empty or is not a well-formed table.
TabelaCSV leTabelaCSV(const std::string& arquivo);

// Writes `texto` into `saida`, for the caller to confirm.
void escreveTexto(tvm::SaidaSegura& saida, const std::string& texto);

}  // namespace formats
