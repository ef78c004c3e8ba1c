// Dataset tools.
//
//   SeqSint img PASTA [n=6 rotacao=0 escala=1 vista=0 brilho=0 contraste=1 gama=1 blur=0 ruido=0 jpeg=100 seed=7]
//   SintPose img PASTA [superficie=ondas giro=15 desloc=0.2 n=2 seed=7]
#pragma once

void SeqSint(int argc, char** argv);
void SintPose(int argc, char** argv);
