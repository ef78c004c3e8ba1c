// The sweep tool.
//
//   Varre DATASET SAIDA [det=sift,...] [des=sift,...] [mat=nn,...] [seq=a,b] [threads=N]
//         [ALG.OPCAO=valor ...] [erro=40 px=3 ransac=3 comum=ambas] [curva=SEQ:K] [graficos=1]
//   Varre ... shard=i/n                                   one shard, into SAIDA/fatias
//   VarreJunta SAIDA                                      the shards merged, checked, plotted
#pragma once

void Varre(int argc, char** argv);
void VarreJunta(int argc, char** argv);
