// The standard plots of a sweep, from its tables (sweep/varre.hpp), or from a
// user's own table with the same columns:
//   mma.png/.svg         mean matching accuracy at 1..10 px, one line per
//                        configuration, panels all / illumination / viewpoint
//                        (D2-Net's and R2D2's figure)
//   seq-NAME.png/.svg    repeatability (per detector) and matching score (per
//                        configuration) against the image index of one
//                        sequence (the Oxford papers' figures)
//   curva-NAME-1-K.png/.svg  recall against 1-precision along each ranked
//                        match list of the chosen pair
// A configuration is "detector/descriptor/matcher". Means are over the rows
// whose status is ok and whose value is defined; a mean with no such row is
// left out of its line.
#pragma once

#include "formats/csv.hpp"
#include "plots/figura.hpp"

#include <string>

namespace plots {

Figura figuraMMA(const formats::TabelaCSV& resultados);
// The figure of each sequence, in order of first appearance.
std::vector<std::pair<std::string, Figura>> figurasSequencias(const formats::TabelaCSV& resultados);
// The recall curves, one figure per pair present (named sequence-1-K).
std::vector<std::pair<std::string, Figura>> figurasCurvas(const formats::TabelaCSV& curvas);

// Every figure into `pasta` (created if missing); `curvas` may be empty or
// name a missing file, and then there is no curve figure.
void desenhaGraficos(const std::string& resultados, const std::string& curvas, const std::string& pasta);

}  // namespace plots

//   Graficos resultados.csv PASTA [curvas=curvas.csv]
void Graficos(int argc, char** argv);
