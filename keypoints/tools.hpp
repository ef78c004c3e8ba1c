// The keypoint tools: they create or edit keypoint stores.
//
//   KeySift a.pgm a.xml [thresh edgethresh]      OpenCV's SIFT
//   KeySurf a.pgm a.xml [thresh]                 our SURF
//   KeyFast a.pgm a.xml [thresh]                 OpenCV's FAST
//   KeyStar a.pgm a.xml                          our STAR
//   KeyRand a.pgm b.pgm mat33.txt n keyA.xml keyB.xml [seed=.. diamMin=.. ...]
//   KeyCgSize ent.xml sai.xml fator
//   KeyGrande ent.pgm ent.xml sai.xml n
#pragma once

void KeySift(int argc, char** argv);
void KeySurf(int argc, char** argv);
void KeyFast(int argc, char** argv);
void KeyStar(int argc, char** argv);
void KeyRand(int argc, char** argv);
void KeyCgSize(int argc, char** argv);
void KeyGrande(int argc, char** argv);
