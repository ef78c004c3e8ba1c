// RUHOG: the ring histogram of oriented gradients of RIHOG (rihog.hpp) with
// rings of equal area instead of equal width, so that the outer rings, which
// see the most pixels, are no longer over-represented by area.
#pragma once

#include "descriptors/rihog.hpp"

// Ring i (0-based) ends at the radius sqrt(i + 1) * raio / sqrt(naneis) plus
// tvm::epsilon, so a pixel lying exactly on a boundary stays in the inner
// ring. raio is the outer radius in whole pixels: ladoNucleo = 2 * raio + 1.
class RUHOG : public HogAneis {
 public:
  RUHOG(int naneis = 5, int raio = 40, int nbins = 20, int ngauss = 37, bool bcinv = true);

 private:
  // Validates the options and returns raio.
  static int raioValido(int naneis, int raio, int nbins, int ngauss);
};
