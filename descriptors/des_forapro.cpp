// DesForapro a.pgm DesA.xml [key=KeyA.xml nrad=4 ncir=4 raio=40 radang=1 radmag=1 cirvet=1]
#include "descriptors/forapro.hpp"
#include "descriptors/frame.hpp"
#include "descriptors/tools.hpp"

void DesForapro(int argc, char** argv) {
  FrameDescritor frame(argc, argv,
                       {"DesForapro a.pgm DesA.xml [key=KeyA.xml nrad=4 ncir=4 raio=40 radang=1 radmag=1 cirvet=1]",
                        "  Se keyA.xml nao for fornecido, usa-se SIFT."});
  int nrad = 4, ncir = 4, raio = 40;
  bool radang = true, radmag = true, cirvet = true;
  tvm::seekArg(frame.opcoes(), "nrad", nrad);
  tvm::seekArg(frame.opcoes(), "ncir", ncir);
  tvm::seekArg(frame.opcoes(), "raio", raio);
  tvm::seekArg(frame.opcoes(), "radang", radang);
  tvm::seekArg(frame.opcoes(), "radmag", radmag);
  tvm::seekArg(frame.opcoes(), "cirvet", cirvet);
  frame.verificaResto();

  const Forapro forapro(nrad, ncir, raio, radang, radmag, cirvet);
  cv::Mat descriptors;
  forapro.compute(frame.imagem(), frame.keypoints(), descriptors);
  frame.grava(descriptors);
}
