// DesRihog and DesRUHOG: one command shape, two ring layouts.
//
//   DesRihog a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]
//   DesRUHOG a.pgm DesA.xml [same options]
#include "descriptors/frame.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/tools.hpp"

#include <initializer_list>

namespace {

struct OpcoesHog {
  int naneis = 5;
  int raio = 40;
  int nbins = 20;
  int ngauss = 37;
  bool bcinv = true;
};

template <typename Descritor>
void desHog(int argc, char** argv, std::initializer_list<const char*> uso) {
  FrameDescritor frame(argc, argv, uso);
  OpcoesHog o;
  tvm::seekArg(frame.opcoes(), "naneis", o.naneis);
  tvm::seekArg(frame.opcoes(), "raio", o.raio);
  tvm::seekArg(frame.opcoes(), "nbins", o.nbins);
  tvm::seekArg(frame.opcoes(), "ngauss", o.ngauss);
  tvm::seekArg(frame.opcoes(), "bcinv", o.bcinv);
  frame.verificaResto();

  const Descritor descritor(o.naneis, o.raio, o.nbins, o.ngauss, o.bcinv);
  cv::Mat descriptors;
  descritor.compute(frame.imagem(), frame.keypoints(), descriptors);
  frame.grava(descriptors);
}

}  // namespace

void DesRihog(int argc, char** argv) {
  desHog<RIHOG>(argc, argv,
                {"DesRihog a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]",
                 "  Se keyA.xml nao for fornecido, usa-se SIFT.", "  bcinv=brightness-contrast invariant"});
}

void DesRUHOG(int argc, char** argv) {
  desHog<RUHOG>(argc, argv,
                {"DesRUHOG a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]",
                 "  Se keyA.xml nao for fornecido, usa-se SIFT.", "  bcinv=brightness-contrast invariant"});
}
