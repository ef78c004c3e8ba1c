// Ratio-test selection of 2-NN matches.
//
// Each neighbour list (best match first, then the second best) becomes a ratio
// record: the best match, its distance d1 and r = d1 / d2. A second distance
// not above tvm::epsilon gives r = tvm::infinito, so such a match is never
// kept by a threshold and sorts last by ratio, even when d1 is zero too.
//
// Order 'r' sorts the records by r, order 'd' by d1, ascending (not stable).
// A kept match's distance becomes r under order 'r' and stays d1 under 'd', so
// the output is ascending in whatever its distance field holds.
#pragma once

#include "matching/busca.hpp"
#include "support/argumentos.hpp"

#include <opencv2/core.hpp>

#include <vector>

struct RegistroRatio {
  cv::DMatch match;  // the best neighbour
  float d1;          // its distance
  float r;           // d1 / d2, or tvm::infinito
};

// One record per list, in list order. A list without exactly two matches
// stops with "Erro acRateTest inesperado" (the wording is shared by both
// selections).
std::vector<RegistroRatio> registrosRatio(const std::vector<std::vector<cv::DMatch>>& listas);

// Sorts by r ('r') or by d1 ('d'); any other order stops with
// "Erro: ordem invalida".
void ordenaRegistros(std::vector<RegistroRatio>& registros, char ordem);

// Keeps the matches whose ratio is strictly below `limiar` (compared in
// double), best first.
void ratioTest(const std::vector<std::vector<cv::DMatch>>& listas, std::vector<cv::DMatch>& saida, char ordem,
               double limiar);

// Keeps the first round(n * taxa) of the n sorted records (nearest integer,
// ties to even). No threshold applies. Prints nothing: the sweep calls it
// from its workers; MatRatio says how many it drops.
void acRateTest(const std::vector<std::vector<cv::DMatch>>& listas, std::vector<cv::DMatch>& saida, char ordem,
                double taxa);

enum class ModoRatio { ratio, acRate };

// MatRatio's settings; the defaults are the tool's.
struct OpcoesRatio {
  double ratio = 0.8;   // threshold of ratio mode
  double acRate = 0.5;  // share kept in acceptance-rate mode
  ModoRatio modo = ModoRatio::ratio;
  char ordem = 'r';     // 'r' ratio or 'd' distance
  Busca busca = Busca::brute;
};

// Reads option words until "eof"; a repeated option overrides the earlier one.
OpcoesRatio leOpcoesRatio(tvm::ISTR& in);

// Runs the selection of `opcoes.modo` ("Erro: modo invalido" for any other).
std::vector<cv::DMatch> selecionaRatio(const std::vector<std::vector<cv::DMatch>>& listas, const OpcoesRatio& opcoes);
