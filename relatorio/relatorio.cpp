#include "relatorio/relatorio.hpp"

#include "formats/csv.hpp"
#include "plots/graficos.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"
#include "support/saida_segura.hpp"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <vector>

namespace relatorio {

namespace {

std::string html(const std::string& texto) {
  std::string r;
  for (char c : texto) {
    switch (c) {
      case '&': r += "&amp;"; break;
      case '<': r += "&lt;"; break;
      case '>': r += "&gt;"; break;
      case '"': r += "&quot;"; break;
      default: r += c;
    }
  }
  return r;
}

std::string base64(const std::string& bytes) {
  static const char* kAlfabeto = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string r;
  r.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned a = static_cast<unsigned char>(bytes[i]);
    const unsigned b = i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) : 0;
    const unsigned c = i + 2 < bytes.size() ? static_cast<unsigned char>(bytes[i + 2]) : 0;
    const unsigned v = a << 16 | b << 8 | c;
    r += kAlfabeto[v >> 18 & 63];
    r += kAlfabeto[v >> 12 & 63];
    r += i + 1 < bytes.size() ? kAlfabeto[v >> 6 & 63] : '=';
    r += i + 2 < bytes.size() ? kAlfabeto[v & 63] : '=';
  }
  return r;
}

bool leArquivo(const std::string& nome, std::string& bytes) {
  std::ifstream f(nome, std::ios::binary);
  if (!f) return false;
  std::ostringstream s;
  s << f.rdbuf();
  bytes = s.str();
  return true;
}

std::vector<std::string> arquivosEm(const std::string& pasta, const std::string& fim) {
  std::vector<std::string> r;
  if (DIR* d = ::opendir(pasta.c_str())) {
    while (const dirent* e = ::readdir(d)) {
      const std::string n = e->d_name;
      if (n.size() > fim.size() && n.compare(n.size() - fim.size(), fim.size(), fim) == 0) r.push_back(n);
    }
    ::closedir(d);
  }
  std::sort(r.begin(), r.end());
  return r;
}

std::string numero(double v, int casas = 4) {
  char s[32];
  std::snprintf(s, sizeof s, "%.*f", casas, v);
  return s;
}

// The means of the summary, those the table has a value of, in this order.
const char* const kMedidas[] = {"repeatability", "matching_score", "mma@1", "mma@3", "mma@5", "mma@10",
                                "ap",            "homography@3"};
// The posed pairs' summary (pose.csv), per configuration: not means over
// pairs, so taken as the sweep wrote them. The threshold is a choice, not a
// measure: never marked best.
const char* const kMedidasPose[] = {"threshold", "auc@5", "auc@10", "auc@20", "mAA"};
const char* const kPosada = "posed";

struct Media {
  int pares = 0, falhas = 0;
  std::map<std::string, std::pair<double, int>> somas;  // measure -> (sum, n)
};

std::string configuracao(const std::vector<std::string>& l, const formats::TabelaCSV& t) {
  return l[t.coluna("detector")] + "\t" + l[t.coluna("descriptor")] + "\t" + l[t.coluna("matcher")];
}

bool temPosadas(const formats::TabelaCSV& t) {
  const int tipo = t.coluna("kind");
  return tipo >= 0 && std::any_of(t.linhas.begin(), t.linhas.end(), [&](const auto& l) { return l[tipo] == kPosada; });
}

// pose.csv's rows by configuration; none when the file is absent or not a
// table with its columns (a sweep older than it).
std::map<std::string, std::map<std::string, std::string>> lePose(const std::string& saida) {
  std::string texto;
  formats::TabelaCSV t;
  std::map<std::string, std::map<std::string, std::string>> r;
  if (!leArquivo(saida + "/pose.csv", texto) || !formats::analisaCSV(texto, t)) return r;
  for (const char* c : {"detector", "descriptor", "matcher"})
    if (t.coluna(c) < 0) return r;
  for (const char* c : kMedidasPose)
    if (t.coluna(c) < 0) return r;
  for (const auto& l : t.linhas)
    for (const char* c : kMedidasPose) r[configuracao(l, t)][c] = l[t.coluna(c)];
  return r;
}

// The summary tables: all pairs, then each kind of sequence but one that
// every pair has (its table would repeat the first).
std::string resumo(const formats::TabelaCSV& t, const std::string& saida) {
  const int status = t.coluna("status"), tipo = t.coluna("kind");
  std::vector<std::string> medidas;
  for (const char* m : kMedidas) {
    const int c = t.coluna(m);
    double v;
    if (c >= 0 && std::any_of(t.linhas.begin(), t.linhas.end(), [&](const auto& l) {
          return l[status] == "ok" && tvm::textoParaDouble(l[c], v);
        }))
      medidas.push_back(m);
  }
  const auto pose = lePose(saida);
  if (!pose.empty()) medidas.insert(medidas.end(), std::begin(kMedidasPose), std::end(kMedidasPose));
  std::map<std::string, size_t> linhasDoTipo;
  if (tipo >= 0)
    for (const auto& l : t.linhas) ++linhasDoTipo[l[tipo]];
  std::vector<std::string> grupos = {"all"}, configs;
  std::map<std::string, std::map<std::string, Media>> medias;  // group -> config -> means
  for (const auto& l : t.linhas) {
    const std::string cfg = configuracao(l, t);
    if (std::find(configs.begin(), configs.end(), cfg) == configs.end()) configs.push_back(cfg);
    std::string k = tipo >= 0 ? l[tipo] : "";
    if (linhasDoTipo[k] == t.linhas.size()) k.clear();
    if (!k.empty() && std::find(grupos.begin(), grupos.end(), k) == grupos.end()) grupos.push_back(k);
    for (const std::string& g : {std::string("all"), k}) {
      if (g.empty()) continue;
      Media& m = medias[g][cfg];
      if (l[status] != "ok") {
        ++m.falhas;
        continue;
      }
      ++m.pares;
      for (const std::string& medida : medidas) {
        double v;
        if (t.coluna(medida) >= 0 && tvm::textoParaDouble(l[t.coluna(medida)], v)) {
          m.somas[medida].first += v;
          ++m.somas[medida].second;
        }
      }
    }
  }
  // The pose summary holds for the groups with posed pairs: all and posed.
  for (const std::string g : {"all", kPosada})
    for (auto& [cfg, m] : medias[g]) {
      const auto p = pose.find(cfg);
      if (p == pose.end()) continue;
      for (const char* medida : kMedidasPose) {
        double v;
        if (tvm::textoParaDouble(p->second.at(medida), v)) m.somas[medida] = {v, 1};
      }
    }
  std::string r;
  for (const std::string& g : grupos) {
    // The best value of each column, marked in it.
    std::map<std::string, double> melhor;
    for (const auto& [cfg, m] : medias[g])
      for (const auto& [medida, s] : m.somas)
        if (s.second > 0 && medida != "threshold" && (!melhor.count(medida) || s.first / s.second > melhor[medida]))
          melhor[medida] = s.first / s.second;
    r += "<h3>" + html(g == "all" ? "All pairs" : g + " sequences") + "</h3>\n<table class=\"ordenavel resumo\">\n<thead><tr>"
         "<th>detector</th><th>descriptor</th><th>matcher</th><th>pairs</th><th>failed</th>";
    for (const std::string& m : medidas) r += "<th>" + html(m) + "</th>";
    r += "</tr></thead>\n<tbody>\n";
    for (const std::string& cfg : configs) {
      const auto it = medias[g].find(cfg);
      if (it == medias[g].end()) continue;
      const Media& m = it->second;
      std::string campos = cfg, linha = "<tr>";
      for (size_t i; (i = campos.find('\t')) != std::string::npos; campos.erase(0, i + 1))
        linha += "<td>" + html(campos.substr(0, i)) + "</td>";
      linha += "<td>" + html(campos) + "</td><td>" + std::to_string(m.pares) + "</td><td>" + std::to_string(m.falhas) +
               "</td>";
      for (const std::string& medida : medidas) {
        const auto s = m.somas.find(medida);
        if (s == m.somas.end() || s->second.second == 0) {
          linha += "<td class=\"na\">NA</td>";
          continue;
        }
        const double v = s->second.first / s->second.second;
        const std::string texto = medida == "threshold" ? tvm::textoDeNumero(v) : numero(v);
        const bool marcada = melhor.count(medida) && texto == numero(melhor[medida]);
        linha += std::string("<td") + (marcada ? " class=\"melhor\"" : "") + ">" + texto + "</td>";
      }
      r += linha + "</tr>\n";
    }
    r += "</tbody></table>\n";
  }
  if (!pose.empty())
    r += "<p>threshold, auc@5, auc@10, auc@20, mAA: the posed pairs' relative pose (pose.csv), at the RANSAC "
         "threshold in pixels that gives each configuration its best AUCs; a pair without a pose counts as wrong "
         "at every angle.</p>\n";
  return r;
}

std::string imagem(const std::string& tipo, const std::string& bytes, const std::string& alt) {
  return "<img alt=\"" + html(alt) + "\" src=\"data:" + tipo + ";base64," + base64(bytes) + "\">";
}

std::string graficos(const std::string& saida, const formats::TabelaCSV& t) {
  std::string r;
  if (!plots::semMMA(t))
    r += "<div class=\"figura\">" + imagem("image/svg+xml", plots::emSvg(plots::figuraMMA(t), "mma"), "MMA") +
         "</div>\n";
  std::string poses;
  formats::TabelaCSV p;
  if (temPosadas(t) && leArquivo(saida + "/poses.csv", poses) && formats::analisaCSV(poses, p))
    if (const std::optional<plots::Figura> f = plots::figuraPose(p))
      r += "<div class=\"figura\">" + imagem("image/svg+xml", plots::emSvg(*f, "pose"), "Cumulative pose error") +
           "</div>\n";
  const auto sequencias = plots::figurasSequencias(t);
  int n = 0;
  for (const auto& [nome, f] : sequencias) {
    if (++n > kMaxSequencias) break;
    r += "<div class=\"figura\">" + imagem("image/svg+xml", plots::emSvg(f, nome), nome) + "</div>\n";
  }
  if (n > kMaxSequencias)
    r += "<p>The plots of " + std::to_string(sequencias.size() - kMaxSequencias) +
         " more sequences are in graficos/.</p>\n";
  std::string curvas;
  if (leArquivo(saida + "/curvas.csv", curvas)) {
    formats::TabelaCSV c;
    if (formats::analisaCSV(curvas, c))
      for (const auto& [nome, f] : plots::figurasCurvas(c))
        r += "<div class=\"figura\">" + imagem("image/svg+xml", plots::emSvg(f, nome), nome) + "</div>\n";
  }
  return r;
}

// The row of the table a drawing shows: "<sequence>@<pair>@<config>.jpg" with
// '@' between the configuration's names.
std::string desenhos(const std::string& saida, const formats::TabelaCSV& t) {
  const std::vector<std::string> nomes = arquivosEm(saida + "/desenhos", ".jpg");
  if (nomes.empty()) return "<p>The sweep kept no drawing (they are made for the pair of curva=, unless desenhos=0).</p>\n";
  std::string r;
  int n = 0;
  for (const std::string& nome : nomes) {
    if (++n > kMaxDesenhos) break;
    std::string bytes;
    if (!leArquivo(saida + "/desenhos/" + nome, bytes)) continue;
    std::string resumo = nome.substr(0, nome.size() - 4);
    std::replace(resumo.begin(), resumo.end(), '@', ' ');
    std::string medidas;
    for (const auto& l : t.linhas) {
      const std::string chave = l[t.coluna("sequence")] + "@" + l[t.coluna("pair")] + "@" + l[t.coluna("detector")] +
                                "@" + l[t.coluna("descriptor")] + "@" + l[t.coluna("matcher")] + ".jpg";
      std::string arquivo = chave;
      for (char& c : arquivo)
        if (c == '/' || c == ':' || c == ' ') c = '_';
      if (arquivo != nome) continue;
      std::vector<const char*> colunas = {"matches", "correct", "matching_score", "mma@3", "ap"};
      if (t.coluna("kind") >= 0 && l[t.coluna("kind")] == kPosada)
        colunas.insert(colunas.end(), {"inliers", "pose_error"});
      for (const char* m : colunas)
        if (t.coluna(m) >= 0) medidas += std::string(m) + " " + l[t.coluna(m)] + " &nbsp; ";
    }
    r += "<details><summary>" + html(resumo) + " &nbsp; <small>" + medidas + "</small></summary>" +
         imagem("image/jpeg", bytes, resumo) + "</details>\n";
  }
  if (n > kMaxDesenhos)
    r += "<p>" + std::to_string(nomes.size() - kMaxDesenhos) + " more drawings are in desenhos/.</p>\n";
  return "<p>The pair of curva= (Varre's option; run it again with another pair to draw that one), each "
         "configuration: correct matches in green, wrong ones in red, the ten worst wrong ones (largest reprojection "
         "error) circled.</p>\n" + r;
}

std::string pares(const formats::TabelaCSV& t) {
  const char* const colunas[] = {"pair",    "detector",       "descriptor", "matcher", "status", "keypoints1",
                                 "keypoints2", "matches", "correct", "repeatability", "matching_score",
                                 "mma@3", "ap", "homography_error", "inliers", "pose_error", "epipolar@5e-4"};
  // The pose's columns are NA but on posed pairs.
  const std::vector<std::string> dePose = {"inliers", "pose_error", "epipolar@5e-4"};
  const bool posadas = temPosadas(t);
  std::vector<int> indices;
  std::string cabecalho;
  for (const char* c : colunas)
    if (t.coluna(c) >= 0 && (posadas || std::find(dePose.begin(), dePose.end(), c) == dePose.end())) {
      indices.push_back(t.coluna(c));
      cabecalho += std::string("<th>") + c + "</th>";
    }
  std::map<std::string, std::string> porSequencia;
  std::vector<std::string> ordem;
  for (const auto& l : t.linhas) {
    const std::string& s = l[t.coluna("sequence")];
    if (!porSequencia.count(s)) ordem.push_back(s);
    std::string linha = "<tr>";
    for (int i : indices) linha += "<td>" + html(l[i]) + "</td>";
    porSequencia[s] += linha + "</tr>\n";
  }
  std::string r;
  for (const std::string& s : ordem)
    r += "<details><summary>" + html(s) + "</summary><table class=\"ordenavel\"><thead><tr>" + cabecalho +
         "</tr></thead><tbody>\n" + porSequencia[s] + "</tbody></table></details>\n";
  return r;
}

std::string comoFoiFeito(const std::string& saida, const formats::TabelaCSV& t) {
  std::string r = "<table class=\"registro\">\n";
  std::ifstream registro(saida + "/varredura.txt");
  for (std::string linha; std::getline(registro, linha);) {
    const size_t espaco = linha.find(' ');
    r += "<tr><th>" + html(linha.substr(0, espaco)) + "</th><td>" +
         html(espaco == std::string::npos ? "" : linha.substr(espaco + 1)) + "</td></tr>\n";
  }
  r += "</table>\n";

  // Failed rows, one line per unit and message.
  std::vector<std::string> falhas;
  for (const auto& l : t.linhas) {
    if (l[t.coluna("status")] == "ok") continue;
    const std::string f = l[t.coluna("sequence")] + " " + l[t.coluna("detector")] + "/" + l[t.coluna("descriptor")] +
                          "/" + l[t.coluna("matcher")] + ": " + l[t.coluna("status")];
    if (std::find(falhas.begin(), falhas.end(), f) == falhas.end()) falhas.push_back(f);
  }
  r += "<h3>Failed rows</h3>\n";
  if (falhas.empty()) r += "<p>None.</p>\n";
  for (size_t i = 0; i < falhas.size() && i < 200; ++i) r += "<div class=\"falha\">" + html(falhas[i]) + "</div>\n";

  // Seconds of each stage, summed per configuration.
  std::string tempos;
  formats::TabelaCSV tt;
  if (leArquivo(saida + "/tempos.csv", tempos) && formats::analisaCSV(tempos, tt) && tt.coluna("detect_s") >= 0) {
    std::vector<std::string> configs;
    std::map<std::string, std::array<double, 4>> somas;
    for (const auto& l : tt.linhas) {
      const std::string cfg = l[tt.coluna("detector")] + "/" + l[tt.coluna("descriptor")] + "/" + l[tt.coluna("matcher")];
      if (!somas.count(cfg)) configs.push_back(cfg), somas[cfg] = {};
      int i = 0;
      for (const char* c : {"detect_s", "describe_s", "match_s", "measure_s"}) {
        double v;
        if (tvm::textoParaDouble(l[tt.coluna(c)], v)) somas[cfg][i] += v;
        ++i;
      }
    }
    r += "<h3>Seconds per stage</h3>\n<p>Summed over the rows of each configuration (tempos.csv explains what "
         "each row counts).</p>\n<table class=\"ordenavel\"><thead><tr><th>configuration</th><th>detect_s</th>"
         "<th>describe_s</th><th>match_s</th><th>measure_s</th></tr></thead><tbody>\n";
    for (const std::string& c : configs) {
      r += "<tr><td>" + html(c) + "</td>";
      for (double v : somas[c]) r += "<td>" + numero(v, 3) + "</td>";
      r += "</tr>\n";
    }
    r += "</tbody></table>\n";
  }
  return r;
}

const char* const kEstilo = R"(
body { font-family: sans-serif; margin: 1.5em; color: #222; }
h1 { font-size: 1.5em; } h2 { margin-top: 1.6em; border-bottom: 1px solid #ccc; }
table { border-collapse: collapse; margin: 0.5em 0; font-size: 0.9em; }
th, td { border: 1px solid #ccc; padding: 0.2em 0.5em; text-align: right; }
td:nth-child(-n+3), th:nth-child(-n+3) { text-align: left; }
table.ordenavel th { cursor: pointer; background: #f0f0f0; }
table.ordenavel th[data-ordem="asc"]::after { content: " \25B2"; }
table.ordenavel th[data-ordem="desc"]::after { content: " \25BC"; }
td.melhor { font-weight: bold; background: #dff0d8; }
td.na { color: #999; }
table.registro th, table.registro td { text-align: left; }
.figura img { max-width: 100%; margin: 0.5em 0; }
details { margin: 0.3em 0; } details img { max-width: 100%; display: block; margin: 0.4em 0; }
.falha { font-family: monospace; color: #a00; }
)";

// Sorting by a click on a header: numbers as numbers (NA last), the rest as
// text; a second click reverses. Then the page's self-check (#autoteste).
const char* const kScript = R"(
var erros = [];
window.addEventListener('error', function (e) { erros.push(String(e.message)); });
function valor(td) { var v = parseFloat(td.textContent); return isNaN(v) ? null : v; }
function ordena(th) {
  var tabela = th.closest('table'), corpo = tabela.tBodies[0], i = th.cellIndex;
  var desc = th.dataset.ordem !== 'desc';
  Array.prototype.forEach.call(tabela.tHead.rows[0].cells, function (c) { delete c.dataset.ordem; });
  th.dataset.ordem = desc ? 'desc' : 'asc';
  var linhas = Array.prototype.slice.call(corpo.rows);
  linhas.sort(function (a, b) {
    var x = valor(a.cells[i]), y = valor(b.cells[i]);
    if (x === null && y === null) return a.cells[i].textContent.localeCompare(b.cells[i].textContent) * (desc ? -1 : 1);
    if (x === null) return 1;
    if (y === null) return -1;
    return desc ? y - x : x - y;
  });
  linhas.forEach(function (l) { corpo.appendChild(l); });
}
document.querySelectorAll('table.ordenavel th').forEach(function (th) {
  th.addEventListener('click', function () { ordena(th); });
});
window.addEventListener('load', function () {
  if (location.hash !== '#autoteste') return;
  document.querySelectorAll('details').forEach(function (d) { d.open = true; });
  var t = document.querySelector('table.resumo');
  var chave = function () {
    return Array.prototype.map.call(t.tBodies[0].rows, function (r) { return r.cells[0].textContent + '/' +
      r.cells[1].textContent + '/' + r.cells[2].textContent; }).join('|');
  };
  var cabecalhos = Array.prototype.slice.call(t.tHead.rows[0].cells);
  var cabecalho = cabecalhos.filter(function (c) { return c.textContent === 'matching_score'; })[0] ||
                  cabecalhos[cabecalhos.length - 1];
  var antes = chave();
  cabecalho.click();
  var depois = chave();
  cabecalho.click();
  var invertida = chave();
  var imagens = Array.prototype.slice.call(document.images);
  Promise.all(imagens.map(function (im) { return im.decode().then(function () { return im.naturalWidth > 0; },
    function () { return false; }); })).then(function (ok) {
    var r = { erros: erros, linhas: t.tBodies[0].rows.length, coluna: cabecalho.textContent,
              antes: antes, depois: depois, invertida: invertida,
              imagens: imagens.length, carregadas: ok.filter(function (x) { return x; }).length };
    var pre = document.createElement('pre');
    pre.id = 'autoteste';
    pre.textContent = JSON.stringify(r);
    document.body.appendChild(pre);
  });
});
)";

}  // namespace

void escreve(const std::string& saida) {
  const formats::TabelaCSV t = formats::leTabelaCSV(saida + "/resultados.csv");
  for (const char* c : {"sequence", "pair", "detector", "descriptor", "matcher", "status"})
    if (t.coluna(c) < 0) tvm::erro(std::string("Erro: coluna ") + c + " ausente em ", t.arquivo);
  std::string p = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>QUIVELAR sweep: " +
                  html(saida) + "</title>\n<style>" + kEstilo + "</style></head><body>\n<h1>QUIVELAR sweep report</h1>\n"
                  "<p>" + html(saida) + ": " + std::to_string(t.linhas.size()) +
                  " rows (pair x configuration). Click a column's name to sort by it; the best value of each column "
                  "is marked.</p>\n<h2>Summary</h2>\n" + resumo(t, saida) + "<h2>Plots</h2>\n" + graficos(saida, t) +
                  "<h2>Matches</h2>\n" + desenhos(saida, t) + "<h2>Every pair</h2>\n" + pares(t) +
                  "<h2>How it was made</h2>\n" + comoFoiFeito(saida, t) + "<script>" + kScript +
                  "</script>\n</body></html>\n";
  tvm::SaidaSegura arquivo(saida + "/relatorio.html");
  formats::escreveTexto(arquivo, p);
  arquivo.confirma();
  std::printf("Relatorio: %s/relatorio.html (%.1f MB)\n", saida.c_str(), static_cast<double>(p.size()) / 1e6);
}

}  // namespace relatorio

void Relatorio(int argc, char** argv) {
  if (argc != 2)
    tvm::falhaUso({"Relatorio: Refaz o relatorio.html de uma varredura a partir da sua pasta",
                   "Relatorio SAIDA",
                   "  Le SAIDA/resultados.csv, curvas.csv, poses.csv, pose.csv, tempos.csv, varredura.txt e",
                   "  desenhos/; escreve SAIDA/relatorio.html, uma pagina so (estilo, graficos e desenhos",
                   "  dentro dela)"});
  relatorio::escreve(argv[1]);
}
