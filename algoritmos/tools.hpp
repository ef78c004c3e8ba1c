// The tools that read the table of algorithms.
//
//   KeyXxx a.pgm a.xml [opcao=valor ...]                 a detector row's tool
//   DesXxx a.pgm DesA.xml [key=KeyA.xml opcao=valor ...] a descriptor row's tool
//   KeyAngulo ent.xml sai.xml [para=opencv de=ccw]
//   Algoritmos [md]                                      the table itself
#pragma once

// The tool of the detector or descriptor row whose tool name equals argv[0]
// in any letter case (the dispatcher passes the command word as typed).
void DetectorDaTabela(int argc, char** argv);
void DescritorDaTabela(int argc, char** argv);

void KeyAngulo(int argc, char** argv);
void Algoritmos(int argc, char** argv);
