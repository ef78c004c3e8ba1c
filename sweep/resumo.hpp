// The summaries of a sweep's tables (sweep/varre.hpp): pure functions of
// resultados.csv and poses.csv, given by their paths, returning text. Varre
// and VarreJunta print the first and write the others beside the tables.
#pragma once

#include <string>

namespace sweep {

// The mean of each planar measure per configuration (and per kind of
// sequence when the dataset names kinds), for the terminal; then, when the
// sweep has posed pairs, their pose AUC at 5, 10 and 20 degrees and mAA per
// configuration, as tabelaPose gives them. The planar table leaves posed
// rows out. Without a poses table ("" or a missing file) the AUCs are NA.
std::string tabelaResumo(const std::string& resultadosCsv, const std::string& posesCsv);
std::string tabelaResumo(const std::string& resultadosCsv);  // no poses table

// D2-Net's summary of a sweep: per configuration and for all pairs, then each
// kind, the MMA at 1..10 pixels averaged over pairs (a pair without matches
// counts 0), the mean keypoints per image and matches per pair. mma.csv.
extern const char* const kCabecalhoMMA;
std::string tabelaMMA(const std::string& resultadosCsv);

// The relative pose of the posed pairs, SuperGlue's and glue-factory's
// summary, one row per configuration (detector, descriptor, matcher in order
// of first appearance) with posed rows (kind "posed"); header only when none.
// pose.csv.
//   pairs, failed     posed rows with status ok, and the others; failed rows
//                     count nowhere else
//   threshold         the RANSAC threshold reported (pixels): of those in
//                     poses.csv, the best by measures::melhorLimiar, which
//                     sweeps as glue-factory does
//   auc@5,10,20, mAA  of the pose errors at that threshold, a pair without a
//                     pose wrong at every angle (measures/pose.hpp)
//   epipolar@1e-4,5e-4,1e-3  the pairs' mean share of matches within the
//                     symmetric epipolar distance, a pair without matches
//                     counting 0 (SuperGlue's rule)
//   matches_per_pair, inliers_per_pair  means over the pairs, inliers at the
//                     threshold reported (none counts 0)
// The threshold, AUCs, mAA and inliers are NA without rows in poses.csv: a
// missing file (a sweep older than it) counts as a table without rows. Stops
// on a missing column, a field that is neither a number nor NA, or a poses
// table that does not hold one row per ok posed pair and threshold.
extern const char* const kCabecalhoPose;
std::string tabelaPose(const std::string& resultadosCsv, const std::string& posesCsv);

}  // namespace sweep
