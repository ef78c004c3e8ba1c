// Keyword options shared by MatROC, MatAcert and Matlab: the words after the
// three positional arguments, read token by token until "eof".
#pragma once

#include "formats/transform.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace evaluation {

struct OpcoesAvaliacao {
  double dist = 15.0;                  // tolerance in pixels, > 0
  cv::Vec3b cor = cv::Vec3b(0, 0, 255);  // curve colour, BGR: red
  std::string arquivo;                 // ROC file; empty: none
  char eixox = 'r';                    // 'a' acceptance, 'r' rejection
};

// Which keys a tool takes; any other word stops it with
// "Erro: Palavra desconhecida ".
enum ChaveOpcao { kDist = 1, kCor = 2, kArquivo = 4, kEixox = 8 };

OpcoesAvaliacao leOpcoes(int n, char** palavras, int chaves);

// What MatROC, MatAcert and Matlab start from.
struct Avaliacao {
  formats::Casamentos casamentos;
  OpcoesAvaliacao opcoes;
  std::vector<bool> certos;  // per match, in file order
};
// `match.txt mat33.txt saida [options]`: argv[1] the match file, argv[4] on
// the options of `chaves`, argv[2] the transform, read in that order.
Avaliacao leAvaliacao(int argc, char** argv, int chaves);

}  // namespace evaluation
