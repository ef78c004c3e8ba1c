#include "plots/graficos.hpp"

#include "measures/pose.hpp"
#include "support/argumentos.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>
#include <tuple>

namespace plots {

namespace {

// Column indices of a table, each required.
struct Colunas {
  Colunas(const formats::TabelaCSV& t, std::initializer_list<const char*> nomes) {
    for (const char* n : nomes) {
      const int c = t.coluna(n);
      if (c < 0) tvm::erro("Erro: coluna ", n, " ausente em " + t.arquivo);
      indices[n] = c;
    }
  }
  int operator[](const std::string& n) const { return indices.at(n); }
  std::map<std::string, int> indices;
};

bool valor(const std::string& texto, double& v) { return tvm::textoParaDouble(texto, v); }

// Sums for means keyed by anything ordered.
struct Soma {
  double s = 0;
  int n = 0;
  void soma(const std::string& texto) {
    double v;
    if (valor(texto, v)) {
      s += v;
      ++n;
    }
  }
};

// "detector/descriptor/matcher"; a detector that is its own descriptor (a
// feature file's) once.
std::string configuracao(const std::string& det, const std::string& des, const std::string& mat) {
  return (det == des && det.find(':') != std::string::npos ? det : det + "/" + des) + "/" + mat;
}
std::string configuracao(const std::vector<std::string>& l, const Colunas& c) {
  return configuracao(l[c["detector"]], l[c["descriptor"]], l[c["matcher"]]);
}

// View k of a pair written "1-k"; 0 when the text is not such a pair.
int vistaDoPar(const std::string& par) {
  int k = 0;
  if (par.rfind("1-", 0) != 0 || !tvm::textoParaInt(par.substr(2), k)) return 0;
  return k;
}

template <typename T>
void acrescentaUnico(std::vector<T>& v, const T& x) {
  if (std::find(v.begin(), v.end(), x) == v.end()) v.push_back(x);
}

}  // namespace

Figura figuraMMA(const formats::TabelaCSV& t) {
  const Colunas c(t, {"kind", "status", "detector", "descriptor", "matcher", "mma@1", "mma@10"});
  std::vector<std::string> configs, grupos = {"all"};
  std::map<std::pair<std::string, std::string>, std::array<Soma, 10>> somas;  // (group, config)
  // A kind every row has would repeat the overall panel.
  std::map<std::string, size_t> linhasDoTipo;
  for (const auto& l : t.linhas) ++linhasDoTipo[l[c["kind"]]];
  for (const auto& l : t.linhas) {
    if (l[c["status"]] != "ok") continue;
    const std::string cfg = configuracao(l, c);
    acrescentaUnico(configs, cfg);
    std::string tipo = l[c["kind"]];
    if (linhasDoTipo[tipo] == t.linhas.size()) tipo.clear();
    if (!tipo.empty()) acrescentaUnico(grupos, tipo);
    for (const std::string& g : {std::string("all"), tipo}) {
      if (g.empty()) continue;
      for (int i = 0; i < 10; ++i) somas[{g, cfg}][i].soma(l[c["mma@1"] + i]);
    }
  }
  Figura f;
  f.titulo = "Mean matching accuracy";
  for (const std::string& g : grupos) {
    Painel p;
    p.titulo = g == "all"            ? "Overall"
               : g == "illumination" ? "Illumination"
               : g == "viewpoint"    ? "Viewpoint"
               : g == "posed"        ? "Posed"
                                     : g;
    p.eixoX = "threshold [px]";
    p.eixoY = "MMA";
    p.xMin = 1;
    p.xMax = 10;
    p.yMin = 0;
    p.yMax = 1;
    for (const std::string& cfg : configs) {
      auto it = somas.find({g, cfg});
      if (it == somas.end()) continue;
      Serie s;
      s.rotulo = cfg;
      for (int i = 0; i < 10; ++i)
        if (it->second[i].n > 0) {
          s.x.push_back(i + 1);
          s.y.push_back(it->second[i].s / it->second[i].n);
        }
      p.series.push_back(s);
    }
    f.paineis.push_back(p);
  }
  return f;
}

bool semMMA(const formats::TabelaCSV& t) {
  const Colunas c(t, {"kind", "status", "mma@1", "mma@10"});
  bool posados = false;
  for (const auto& l : t.linhas) {
    posados = posados || l[c["kind"]] == "posed";
    if (l[c["status"]] != "ok") continue;
    double v;
    for (int i = 0; i < 10; ++i)
      if (valor(l[c["mma@1"] + i], v)) return false;
  }
  return posados;
}

std::vector<std::pair<std::string, Figura>> figurasSequencias(const formats::TabelaCSV& t) {
  const Colunas c(
      t, {"sequence", "pair", "status", "detector", "descriptor", "matcher", "repeatability", "matching_score"});
  // A posed scene's pairs have no image index to plot against.
  std::vector<std::string> sequencias;
  for (const auto& l : t.linhas)
    if (vistaDoPar(l[c["pair"]]) >= 2) acrescentaUnico(sequencias, l[c["sequence"]]);
  std::vector<std::pair<std::string, Figura>> r;
  for (const std::string& nome : sequencias) {
    Painel rep, ms;
    rep.titulo = "Repeatability";
    rep.eixoY = "repeatability";
    ms.titulo = "Matching score";
    ms.eixoY = "matching score";
    int ultima = 2;
    std::vector<std::string> detectores, configs;
    std::map<std::string, std::map<int, double>> pontosRep, pontosMs;
    for (const auto& l : t.linhas) {
      const int k = vistaDoPar(l[c["pair"]]);
      if (l[c["sequence"]] != nome || l[c["status"]] != "ok" || k < 2) continue;
      ultima = std::max(ultima, k);
      double v;
      // Repeatability depends on the detector alone: its first row serves.
      const std::string det = l[c["detector"]];
      acrescentaUnico(detectores, det);
      if (valor(l[c["repeatability"]], v) && !pontosRep[det].count(k)) pontosRep[det][k] = v;
      const std::string cfg = configuracao(l, c);
      acrescentaUnico(configs, cfg);
      if (valor(l[c["matching_score"]], v)) pontosMs[cfg][k] = v;
    }
    for (Painel* p : {&rep, &ms}) {
      p->eixoX = "image";
      p->xMin = ultima > 2 ? 2 : 1.5;
      p->xMax = ultima > 2 ? ultima : 2.5;
      p->yMin = 0;
      p->yMax = 1;
    }
    for (const auto& [rotulos, pontos, painel] :
         {std::make_tuple(&detectores, &pontosRep, &rep), std::make_tuple(&configs, &pontosMs, &ms)})
      for (const std::string& rotulo : *rotulos) {
        Serie s;
        s.rotulo = rotulo;
        for (const auto& [k, v] : (*pontos)[rotulo]) {
          s.x.push_back(k);
          s.y.push_back(v);
        }
        painel->series.push_back(s);
      }
    Figura f;
    f.titulo = "Sequence " + nome;
    f.paineis = {rep, ms};
    r.emplace_back(nome, f);
  }
  return r;
}

std::vector<std::pair<std::string, Figura>> figurasCurvas(const formats::TabelaCSV& t) {
  const Colunas c(t, {"sequence", "pair", "detector", "descriptor", "matcher", "one_minus_precision", "recall"});
  // At most this many points per line: a few thousand matches draw the same.
  constexpr size_t kPontos = 400;
  std::vector<std::string> pares;
  std::map<std::string, std::vector<std::string>> configs;
  std::map<std::pair<std::string, std::string>, Serie> series;
  for (const auto& l : t.linhas) {
    const std::string par = l[c["sequence"]] + "-" + l[c["pair"]], cfg = configuracao(l, c);
    acrescentaUnico(pares, par);
    acrescentaUnico(configs[par], cfg);
    double x, y;
    if (!valor(l[c["one_minus_precision"]], x) || !valor(l[c["recall"]], y)) continue;
    Serie& s = series[{par, cfg}];
    s.rotulo = cfg;
    s.x.push_back(x);
    s.y.push_back(y);
  }
  std::vector<std::pair<std::string, Figura>> r;
  for (const std::string& par : pares) {
    Painel p;
    p.titulo = "Pair " + par;
    p.eixoX = "1 - precision";
    p.eixoY = "recall";
    for (const std::string& cfg : configs[par]) {
      const Serie& todos = series[{par, cfg}];
      Serie s;
      s.rotulo = cfg;
      const size_t passo = std::max<size_t>(1, todos.x.size() / kPontos);
      for (size_t i = 0; i < todos.x.size(); i += passo) {
        s.x.push_back(todos.x[i]);
        s.y.push_back(todos.y[i]);
      }
      if (!todos.x.empty() && (todos.x.size() - 1) % passo != 0) {
        s.x.push_back(todos.x.back());
        s.y.push_back(todos.y.back());
      }
      p.series.push_back(s);
    }
    Figura f;
    f.titulo = "Recall vs 1-precision";
    f.marcadores = false;
    f.paineis = {p};
    r.emplace_back(par, f);
  }
  return r;
}

std::vector<PosesDeConfiguracao> posesPorConfiguracao(const formats::TabelaCSV& t) {
  const Colunas c(t, {"sequence", "pair", "detector", "descriptor", "matcher", "threshold", "pose_error", "inliers"});
  const auto invalido = [&](const char* coluna, const std::string& texto) {
    tvm::erro("Erro: valor invalido na coluna ", coluna, " de " + t.arquivo + ": " + texto);
  };
  std::vector<PosesDeConfiguracao> r;
  for (size_t i = 0; i < t.linhas.size(); ++i) {
    const auto& l = t.linhas[i];
    double limiar = 0, erro = std::numeric_limits<double>::infinity(), inliers = 0;
    if (!valor(l[c["threshold"]], limiar) || !(limiar > 0)) invalido("threshold", l[c["threshold"]]);
    if (l[c["pose_error"]] != "NA" && !valor(l[c["pose_error"]], erro)) invalido("pose_error", l[c["pose_error"]]);
    if (l[c["inliers"]] != "NA" && !valor(l[c["inliers"]], inliers)) invalido("inliers", l[c["inliers"]]);
    const std::string &det = l[c["detector"]], &des = l[c["descriptor"]], &mat = l[c["matcher"]];
    auto cfg = std::find_if(r.begin(), r.end(), [&](const PosesDeConfiguracao& p) {
      return p.detector == det && p.descritor == des && p.casador == mat;
    });
    if (cfg == r.end()) cfg = r.insert(r.end(), PosesDeConfiguracao{det, des, mat, {}, {}, {}, {}, 0});
    const size_t k = std::find(cfg->limiares.begin(), cfg->limiares.end(), limiar) - cfg->limiares.begin();
    if (k == cfg->limiares.size()) {
      cfg->limiares.push_back(limiar);
      cfg->linhas.emplace_back();
      cfg->erros.emplace_back();
      cfg->inliers.emplace_back();
    }
    cfg->linhas[k].push_back(i);
    cfg->erros[k].push_back(erro);
    cfg->inliers[k].push_back(inliers);
  }
  for (PosesDeConfiguracao& p : r) {
    // Every threshold has a row, so there is a best one.
    const double melhor = measures::melhorLimiar(p.limiares, p.erros)->limiar;
    p.melhor = std::find(p.limiares.begin(), p.limiares.end(), melhor) - p.limiares.begin();
  }
  return r;
}

std::optional<Figura> figuraPose(const formats::TabelaCSV& t) {
  const std::vector<PosesDeConfiguracao> configs = posesPorConfiguracao(t);
  if (configs.empty()) return std::nullopt;
  constexpr int kPassos = 300;  // of 0.1 degree
  constexpr double kMaximo = 30;
  Painel p;
  p.titulo = "Posed pairs";
  p.eixoX = "pose error [deg]";
  p.eixoY = "share of pairs";
  p.xMax = kMaximo;
  for (const PosesDeConfiguracao& cfg : configs) {
    std::vector<double> e = cfg.erros[cfg.melhor];
    std::sort(e.begin(), e.end());
    Serie s;
    s.rotulo = configuracao(cfg.detector, cfg.descritor, cfg.casador) + " (" +
               tvm::textoDeNumero(cfg.limiares[cfg.melhor]) + " px)";
    for (int i = 0; i <= kPassos; ++i) {
      const double x = kMaximo * i / kPassos;
      s.x.push_back(x);
      s.y.push_back(static_cast<double>(std::upper_bound(e.begin(), e.end(), x) - e.begin()) /
                    static_cast<double>(e.size()));
    }
    p.series.push_back(s);
  }
  Figura f;
  f.titulo = "Cumulative pose error";
  f.marcadores = false;
  f.paineis = {p};
  return f;
}

void desenhaGraficos(const std::string& resultados, const std::string& curvas, const std::string& pasta,
                     const std::string& poses) {
  const formats::TabelaCSV t = formats::leTabelaCSV(resultados);
  tvm::criaPastas(pasta);
  if (!semMMA(t)) desenha(figuraMMA(t), pasta + "/mma");
  for (const auto& [nome, f] : figurasSequencias(t)) desenha(f, pasta + "/seq-" + nome);
  struct stat st;
  if (!poses.empty() && stat(poses.c_str(), &st) == 0)
    if (const std::optional<Figura> f = figuraPose(formats::leTabelaCSV(poses))) desenha(*f, pasta + "/pose");
  if (curvas.empty() || stat(curvas.c_str(), &st) != 0) return;
  // A posed pair's name holds a space and may hold folders: one file name
  // for it, made as the sweep makes its drawings' names.
  for (auto [nome, f] : figurasCurvas(formats::leTabelaCSV(curvas))) {
    for (char& ch : nome)
      if (ch == '/' || ch == ':' || ch == ' ') ch = '_';
    desenha(f, pasta + "/curva-" + nome);
  }
}

}  // namespace plots

void Graficos(int argc, char** argv) {
  if (argc < 3)
    tvm::falhaUso({"Graficos: Desenha MMA, repetibilidade, matching score e recall x 1-precisao de uma tabela",
                   "Graficos resultados.csv PASTA [curvas=curvas.csv] [poses=poses.csv]",
                   "  Grava PASTA/mma, PASTA/seq-NOME e PASTA/curva-NOME-1-K, cada um em .png e .svg;",
                   "  com poses=, PASTA/pose: erro de pose acumulado dos pares posados"});
  std::string curvas, poses;
  tvm::ISTR opcoes(argc - 3, argv + 3);
  tvm::seekArg(opcoes, "curvas", curvas);
  tvm::seekArg(opcoes, "poses", poses);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  for (const std::string& a : {curvas, poses}) {
    struct stat st;
    if (!a.empty() && stat(a.c_str(), &st) != 0) tvm::erro("Erro abertura arquivo ", a);
  }
  plots::desenhaGraficos(argv[1], curvas, argv[2], poses);
  std::printf("Graficos: %s\n", argv[2]);
}
