// The standard plots of a sweep, from its tables (sweep/varre.hpp), or from a
// user's own table with the same columns:
//   mma.png/.svg         mean matching accuracy at 1..10 px, one line per
//                        configuration, panels all / illumination / viewpoint
//                        / posed (D2-Net's and R2D2's figure); none for
//                        posed pairs without depth maps, which have no MMA
//   seq-NAME.png/.svg    repeatability (per detector) and matching score (per
//                        configuration) against the image index of one
//                        sequence with 1-k pairs (the Oxford papers' figures)
//   curva-NAME-PAIR.png/.svg  recall against 1-precision along each ranked
//                        match list of the chosen pair ('/', ':' and ' ' of
//                        a posed pair's name made '_')
//   pose.png/.svg        posed pairs (from poses.csv): the share of a
//                        configuration's pairs whose pose error is at most x
//                        degrees, x from 0 to 30 (glue-factory's cumulative plot)
// A configuration is "detector/descriptor/matcher". Means are over the rows
// whose status is ok and whose value is defined; a mean with no such row is
// left out of its line.
#pragma once

#include "formats/csv.hpp"
#include "plots/figura.hpp"

#include <optional>
#include <string>

namespace plots {

Figura figuraMMA(const formats::TabelaCSV& resultados);
// True when the MMA figure would say nothing: the table holds posed pairs
// and not one MMA value (a posed sweep without depth maps). A planar table
// always gets its figure.
bool semMMA(const formats::TabelaCSV& resultados);
// The figure of each sequence with 1-k pairs, in order of first appearance.
std::vector<std::pair<std::string, Figura>> figurasSequencias(const formats::TabelaCSV& resultados);
// The recall curves, one figure per pair present (named sequence-1-K).
std::vector<std::pair<std::string, Figura>> figurasCurvas(const formats::TabelaCSV& curvas);

// poses.csv (one row per posed pair and RANSAC threshold:
// sequence,pair,detector,descriptor,matcher,threshold,pose_error,...,inliers)
// gathered per configuration, configurations and thresholds in order of
// first appearance (the thresholds' is the order the sweep was given, which
// settles ties of the best one).
struct PosesDeConfiguracao {
  std::string detector, descritor, casador;
  std::vector<double> limiares;
  // Per threshold, per row: its index in the table, its pose error (+inf
  // where no pose was estimated: wrong at every angle, as the AUC counts it)
  // and its inliers (0 where none).
  std::vector<std::vector<size_t>> linhas;
  std::vector<std::vector<double>> erros, inliers;
  // The threshold reported, measures::melhorLimiar's (an index into limiares).
  size_t melhor = 0;
};
// Stops on a missing column, a threshold that is not a positive number, or
// an error or inlier count that is neither a number nor NA.
std::vector<PosesDeConfiguracao> posesPorConfiguracao(const formats::TabelaCSV& poses);
// The cumulative pose error: one line per configuration at its reported
// threshold. None when the table has no row.
std::optional<Figura> figuraPose(const formats::TabelaCSV& poses);

// Every figure into `pasta` (created if missing); `curvas` and `poses` may be
// empty or name a missing file, and then there is no curve or pose figure.
void desenhaGraficos(const std::string& resultados, const std::string& curvas, const std::string& pasta,
                     const std::string& poses = "");

}  // namespace plots

//   Graficos resultados.csv PASTA [curvas=curvas.csv] [poses=poses.csv]
void Graficos(int argc, char** argv);
