// A sweep: every detector x descriptor x matcher configuration on every image
// pair of every sequence of a dataset (1-k of a planar sequence, the list's
// pairs of a posed scene), measured as KeyRep and MatScore measure a planar
// pair and MatPose a posed one, into one tidy table.
//
// Unit of work: one sequence x one (detector, descriptor) configuration. Its
// images are detected once (per sequence and detector, shared by every
// descriptor) and described once, image 1's rows serving every pair; its rows
// are every pair x every matcher. A unit's rows are written atomically to
// SAIDA/unidades/<sequence>@<detector>@<descriptor>@<options hash>.csv, with
// its timings and recall curves beside them, the table last: a killed sweep
// run again skips every unit whose table is there and all of whose rows are
// ok, and rebuilds SAIDA/resultados.csv from the unit tables in unit order
// (sequences by name, then detectors and descriptors in the order given), so
// the result does not depend on interruptions. Units whose options differ
// have other hashes and never mix.
//
// Tables (one header row, one row per unit of measure, NA for undefined):
//   resultados.csv  sequence,kind,pair,detector,descriptor,matcher,status, counts, measures (kCabecalho)
//   tempos.csv      the same keys and the seconds of each stage (timings vary
//                   from run to run, so they stay out of resultados.csv)
//   curvas.csv      recall against 1-precision along each ranked match list
//                   of one chosen pair
//   poses.csv       posed pairs: the pose estimated at each RANSAC threshold
//                   asked (limiarpose=), one row per threshold (kCabecalhoPoses)
// Which columns a row fills follows from its pair's ground truth: a
// homography gives the repeatability, matching and homography columns; the
// cameras of a posed pair give the pose and epipolar columns, and with depth
// maps the matches' MMA, correct count and matching score. The others are NA.
// A failure that concerns one image, transform or keypoint list (unreadable
// file, singular transform, OpenCV refusing an input) becomes the status of
// the rows it touches and the sweep goes on. A keypoint a descriptor cannot
// describe (SIMPLE on a flat patch) is dropped, with its partner for rand
// pairs, and counted in `dropped`.
#pragma once

#include "algoritmos/tabela.hpp"
#include "datasets/sequencia.hpp"
#include "measures/pose.hpp"
#include "measures/repetibilidade.hpp"
#include "sweep/fatias.hpp"

#include <string>
#include <vector>

namespace sweep {

using algoritmos::Casador;
using algoritmos::Descritor;
using algoritmos::Detector;

extern const char* const kCabecalho;
extern const char* const kCabecalhoTempos;
extern const char* const kCabecalhoCurvas;
extern const char* const kCabecalhoPoses;

struct OpcoesMedidas {
  double erro = 40;  // overlap error, percent (KeyRep's and MatScore's erro=)
  measures::ParteComum comum = measures::ParteComum::ambas;
  double px = 3;      // distance repeatability, pixels
  double ransac = 3;  // homography estimation threshold, pixels
  double dist = 0;    // > 0: a match is correct by distance, as MatScore's dist=
  // medidas=mma: D2-Net's protocol and nothing else, the matches' counts and
  // MMA; the other measures' columns hold NA (a sweep of precomputed
  // features then costs little beyond its matching).
  bool soMMA = false;
  // Posed pairs: the estimator and its thresholds in pixels (glue-factory's
  // sweep when several; resultados.csv holds the first one's pose).
  measures::MetodoPose metodoPose = measures::MetodoPose::ransac;
  std::vector<double> limiaresPose = {1};
  double pxProfundidade = 3;  // a match within this through depth is correct
};

// Everything a sweep needs, read from its command line.
struct Plano {
  std::string dataset, saida;
  std::string pastaImagens;  // imagens=: a pair list's image folder
  std::vector<datasets::Sequencia> sequencias;
  std::vector<Detector> detectores;
  std::vector<Descritor> descritores;
  std::vector<Casador> casadores;
  // The option words of each algorithm, as given; they sign the units.
  std::vector<std::string> opcoesDetectores, opcoesDescritores;
  std::string opcoesCasadores;
  OpcoesMedidas medidas;
  // Sources of features and matches from files (feat=, ext=, mat=TIPO:ARG).
  algoritmos::OpcoesFontes fontes;
  int threads = 0;             // 0: OpenCV's choice
  std::string curvaSequencia;  // pair curvaPar of this sequence gets curves
  int curvaPar = 0;            // index into its pairs (view k of 1-k is k - 2)
  bool graficos = true;
  bool desenhos = true;  // the chosen pair's matches drawn for the report (SAIDA/desenhos/)
  // Only this shard's units (shard=i/n or a Slurm array task); see fatias.hpp.
  bool fatiada = false;
  Fatia fatia;
};

// D2-Net's evaluation leaves out these eight HPatches sequences, whose
// images are the largest (fora=d2net).
extern const std::vector<std::string> kForaD2Net;

// Reads `Varre DATASET SAIDA [options]` (argv[0] the tool's name).
Plano lePlano(int argc, char** argv);

struct Unidade {
  int sequencia, detector, descritor;  // indices into the plan
};
// Every unit of the plan, in table order: each sequence by each detector
// and descriptor that can describe its keypoints (algoritmos::parLegal).
std::vector<Unidade> unidades(const Plano& p);
// The unit's table, relative to SAIDA.
std::string arquivoUnidade(const Plano& p, const Unidade& u);

// The signature of the whole sweep: every unit's file name. Shards of one
// sweep share it, whichever shard computes it.
std::string assinaturaPlano(const Plano& p);

struct Resumo {
  int unidades = 0, falhas = 0, refeitas = 0;  // refeitas: computed in this run
};

// Runs the plan: units not finished are computed, then the three tables are
// rebuilt in SAIDA (a shard's in SAIDA/fatias, see fatias.hpp). Progress goes to stderr.
Resumo varre(const Plano& p);

// The summaries of its tables: sweep/resumo.hpp.

}  // namespace sweep
