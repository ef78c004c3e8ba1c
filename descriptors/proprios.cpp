#include "descriptors/proprios.hpp"

#include "descriptors/forapro.hpp"
#include "descriptors/frame.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "descriptors/tools.hpp"
#include "support/erro.hpp"

namespace {

ConstroiDescritor opcoesSimple(tvm::ISTR& in) {
  int camadas = 6, dgauss = 11;
  std::string modo = "c";
  tvm::seekArg(in, "camadas", camadas);
  tvm::seekArg(in, "dgauss", dgauss);
  tvm::seekArg(in, "modo", modo);
  return [=]() -> std::unique_ptr<Descritor> {
    if (dgauss % 2 != 1) tvm::erro("Erro: dGauss deve ser impar");
    // Only the first letter counts: "inplace" and "copy" are i and c.
    const char letra = modo.empty() ? 'c' : modo[0];
    if (letra != 'c' && letra != 'i') tvm::erro("Erro: modo invalido");
    return std::make_unique<SIMPLE>(letra, camadas, dgauss);
  };
}

ConstroiDescritor opcoesRiff(tvm::ISTR& in) {
  int naneis = 4, larguraAnel = 10;
  tvm::seekArg(in, "naneis", naneis);
  tvm::seekArg(in, "larguraanel", larguraAnel);
  return [=] { return std::make_unique<RIFF>(naneis, larguraAnel); };
}

// RIHOG and RUHOG take the same options.
template <typename Hog>
ConstroiDescritor opcoesHog(tvm::ISTR& in) {
  int naneis = 5, raio = 40, nbins = 20, ngauss = 37;
  bool bcinv = true;
  tvm::seekArg(in, "naneis", naneis);
  tvm::seekArg(in, "raio", raio);
  tvm::seekArg(in, "nbins", nbins);
  tvm::seekArg(in, "ngauss", ngauss);
  tvm::seekArg(in, "bcinv", bcinv);
  return [=] { return std::make_unique<Hog>(naneis, raio, nbins, ngauss, bcinv); };
}

ConstroiDescritor opcoesForapro(tvm::ISTR& in) {
  int nrad = 4, ncir = 4, raio = 40;
  bool radang = true, radmag = true, cirvet = true;
  tvm::seekArg(in, "nrad", nrad);
  tvm::seekArg(in, "ncir", ncir);
  tvm::seekArg(in, "raio", raio);
  tvm::seekArg(in, "radang", radang);
  tvm::seekArg(in, "radmag", radmag);
  tvm::seekArg(in, "cirvet", cirvet);
  return [=] { return std::make_unique<Forapro>(nrad, ncir, raio, radang, radmag, cirvet); };
}

const char* const kSemChaves = "  Se keyA.xml nao for fornecido, usa-se SIFT.";

}  // namespace

const std::vector<DescritorProprio>& descritoresProprios() {
  static const std::vector<DescritorProprio> tabela = {
      {"simple",
       {"DesSimp a.pgm DesA.xml [key=KeyA.xml camadas=6 dgauss=11 modo=i/c]", kSemChaves,
        "  camadas       = 1,  2,  3,  4,  5,   6", "  descriptorSize= 7, 19, 37, 61, 91, 127",
        "  dgauss deve ser impar. tnl=91.", "  modo=inplace ou copy (default)."},
       opcoesSimple},
      {"riff", {"DesRiff a.pgm DesA.xml [key=KeyA.xml naneis=4 larguraAnel=10]", kSemChaves}, opcoesRiff},
      {"rihog",
       {"DesRihog a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]", kSemChaves,
        "  bcinv=brightness-contrast invariant"},
       opcoesHog<RIHOG>},
      {"ruhog",
       {"DesRUHOG a.pgm DesA.xml [key=KeyA.xml naneis=5 raio=40 nbins=20 ngauss=37 bcinv=true]", kSemChaves,
        "  bcinv=brightness-contrast invariant"},
       opcoesHog<RUHOG>},
      {"forapro",
       {"DesForapro a.pgm DesA.xml [key=KeyA.xml nrad=4 ncir=4 raio=40 radang=1 radmag=1 cirvet=1]", kSemChaves},
       opcoesForapro},
  };
  return tabela;
}

const DescritorProprio& descritorProprio(const std::string& nome) {
  for (const DescritorProprio& d : descritoresProprios())
    if (nome == d.nome) return d;
  tvm::erro("Erro: descritor desconhecido ", nome);
}

void rodaDescritorProprio(const DescritorProprio& d, int argc, char** argv) {
  FrameDescritor frame(argc, argv, d.uso);
  const ConstroiDescritor constroi = d.leOpcoes(frame.opcoes());
  frame.verificaResto();
  cv::Mat descriptors;
  constroi()->compute(frame.imagem(), frame.keypoints(), descriptors);
  frame.grava(descriptors);
}

void DescritorProprioDaTabela(int argc, char** argv) {
  // The rows' tools differ from their names in letter case only.
  const std::string ferramenta = tvm::minuscula(argv[0]);
  for (const DescritorProprio& d : descritoresProprios())
    if (tvm::minuscula(d.uso.front()).rfind(ferramenta + " ", 0) == 0) return rodaDescritorProprio(d, argc, argv);
  tvm::erro("Erro: Programa inexistente ", argv[0]);
}
