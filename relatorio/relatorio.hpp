// A sweep's report: one HTML page, relatorio.html in the sweep's folder, that
// a person opens offline, sends or attaches. Everything is inside the file:
// CSS and a few lines of JavaScript inline, every plot an SVG and every
// drawing a JPEG as data: URIs; nothing is fetched.
//
// It holds, from the folder's tables (sweep/varre.hpp):
//   - the summary: the mean of each measure per configuration, overall and
//     per kind of sequence, sortable by any column with a click, the best
//     value of each column marked; for posed pairs, the pose AUCs and mAA at
//     the threshold pose.csv reports (not means over pairs, so read from it);
//   - the plots (plots/graficos.hpp), drawn from the tables;
//   - the drawings of the matches the sweep kept (SAIDA/desenhos/), correct
//     ones green, wrong ones red, the worst marked; each with its pair's
//     measures, collapsed until opened;
//   - every pair's measures, one collapsed table per sequence;
//   - how it was made: the sweep's record (SAIDA/varredura.txt: command line,
//     version, dataset, date, threads), the failed rows with their messages
//     and the seconds of each stage.
// Bounded size: at most kMaxDesenhos drawings (each at most 720 pixels wide)
// and the figures of at most kMaxSequencias sequences; what is left out is
// said on the page (it is in graficos/ and resultados.csv).
//
// Opened with "#autoteste" after its name, the page checks itself once
// loaded (errors caught, rows, a sort by a click, every image decoded) and
// writes the result as JSON into an element with id "autoteste": how the
// browser test reads it.
#pragma once

#include <string>

namespace relatorio {

constexpr int kMaxDesenhos = 40;
constexpr int kMaxSequencias = 24;

// Writes SAIDA/relatorio.html (whole or not at all) and says so on stdout,
// with its size.
void escreve(const std::string& saida);

}  // namespace relatorio

//   Relatorio SAIDA
void Relatorio(int argc, char** argv);
