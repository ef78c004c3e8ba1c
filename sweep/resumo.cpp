// The summary a sweep prints: means per configuration over the pairs.
#include "sweep/varre.hpp"

#include "formats/csv.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cstdio>
#include <map>

namespace sweep {

namespace {

const char* const kMedidas[] = {"repeatability", "matching_score", "mma@3", "ap", "homography@3"};
constexpr int kNumMedidas = sizeof(kMedidas) / sizeof(kMedidas[0]);

struct Media {
  double soma[kNumMedidas] = {};
  int n[kNumMedidas] = {};
  int pares = 0, falhas = 0;
};

std::string media(const Media& m, int i) {
  if (m.n[i] == 0) return "NA";
  char s[32];
  std::snprintf(s, sizeof s, "%.4f", m.soma[i] / m.n[i]);
  return s;
}

}  // namespace

std::string tabelaResumo(const std::string& resultadosCsv) {
  const formats::TabelaCSV t = formats::leTabelaCSV(resultadosCsv);
  const int det = t.coluna("detector"), des = t.coluna("descriptor"), mat = t.coluna("matcher"),
            tipo = t.coluna("kind"), status = t.coluna("status");
  if (det < 0 || des < 0 || mat < 0 || tipo < 0 || status < 0)
    tvm::erro("Erro: colunas de resultados ausentes em ", resultadosCsv);
  int colunas[kNumMedidas];
  for (int i = 0; i < kNumMedidas; ++i)
    if ((colunas[i] = t.coluna(kMedidas[i])) < 0)
      tvm::erro("Erro: coluna ", kMedidas[i], " ausente em " + resultadosCsv);

  // Configurations in order of first appearance; "all" first, then each kind.
  std::vector<std::string> ordem;
  std::map<std::string, Media> medias;
  bool comTipos = false;
  for (const auto& l : t.linhas) comTipos = comTipos || !l[tipo].empty();
  for (const auto& l : t.linhas) {
    const std::string config = l[det] + " " + l[des] + " " + l[mat];
    for (const std::string& grupo : {std::string("all"), l[tipo]}) {
      if (grupo.empty() || (grupo != "all" && !comTipos)) continue;
      const std::string k = config + "\t" + grupo;
      if (!medias.count(k)) ordem.push_back(k);
      Media& m = medias[k];
      if (l[status] != "ok") {
        ++m.falhas;
        continue;
      }
      ++m.pares;
      for (int i = 0; i < kNumMedidas; ++i) {
        double v;
        if (tvm::textoParaDouble(l[colunas[i]], v)) {
          m.soma[i] += v;
          ++m.n[i];
        }
      }
    }
  }
  // Each configuration's rows together: overall first, then its kinds.
  auto configuracao = [](const std::string& k) { return k.substr(0, k.find('\t')); };
  std::vector<std::string> configs;
  for (const std::string& k : ordem)
    if (std::find(configs.begin(), configs.end(), configuracao(k)) == configs.end()) configs.push_back(configuracao(k));
  std::stable_sort(ordem.begin(), ordem.end(), [&](const std::string& a, const std::string& b) {
    return std::find(configs.begin(), configs.end(), configuracao(a)) <
           std::find(configs.begin(), configs.end(), configuracao(b));
  });
  std::string r;
  char linha[1024];
  std::snprintf(linha, sizeof linha, "%-8s %-10s %-7s %-12s %5s %6s %13s %14s %7s %7s %12s\n", "detector", "descriptor",
                "matcher", "kind", "pairs", "failed", "repeatability", "matching_score", "mma@3", "ap", "homography@3");
  r += linha;
  for (const std::string& k : ordem) {
    const Media& m = medias[k];
    const size_t tab = k.find('\t');
    char d[64], e[64], c[64];
    std::sscanf(k.substr(0, tab).c_str(), "%63s %63s %63s", d, e, c);
    std::snprintf(linha, sizeof linha, "%-8s %-10s %-7s %-12s %5d %6d %13s %14s %7s %7s %12s\n", d, e, c,
                  k.substr(tab + 1).c_str(), m.pares, m.falhas, media(m, 0).c_str(), media(m, 1).c_str(),
                  media(m, 2).c_str(), media(m, 3).c_str(), media(m, 4).c_str());
    r += linha;
  }
  return r;
}

}  // namespace sweep
