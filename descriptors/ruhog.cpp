#include "descriptors/ruhog.hpp"

#include "support/img.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

const NomesHog nomesRuhog = {
    "Erro RUHOG:quantiza-1 fora de 0 a 360",
    "Erro RUHOG:quantiza-2 fora de 0 a 360",
    "Erro RUHOG::quantiza inesperado",
    "Erro RUHOG: tamanho imagem",
};

}  // namespace

int RUHOG::raioValido(int naneis, int raio, int nbins, int ngauss) {
  validaOpcoes(naneis, raio, nbins, ngauss);
  return raio;
}

RUHOG::RUHOG(int naneis, int raio, int nbins, int ngauss, bool bcinv)
    : HogAneis(nomesRuhog, naneis, raioValido(naneis, raio, nbins, ngauss), nbins, ngauss, bcinv) {
  // Outer radius of each ring.
  const double escala = static_cast<double>(raio) / std::sqrt(static_cast<double>(naneis));
  std::vector<double> raios(naneis);
  for (int i = 0; i < naneis; ++i) raios[i] = std::sqrt(static_cast<double>(i + 1)) * escala + tvm::epsilon;

  tabela_ = cv::Vec2f(-1.0f, -1.0f);
  tvm::IMG_<cv::Vec2f> t(tabela_);
  for (int x = -t.cc; x <= t.nc - t.cc - 1; ++x)
    for (int y = -(t.nl - t.lc - 1); y <= t.lc; ++y) {
      const double d = std::sqrt(static_cast<double>(x * x + y * y));
      if (d == 0.0) continue;  // the centre has no radial direction
      // First ring whose outer radius reaches d (the radii increase).
      const int i = static_cast<int>(std::lower_bound(raios.begin(), raios.end(), d) - raios.begin());
      if (i < naneis)
        t(t.lc - y, t.cc + x) =
            cv::Vec2f(cv::fastAtan2(static_cast<float>(y), static_cast<float>(x)), static_cast<float>(i));
    }
  fechaTabela();
}
