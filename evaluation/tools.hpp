// Evaluation tools: score a match file against the ground-truth 3x3 transform
// (FiltMat, MatROC, MatAcert, Matlab, MatScore), measure detectors (KeyRep) or
// merge curve images (SobrROC).
#pragma once

void FiltMat(int argc, char** argv);
void MatROC(int argc, char** argv);
void MatAcert(int argc, char** argv);
void Matlab(int argc, char** argv);
void SobrROC(int argc, char** argv);
// The field's measures: detector repeatability (KeyRep) and the quality of a
// match list (MatScore); definitions in measures/.
void KeyRep(int argc, char** argv);
void MatScore(int argc, char** argv);
// Relative pose of two calibrated views estimated from the matches, against the true one.
void MatPose(int argc, char** argv);
