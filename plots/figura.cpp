#include "plots/figura.hpp"

#include "support/arquivos.hpp"
#include "support/erro.hpp"

#include <plplot.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace plots {

namespace {

// Colour-blind-safe qualitative palette (Tableau 10); index 0 of PLplot's
// map is the background, 1 the axes.
const int kPaleta[][3] = {{31, 119, 180}, {255, 127, 14},  {44, 160, 44},   {214, 39, 40},  {148, 103, 189},
                          {140, 86, 75},  {227, 119, 194}, {127, 127, 127}, {188, 189, 34}, {23, 190, 207}};
constexpr int kCores = sizeof(kPaleta) / sizeof(kPaleta[0]);
constexpr int kLargura = 560, kAltura = 420, kLegenda = 260;  // pixels per panel, and for the legend
constexpr int kAmostra = 40;                                  // pixels of a legend line's sample
// Text height in millimetres of PLplot's page (72 pixels to the inch),
// scaled by 0.75, and the legend's 0.8 of that. Left to PLplot, the height
// grows with the page's width and height, so wide figures would get large
// text; fixed, it is the same in every figure.
constexpr PLFLT kLetra = 6.7, kEscala = 0.75, kEscalaLegenda = 0.8;
// Tick lengths in millimetres, fixed for the same reason.
constexpr PLFLT kTicoMaior = 5.7, kTicoMenor = 2.9;

// The height of the panels' band at the top of the page, and where the
// panels and the legend start and end in it, in pixels from the top.
constexpr int kTopo = 92, kBase = 361;

// PLplot's legend of `textos` in one column, right of `paineis` pixels of
// panels and below the title on a page `largura` by `altura`; its width and
// height in pixels.
std::pair<int, int> desenhaLegenda(const std::vector<std::string>& textos, int paineis, int largura, int altura) {
  const double area = largura - paineis, topo = 1 - static_cast<double>(kTopo) / altura;
  plvpor(static_cast<double>(paineis) / largura, 1, 0, topo);
  plwind(0, 1, 0, 1);
  const int m = static_cast<int>(textos.size());
  std::vector<PLINT> opcoes(m, PL_LEGEND_LINE), cores(m), estilos(m), coresTexto(m, 1);
  std::vector<PLFLT> larguras(m, 1.0);
  std::vector<const char*> nomes(m);
  for (int i = 0; i < m; ++i) {
    cores[i] = 2 + i % kCores;
    estilos[i] = 1 + (i / kCores) % 8;
    nomes[i] = textos[i].c_str();
  }
  PLFLT w = 0, h = 0;
  pllegend(&w, &h, PL_LEGEND_BACKGROUND | PL_LEGEND_BOUNDING_BOX,
           PL_POSITION_LEFT | PL_POSITION_TOP | PL_POSITION_INSIDE, 10 / area, 0.0, kAmostra / area, 0, 1, 1, 0, 0, m,
           opcoes.data(), 0.8, kEscalaLegenda, 1.6, 0.0, coresTexto.data(), nomes.data(), nullptr, nullptr, nullptr,
           nullptr, cores.data(), estilos.data(), larguras.data(), nullptr, nullptr, nullptr, nullptr);
  return {static_cast<int>(std::ceil(w * area)), static_cast<int>(std::ceil(h * topo * altura))};
}

// The size in pixels of the legend of `textos` on a page `largura` by
// `altura` whose panels take the first `paineis` pixels, as PLplot lays it
// out on a page of the same device thrown away.
std::pair<int, int> tamanhoDaLegenda(const std::vector<std::string>& textos, int paineis, int largura, int altura,
                                     const char* dispositivo) {
  PLINT antigo = 0, sonda = 0;
  plgstrm(&antigo);
  plmkstrm(&sonda);
  plsdev(dispositivo);
  plsfnam("/dev/null");
  plspage(0, 0, largura, altura, 0, 0);
  plinit();
  pladv(0);
  plschr(kLetra, kEscala);
  const std::pair<int, int> tamanho = desenhaLegenda(textos, paineis, largura, altura);
  plend1();
  plsstrm(antigo);
  return tamanho;
}

// Every label of the figure, in order of first appearance: the legend.
std::vector<std::string> rotulos(const Figura& f) {
  std::vector<std::string> r;
  for (const Painel& p : f.paineis)
    for (const Serie& s : p.series)
      if (std::find(r.begin(), r.end(), s.rotulo) == r.end()) r.push_back(s.rotulo);
  return r;
}

void estilo(int i) {
  plcol0(2 + i % kCores);
  pllsty(1 + (i / kCores) % 8);
}

void desenhaEm(const Figura& f, const char* dispositivo, const std::string& arquivo) {
  const std::vector<std::string> legenda = rotulos(f);
  const int n = static_cast<int>(f.paineis.size());
  // The legend is as wide as its longest name (a source's,
  // "h5:feats-superpoint.h5") beside the line's sample, and a long one makes
  // the page taller below the panels, which keep their size. PLplot lays it
  // out partly in proportion to the page, so the size is found as a fixed
  // point.
  const int paineis = kLargura * n;
  int largura = paineis + kLegenda, altura = kAltura;
  for (int i = 0; i < 6 && !legenda.empty(); ++i) {
    const auto [w, h] = tamanhoDaLegenda(legenda, paineis, largura, altura, dispositivo);
    const int l = std::max(largura, paineis + w + 20), a = std::max(altura, kTopo + h + 20);
    if (l == largura && a == altura) break;
    largura = l;
    altura = a;
  }
  PLINT antigo = 0, novo = 0;
  plgstrm(&antigo);
  plmkstrm(&novo);
  plsdev(dispositivo);
  plsfnam(arquivo.c_str());
  plspage(0, 0, largura, altura, 0, 0);
  plscmap0n(2 + kCores);
  plscol0(0, 255, 255, 255);
  plscol0(1, 0, 0, 0);
  for (int i = 0; i < kCores; ++i) plscol0(2 + i, kPaleta[i][0], kPaleta[i][1], kPaleta[i][2]);
  plinit();
  pladv(0);
  plschr(kLetra, kEscala);
  plsmaj(kTicoMaior, 1);
  plsmin(kTicoMenor, 1);
  const double fimPaineis = static_cast<double>(paineis) / largura;
  const double topo = 1 - static_cast<double>(kTopo) / altura, base = 1 - static_cast<double>(kBase) / altura;
  for (int k = 0; k < n; ++k) {
    const Painel& p = f.paineis[k];
    const double x0 = fimPaineis * k / n, x1 = fimPaineis * (k + 1) / n;
    plvpor(x0 + 0.16 * (x1 - x0), x1 - 0.03 * (x1 - x0), base, topo);
    plwind(p.xMin, p.xMax, p.yMin, p.yMax);
    plcol0(1);
    pllsty(1);
    plbox("bcnst", 0, 0, "bcnstv", 0, 0);
    // pllab sets the y label 5 character heights out, past this panel's
    // margin; just beyond the tick labels it stays inside.
    pllab(p.eixoX.c_str(), "", p.titulo.c_str());
    plmtex("l", 3.6, 0.5, 0.5, p.eixoY.c_str());
    for (const Serie& s : p.series) {
      estilo(static_cast<int>(std::find(legenda.begin(), legenda.end(), s.rotulo) - legenda.begin()));
      std::vector<PLFLT> x, y;
      for (size_t i = 0; i < s.x.size() && i < s.y.size(); ++i)
        if (std::isfinite(s.x[i]) && std::isfinite(s.y[i])) {
          x.push_back(s.x[i]);
          y.push_back(s.y[i]);
        }
      if (x.empty()) continue;
      plline(static_cast<PLINT>(x.size()), x.data(), y.data());
      if (f.marcadores) plstring(static_cast<PLINT>(x.size()), x.data(), y.data(), "#(728)");
    }
  }
  // Title above all panels, legend to their right.
  plvpor(0, 1, 0, 1);
  plwind(0, 1, 0, 1);
  plcol0(1);
  plschr(kLetra, 0.95);
  plmtex("t", -1.2, 0.5 * fimPaineis, 0.5, f.titulo.c_str());
  plschr(kLetra, kEscala);
  if (!legenda.empty()) desenhaLegenda(legenda, paineis, largura, altura);
  plend1();
  plsstrm(antigo);
}

// cairo numbers its SVG surfaces ("surface241") from one count per process:
// numbered again from 1 in order of first appearance, a figure's SVG is the
// same whatever was drawn before it (the sweep's report and Relatorio's).
std::string numeraSuperficies(const std::string& svg) {
  static const std::string kPrefixo = "surface";
  std::map<std::string, std::string> novos;
  std::string r;
  size_t de = 0;
  for (size_t i; (i = svg.find(kPrefixo, de)) != std::string::npos;) {
    size_t fim = i + kPrefixo.size();
    while (fim < svg.size() && std::isdigit(static_cast<unsigned char>(svg[fim]))) ++fim;
    r.append(svg, de, i + kPrefixo.size() - de);
    const std::string numero = svg.substr(i + kPrefixo.size(), fim - i - kPrefixo.size());
    if (!numero.empty() && !novos.count(numero)) novos[numero] = std::to_string(novos.size() + 1);
    r += numero.empty() ? "" : novos[numero];
    de = fim;
  }
  return r.append(svg, de, std::string::npos);
}

// PLplot writes by file name and reports no failed write, so it draws into a
// scratch file whose bytes are checked whole (a PNG to its IEND chunk, an SVG
// to its closing tag) before the checked writer copies them to the
// destination: a full disk can cut the scratch short, never the figure.
std::string desenhaEmBytes(const Figura& f, const char* dispositivo, const std::string& destino) {
  char nome[] = "/tmp/quivelar-grafico-XXXXXX";
  const int fd = ::mkstemp(nome);
  if (fd < 0) tvm::erro("Erro: nao foi possivel criar ", destino);
  ::close(fd);
  struct Remove {
    const char* nome;
    ~Remove() { std::remove(nome); }
  } remove{nome};
  desenhaEm(f, dispositivo, nome);
  std::ifstream entrada(nome, std::ios::binary);
  std::ostringstream bytes;
  bytes << entrada.rdbuf();
  const std::string texto = bytes.str();
  static const std::string fimPng("IEND\xAE\x42\x60\x82", 8);
  const bool inteiro =
      std::string(dispositivo) == "pngcairo"
          ? texto.size() >= fimPng.size() && texto.compare(texto.size() - fimPng.size(), fimPng.size(), fimPng) == 0
          : texto.find("</svg>") != std::string::npos;
  if (!inteiro) tvm::erro("Erro: falha ao gravar ", destino);
  return std::string(dispositivo) == "svgcairo" ? numeraSuperficies(texto) : texto;
}

}  // namespace

namespace {

void confere(const Figura& f, const std::string& base) {
  if (f.paineis.empty()) tvm::erro("Erro: grafico sem paineis ", base);
  for (const Painel& p : f.paineis)
    if (!(std::isfinite(p.xMin) && std::isfinite(p.xMax) && std::isfinite(p.yMin) && std::isfinite(p.yMax)) ||
        !(p.xMax > p.xMin) || !(p.yMax > p.yMin))
      tvm::erro("Erro: eixos invalidos no grafico ", base);
}

}  // namespace

std::string emSvg(const Figura& f, const std::string& nome) {
  confere(f, nome);
  return desenhaEmBytes(f, "svgcairo", nome);
}

void desenha(const Figura& f, const std::string& base) {
  confere(f, base);
  tvm::SaidaSegura png(base + ".png"), svg(base + ".svg");
  png.escreve(desenhaEmBytes(f, "pngcairo", base + ".png"));
  svg.escreve(desenhaEmBytes(f, "svgcairo", base + ".svg"));
  tvm::SaidaSegura::confirmaJuntas({&png, &svg});
}

}  // namespace plots
