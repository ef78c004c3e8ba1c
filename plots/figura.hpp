// Line charts drawn by PLplot (Debian's libplplot, cairo driver): a figure is
// a row of panels sharing one legend, written as PNG for a look and as SVG
// for a paper. PLplot gives axes, ticks, labels and the legend as a plotting
// library should, and its cairo driver writes both formats from one
// description, with the same fonts; nothing here draws pixels by hand.
#pragma once

#include <string>
#include <vector>

namespace plots {

struct Serie {
  std::string rotulo;        // legend text; series with equal labels share a colour
  std::vector<double> x, y;  // finite points, drawn in order
};

struct Painel {
  std::string titulo, eixoX, eixoY;
  double xMin = 0, xMax = 1, yMin = 0, yMax = 1;
  std::vector<Serie> series;
};

struct Figura {
  std::string titulo;
  std::vector<Painel> paineis;  // left to right
  bool marcadores = true;       // a symbol on each point (off for long curves)
};

// Writes `base`.png and `base`.svg, each through a temporary renamed at the
// end. Stops when the figure has no panel or a file cannot be created; a
// point that is not finite is left out of its line.
void desenha(const Figura& f, const std::string& base);

// The figure as SVG text, for a page that holds it (`nome` names it in messages).
std::string emSvg(const Figura& f, const std::string& nome);

}  // namespace plots
