// The table of algorithms written for people: `quivelar Algoritmos` and the
// README's copy of it.
#include "algoritmos/tabela.hpp"
#include "algoritmos/tools.hpp"
#include "support/erro.hpp"

#include <cmath>
#include <cstdio>

namespace algoritmos {

namespace {

std::string opcoes(const std::vector<Opcao>& o) {
  std::string r;
  for (const Opcao& x : o) r += (r.empty() ? "" : " ") + x.nome + (x.padrao.empty() ? "" : "=" + x.padrao);
  return r.empty() ? "-" : "`" + r + "`";
}

std::string memoria(double porPixel) {
  if (porPixel <= 0) return "-";
  return std::to_string(static_cast<int>(std::lround(porPixel)));
}

// The descriptor its default build computes in the same pass, as a sweep
// would use it.
std::string umaPassada(const LinhaDetector& l) {
  tvm::ISTR nenhuma(0, nullptr);
  const std::string d = l.cria(nenhuma).descreveComo;
  return d.empty() ? "-" : d;
}

}  // namespace

std::string tabelaMarkdown() {
  std::string r =
      "| det= | tool | options (defaults) | angle written | keypoint size | bytes/pixel | one pass with |\n"
      "|---|---|---|---|---|---|---|\n";
  for (const LinhaDetector& l : detectores())
    r += std::string("| ") + l.nome + " | " + l.ferramenta + " | " + opcoes(l.opcoes) + " | " +
         keypoints::nomeConvencao(l.escreve) + " | " + l.regiao + " | " + memoria(l.bytesPorPixel) +
         (l.bytesFixos > 0 ? " + " + std::to_string(static_cast<int>(l.bytesFixos / 1e6)) + " MB" : "") + " | " +
         umaPassada(l) + " |\n";
  r += "\n| des= | tool | options (defaults) | row | element/norm | angle read | angle written | bytes/pixel | keypoints of "
       "|\n|---|---|---|---|---|---|---|---|---|\n";
  for (const LinhaDescritor& l : descritores())
    r += std::string("| ") + l.nome + " | " + l.ferramenta + " | " + opcoes(l.opcoes) + " | " + l.dimensao + " | " +
         nomeElemento(l.elemento) + " | " + keypoints::nomeConvencao(l.le) + " | " + keypoints::nomeConvencao(l.escreve) +
         " | " + memoria(l.bytesPorPixel) +
         " | " + (l.soDe ? l.soDe : "any") + " |\n";
  r += "\n| mat= | tool | options (defaults) |\n|---|---|---|\n";
  for (const LinhaCasador& l : casadores())
    r += std::string("| ") + l.nome + " | " + l.ferramenta + " | " + opcoes(l.opcoes) + " |\n";
  r += "\n| Varre | ARG | reads |\n|---|---|---|\n";
  for (const LinhaFonte& l : fontes())
    r += std::string("| `") + l.chave + "=" + (std::string(l.chave) == "ext" ? "" : std::string(l.nome) + ":") +
         "ARG` | " + l.argumento + " | " + l.layout + " |\n";
  return r;
}

}  // namespace algoritmos

void Algoritmos(int argc, char**) {
  if (argc != 1)
    tvm::falhaUso({"Algoritmos", "  Lista detectores, descritores e casadores: opcoes, padroes, convencoes, pares"});
  std::fputs(algoritmos::tabelaMarkdown().c_str(), stdout);
}
