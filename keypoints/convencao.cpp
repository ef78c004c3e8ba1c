#include "keypoints/convencao.hpp"

#include "support/argumentos.hpp"

#include <cmath>

namespace keypoints {

const char* nomeConvencao(Convencao c) {
  switch (c) {
    case Convencao::horario:
      return "opencv";
    case Convencao::antiHorario:
      return "ccw";
    case Convencao::nenhuma:
      break;
  }
  return "nenhuma";
}

const std::vector<ConvencaoFerramenta>& convencoes() {
  using C = Convencao;
  // KeyCgSize, KeyGrande and KeyAngulo's input pass angles through; they are
  // not here. DesSift and DesSurf detect in their own convention when given
  // no store, so they write it too.
  static const std::vector<ConvencaoFerramenta> tabela = {
      {"KeySift", C::horario, C::nenhuma},     {"KeySurf", C::horario, C::nenhuma},
      {"KeyFast", C::nenhuma, C::nenhuma},     {"KeyStar", C::nenhuma, C::nenhuma},
      {"KeyRand", C::antiHorario, C::nenhuma}, {"DesSift", C::horario, C::horario},
      {"DesSurf", C::horario, C::nenhuma},     {"DesSimp", C::nenhuma, C::antiHorario},
      {"DesRiff", C::nenhuma, C::nenhuma},     {"DesRihog", C::nenhuma, C::nenhuma},
      {"DesRUHOG", C::nenhuma, C::nenhuma},    {"DesForapro", C::nenhuma, C::nenhuma},
  };
  return tabela;
}

const ConvencaoFerramenta* convencaoDe(const std::string& ferramenta) {
  const std::string procurada = tvm::minuscula(ferramenta);
  for (const ConvencaoFerramenta& c : convencoes())
    if (tvm::minuscula(c.ferramenta) == procurada) return &c;
  return nullptr;
}

bool achaConvencao(const std::string& nome, bool escrita, Convencao& c) {
  const std::string n = tvm::minuscula(nome);
  if (n == "opencv") {
    c = Convencao::horario;
    return true;
  }
  if (n == "ccw") {
    c = Convencao::antiHorario;
    return true;
  }
  const ConvencaoFerramenta* f = convencaoDe(nome);
  if (f == nullptr) return false;
  c = escrita ? f->escreve : f->le;
  return true;
}

float converteAngulo(float angulo, Convencao de, Convencao para) {
  if (!std::isfinite(angulo)) return angulo;
  double a = angulo;
  if (de != Convencao::nenhuma && para != Convencao::nenhuma && de != para) a = 360.0 - a;
  a = std::fmod(a, 360.0);
  if (a < 0) a += 360.0;
  // A float just below 0 wraps to a double that rounds up to 360.
  const float f = static_cast<float>(a);
  return f >= 360.0f ? 0.0f : f;
}

size_t converteAngulos(std::vector<cv::KeyPoint>& keypoints, Convencao de, Convencao para) {
  size_t mudados = 0;
  for (cv::KeyPoint& k : keypoints) {
    const float novo = converteAngulo(k.angle, de, para);
    if (std::isfinite(k.angle) && novo != k.angle) ++mudados;
    k.angle = novo;
  }
  return mudados;
}

}  // namespace keypoints
