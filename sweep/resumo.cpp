// The summaries of a sweep's tables: the terminal's, mma.csv and pose.csv.
#include "sweep/resumo.hpp"
#include "sweep/varre.hpp"

#include "formats/csv.hpp"
#include "measures/pose.hpp"
#include "plots/graficos.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
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

// A value with `casas` decimals, NA when there is none.
std::string numero(const measures::Medida& m, int casas) {
  if (!m || !std::isfinite(*m)) return "NA";
  char s[64];
  std::snprintf(s, sizeof s, "%.*f", casas, *m);
  return s;
}

const char* const kPosada = "posed";

// One configuration's posed rows summed up: a row of pose.csv.
struct ResumoPose {
  std::string detector, descritor, casador;
  int pares = 0, falhas = 0;
  measures::Medida limiar, mAA, inliers;
  measures::AUCPose auc;
  std::array<double, 3> epipolar{};  // sums over the pairs until the end
  double casamentos = 0;
  std::vector<std::pair<std::string, std::string>> paresOk;  // (sequence, pair), sorted at the end
  measures::Medida porPar(double soma) const { return pares ? measures::Medida(soma / pares) : std::nullopt; }
};

std::vector<ResumoPose> resumoPose(const formats::TabelaCSV& t, const std::string& posesCsv) {
  const int det = t.coluna("detector"), des = t.coluna("descriptor"), mat = t.coluna("matcher"),
            tipo = t.coluna("kind"), status = t.coluna("status");
  if (std::min({det, des, mat, tipo, status}) < 0) tvm::erro("Erro: colunas de resultados ausentes em ", t.arquivo);
  if (std::none_of(t.linhas.begin(), t.linhas.end(), [&](const auto& l) { return l[tipo] == kPosada; })) return {};
  std::map<std::string, int> coluna;
  for (const char* c : {"sequence", "pair", "matches", "epipolar@1e-4", "epipolar@5e-4", "epipolar@1e-3"})
    if ((coluna[c] = t.coluna(c)) < 0) tvm::erro("Erro: coluna ", c, " ausente em " + t.arquivo);
  // A count or share of an ok row: NA is 0 (no matches, no precision).
  const auto numeroOuZero = [&](const std::vector<std::string>& l, const char* c) {
    const std::string& texto = l[coluna[c]];
    double v = 0;
    if (texto != "NA" && !tvm::textoParaDouble(texto, v))
      tvm::erro("Erro: valor invalido na coluna ", c, " de " + t.arquivo + ": " + texto);
    return v;
  };

  std::vector<ResumoPose> r;
  const auto procura = [&r](const std::string& d, const std::string& e, const std::string& c) {
    return std::find_if(r.begin(), r.end(),
                        [&](const ResumoPose& p) { return p.detector == d && p.descritor == e && p.casador == c; });
  };
  for (const auto& l : t.linhas) {
    if (l[tipo] != kPosada) continue;
    auto p = procura(l[det], l[des], l[mat]);
    if (p == r.end()) {
      p = r.insert(r.end(), ResumoPose());
      p->detector = l[det];
      p->descritor = l[des];
      p->casador = l[mat];
    }
    if (l[status] != "ok") {
      ++p->falhas;
      continue;
    }
    ++p->pares;
    p->paresOk.emplace_back(l[coluna["sequence"]], l[coluna["pair"]]);
    p->casamentos += numeroOuZero(l, "matches");
    int k = 0;
    for (const char* c : {"epipolar@1e-4", "epipolar@5e-4", "epipolar@1e-3"}) p->epipolar[k++] += numeroOuZero(l, c);
  }

  struct stat st;
  if (posesCsv.empty() || stat(posesCsv.c_str(), &st) != 0) return r;
  const formats::TabelaCSV poses = formats::leTabelaCSV(posesCsv);
  const std::vector<plots::PosesDeConfiguracao> porConfiguracao = plots::posesPorConfiguracao(poses);
  const int seq = poses.coluna("sequence"), par = poses.coluna("pair");
  const auto discorda = [&](const std::string& nome, const std::string& limiar) {
    tvm::erro("Erro: ", posesCsv, " nao tem uma linha por par posado ok de " + t.arquivo + " (" + nome + limiar + ")");
  };
  // A configuration with no pose at all (medidas=mma estimates none) keeps
  // NA; one with poses must have them for every ok pair at each threshold.
  for (ResumoPose& p : r) std::sort(p.paresOk.begin(), p.paresOk.end());
  for (const plots::PosesDeConfiguracao& c : porConfiguracao) {
    const auto p = procura(c.detector, c.descritor, c.casador);
    const std::string nome = c.detector + "/" + c.descritor + "/" + c.casador;
    if (p == r.end()) tvm::erro("Erro: ", posesCsv, " tem poses de " + nome + ", sem pares posados em " + t.arquivo);
    // The same pairs at each threshold, each as often as resultados.csv has it.
    for (size_t k = 0; k < c.limiares.size(); ++k) {
      std::vector<std::pair<std::string, std::string>> pares;
      for (size_t i : c.linhas[k]) pares.emplace_back(poses.linhas[i][seq], poses.linhas[i][par]);
      std::sort(pares.begin(), pares.end());
      if (pares != p->paresOk) discorda(nome, ", limiar " + tvm::textoDeNumero(c.limiares[k]));
    }
    const std::vector<double>& erros = c.erros[c.melhor];
    p->limiar = c.limiares[c.melhor];
    p->auc = measures::aucPose(erros);
    p->mAA = measures::mAA(erros);
    double inliers = 0;
    for (double n : c.inliers[c.melhor]) inliers += n;
    p->inliers = p->porPar(inliers);
  }
  return r;
}

// The planar table of the terminal's summary, over the rows not posed.
std::string tabelaPlana(const formats::TabelaCSV& t) {
  const std::string& resultadosCsv = t.arquivo;
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
  for (const auto& l : t.linhas) comTipos = comTipos || (!l[tipo].empty() && l[tipo] != kPosada);
  for (const auto& l : t.linhas) {
    if (l[tipo] == kPosada) continue;
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

}  // namespace

std::string tabelaResumo(const std::string& resultadosCsv, const std::string& posesCsv) {
  const formats::TabelaCSV t = formats::leTabelaCSV(resultadosCsv);
  const std::vector<ResumoPose> poses = resumoPose(t, posesCsv);
  const int tipo = t.coluna("kind");
  // A sweep of posed pairs alone has no planar table; an empty one keeps its header.
  const bool planas = poses.empty() || std::any_of(t.linhas.begin(), t.linhas.end(),
                                                   [&](const auto& l) { return l[tipo] != kPosada; });
  std::string r = planas ? tabelaPlana(t) : "";
  if (poses.empty()) return r;
  char linha[1024];
  std::snprintf(linha, sizeof linha, "%s%-8s %-10s %-7s %5s %6s %9s %7s %7s %7s %7s\n", planas ? "\n" : "",
                "detector", "descriptor", "matcher", "pairs", "failed", "threshold", "auc@5", "auc@10", "auc@20",
                "mAA");
  r += linha;
  for (const ResumoPose& p : poses) {
    std::snprintf(linha, sizeof linha, "%-8s %-10s %-7s %5d %6d %9s %7s %7s %7s %7s\n", p.detector.c_str(),
                  p.descritor.c_str(), p.casador.c_str(), p.pares, p.falhas,
                  p.limiar ? tvm::textoDeNumero(*p.limiar).c_str() : "NA", numero(p.auc[0], 4).c_str(),
                  numero(p.auc[1], 4).c_str(), numero(p.auc[2], 4).c_str(), numero(p.mAA, 4).c_str());
    r += linha;
  }
  return r;
}

std::string tabelaResumo(const std::string& resultadosCsv) { return tabelaResumo(resultadosCsv, ""); }

const char* const kCabecalhoPose =
    "detector,descriptor,matcher,pairs,failed,threshold,auc@5,auc@10,auc@20,mAA,epipolar@1e-4,epipolar@5e-4,"
    "epipolar@1e-3,matches_per_pair,inliers_per_pair";

std::string tabelaPose(const std::string& resultadosCsv, const std::string& posesCsv) {
  std::string r = std::string(kCabecalhoPose) + "\n";
  for (const ResumoPose& p : resumoPose(formats::leTabelaCSV(resultadosCsv), posesCsv)) {
    char limiar[32] = "NA";
    if (p.limiar) std::snprintf(limiar, sizeof limiar, "%.9g", *p.limiar);
    r += formats::campoCSV(p.detector) + "," + formats::campoCSV(p.descritor) + "," + formats::campoCSV(p.casador) +
         "," + std::to_string(p.pares) + "," + std::to_string(p.falhas) + "," + limiar;
    for (const measures::Medida& m : p.auc) r += "," + numero(m, 6);
    r += "," + numero(p.mAA, 6);
    for (double soma : p.epipolar) r += "," + numero(p.porPar(soma), 6);
    r += "," + numero(p.porPar(p.casamentos), 6) + "," + numero(p.inliers, 6) + "\n";
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
