// Evaluation tools: score a match file against the ground-truth 3x3 transform
// (FiltMat, MatROC, MatAcert, Matlab) or merge curve images (SobrROC).
#pragma once

void FiltMat(int argc, char** argv);
void MatROC(int argc, char** argv);
void MatAcert(int argc, char** argv);
void Matlab(int argc, char** argv);
void SobrROC(int argc, char** argv);
