// The summary a sweep prints: means per configuration over the pairs.
#include "sweep/varre.hpp"

#include "formats/csv.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <algorithm>
#include <cmath>
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

const char* const kCabecalhoMMA =
    "detector,descriptor,matcher,split,pairs,failed,features_per_image,matches_per_pair,"
    "mma@1,mma@2,mma@3,mma@4,mma@5,mma@6,mma@7,mma@8,mma@9,mma@10";

// D2-Net's HPatches-sequences evaluation (Dusmanu et al., CVPR 2019, and its
// published notebook): per method, the MMA at each threshold summed over
// pairs and divided by the pairs, split into illumination ("i_") and
// viewpoint ("v_") sequences; features counted per image (image 1 once per
// sequence), matches per pair. The notebook would make a whole method NaN
// for a pair without a match; such a pair counts 0 here.
std::string tabelaMMA(const std::string& resultadosCsv) {
  const formats::TabelaCSV t = formats::leTabelaCSV(resultadosCsv);
  const int det = t.coluna("detector"), des = t.coluna("descriptor"), mat = t.coluna("matcher"),
            tipo = t.coluna("kind"), status = t.coluna("status"), seq = t.coluna("sequence"),
            k1 = t.coluna("keypoints1"), k2 = t.coluna("keypoints2"), casamentos = t.coluna("matches"),
            mma1 = t.coluna("mma@1");
  if (std::min({det, des, mat, tipo, status, seq, k1, k2, casamentos, mma1}) < 0)
    tvm::erro("Erro: colunas de resultados ausentes em ", resultadosCsv);
  struct Grupo {
    int pares = 0, falhas = 0, imagens = 0;
    double keypoints = 0, casamentos = 0, mma[10] = {};
    std::vector<std::string> sequencias;  // whose image 1 is counted
  };
  std::vector<std::string> ordem;
  std::map<std::string, Grupo> grupos;
  for (const auto& l : t.linhas) {
    const std::string config = l[det] + "," + l[des] + "," + l[mat];
    for (const std::string& divisao : {std::string("all"), l[tipo]}) {
      if (divisao.empty()) continue;
      const std::string chave = config + "," + divisao;
      if (!grupos.count(chave)) ordem.push_back(chave);
      Grupo& g = grupos[chave];
      if (l[status] != "ok") {
        ++g.falhas;
        continue;
      }
      double v = 0;
      const auto numero = [&](int c) { return tvm::textoParaDouble(l[c], v) ? v : 0.0; };
      if (std::find(g.sequencias.begin(), g.sequencias.end(), l[seq]) == g.sequencias.end()) {
        g.sequencias.push_back(l[seq]);
        g.keypoints += numero(k1);
        ++g.imagens;
      }
      g.keypoints += numero(k2);
      ++g.imagens;
      // resultados.csv holds each share to six decimals; the count of matches
      // within t, share x matches rounded, gives it back exactly.
      const double n = numero(casamentos);
      g.casamentos += n;
      ++g.pares;
      for (int i = 0; i < 10; ++i) g.mma[i] += n > 0 ? std::round(numero(mma1 + i) * n) / n : 0.0;
    }
  }
  // Each configuration's rows together, "all" first.
  std::vector<std::string> configs;
  const auto configuracao = [](const std::string& k) { return k.substr(0, k.find_last_of(',')); };
  for (const std::string& k : ordem)
    if (std::find(configs.begin(), configs.end(), configuracao(k)) == configs.end()) configs.push_back(configuracao(k));
  std::stable_sort(ordem.begin(), ordem.end(), [&](const std::string& a, const std::string& b) {
    return std::find(configs.begin(), configs.end(), configuracao(a)) <
           std::find(configs.begin(), configs.end(), configuracao(b));
  });
  std::string r = std::string(kCabecalhoMMA) + "\n";
  const auto media = [](double soma, int n) {
    if (n == 0) return std::string("NA");
    char s[32];
    std::snprintf(s, sizeof s, "%.6f", soma / n);
    return std::string(s);
  };
  for (const std::string& k : ordem) {
    const Grupo& g = grupos[k];
    r += k + "," + std::to_string(g.pares) + "," + std::to_string(g.falhas) + "," + media(g.keypoints, g.imagens) +
         "," + media(g.casamentos, g.pares);
    for (double m : g.mma) r += "," + media(m, g.pares);
    r += "\n";
  }
  return r;
}

}  // namespace sweep
