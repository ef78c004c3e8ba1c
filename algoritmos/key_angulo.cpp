// KeyAngulo: a keypoint store's angles rewritten for the tool that will read
// them (the table of algorithms says which tool uses which direction).
#include "algoritmos/tabela.hpp"
#include "algoritmos/tools.hpp"
#include "formats/stores.hpp"
#include "support/argumentos.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"

#include <cstdio>
#include <string>

namespace {

keypoints::Convencao leConvencao(const std::string& nome, bool escrita) {
  keypoints::Convencao c = keypoints::Convencao::nenhuma;
  if (!algoritmos::achaConvencao(nome, escrita, c)) tvm::erro("Erro: convencao de angulo desconhecida ", nome);
  return c;
}

// Without de=, the angles are taken to be in the convention that para= does
// not read: the tool exists to go from one to the other.
keypoints::Convencao oposta(keypoints::Convencao c) {
  switch (c) {
    case keypoints::Convencao::horario:
      return keypoints::Convencao::antiHorario;
    case keypoints::Convencao::antiHorario:
      return keypoints::Convencao::horario;
    case keypoints::Convencao::nenhuma:
      break;
  }
  return keypoints::Convencao::nenhuma;
}

}  // namespace

void KeyAngulo(int argc, char** argv) {
  if (argc < 3)
    tvm::falhaUso({"KeyAngulo ent.xml sai.xml [para=opencv de=ccw]",
                   "  Reescreve os angulos na convencao de quem vai le-los, de 0 a 360. Pode ter ent.xml=sai.xml",
                   "  opencv: sentido horario na tela (KeySift, KeySurf, DesSift)",
                   "  ccw: anti-horario na tela, y para cima (KeyRand, DesSimp)",
                   "  para= e de= aceitam o nome da ferramenta (para=DesSimp de=KeySift); sem de=, a outra"});
  std::vector<cv::KeyPoint> keypoints = formats::leKeyPoints(argv[1]);
  std::string nomePara = "opencv", nomeDe;
  tvm::ISTR opcoes(argc - 3, argv + 3);
  tvm::seekArg(opcoes, "para", nomePara);
  const bool temDe = tvm::seekArg(opcoes, "de", nomeDe);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);

  const keypoints::Convencao para = leConvencao(nomePara, false);
  const keypoints::Convencao de = temDe ? leConvencao(nomeDe, true) : oposta(para);
  // The store reader refuses non-finite fields, so every angle here converts.
  const size_t mudados = keypoints::converteAngulos(keypoints, de, para);
  formats::impKeyPoints(argv[2], keypoints);
  std::printf("Keypoints=%zu de=%s para=%s angulos mudados=%zu\n", keypoints.size(), keypoints::nomeConvencao(de),
              keypoints::nomeConvencao(para), mudados);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}
