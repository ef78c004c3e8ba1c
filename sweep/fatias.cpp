#include "sweep/fatias.hpp"

#include "formats/csv.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/saida_segura.hpp"
#include "sweep/varre.hpp"

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>

namespace sweep {

namespace {

std::string textoFatia(const Fatia& f) { return std::to_string(f.indice) + "/" + std::to_string(f.total); }

// A whole number and nothing else.
bool inteiro(const std::string& texto, long long& v) {
  if (texto.empty() || texto.size() > 9 || texto.find_first_not_of("0123456789") != std::string::npos) return false;
  v = std::stoll(texto);
  return true;
}

long contaLinhas(const std::string& texto) { return static_cast<long>(std::count(texto.begin(), texto.end(), '\n')); }

std::string lista(const std::vector<Fatia>& fs) {
  std::string r;
  for (const Fatia& f : fs) r += (r.empty() ? "" : ", ") + textoFatia(f);
  return r;
}

bool leManifesto(const std::string& arquivo, Manifesto& m) {
  std::string texto;
  if (!leTexto(arquivo, texto)) return false;
  std::istringstream in(texto);
  std::string chave;
  int campos = 0;
  while (in >> chave) {
    if (chave == "plano") {
      campos += static_cast<bool>(in >> m.plano);
    } else if (chave == "unidades") {
      campos += static_cast<bool>(in >> m.unidades.inicio >> m.unidades.fim >> m.totalUnidades);
    } else if (chave == "linhas") {
      campos += static_cast<bool>(in >> m.linhas >> m.tempos >> m.curvas >> m.poses);
    } else if (chave == "falhas") {
      campos += static_cast<bool>(in >> m.falhas);
    } else if (chave == "graficos") {
      campos += static_cast<bool>(in >> m.graficos);
    } else {
      return false;
    }
  }
  return campos == 5;
}

}  // namespace

bool leTexto(const std::string& arquivo, std::string& texto) {
  std::ifstream f{arquivo, std::ios::binary};
  if (!f) return false;
  std::ostringstream todo;
  todo << f.rdbuf();
  texto = todo.str();
  return true;
}

std::string corpo(const std::string& texto) {
  const size_t fim = texto.find('\n');
  return fim == std::string::npos ? "" : texto.substr(fim + 1);
}

Faixa faixa(int unidades, const Fatia& f) {
  const long long u = unidades;
  return {static_cast<int>(u * f.indice / f.total), static_cast<int>(u * (f.indice + 1) / f.total)};
}

Fatia leFatia(const std::string& texto) {
  const size_t barra = texto.find('/');
  long long i = -1, n = 0;
  if (barra == std::string::npos || !inteiro(texto.substr(0, barra), i) || !inteiro(texto.substr(barra + 1), n) ||
      n < 1 || i >= n)
    tvm::erro("Erro: shard deve ser i/n, com 0 <= i < n: ", texto);
  return {static_cast<int>(i), static_cast<int>(n)};
}

bool fatiaDoSlurm(const char* id, const char* contagem, const char* minimo, Fatia& f) {
  if (!id) return false;
  long long i = 0, n = 0, m = 0;
  if (!inteiro(id, i)) tvm::erro("Erro: SLURM_ARRAY_TASK_ID invalido: ", id);
  if (!contagem || !inteiro(contagem, n) || n < 1)
    tvm::erro("Erro: SLURM_ARRAY_TASK_COUNT ausente ou invalido: ", contagem ? contagem : "");
  if (minimo && !inteiro(minimo, m)) tvm::erro("Erro: SLURM_ARRAY_TASK_MIN invalido: ", minimo);
  if (i < m || i - m >= n)
    tvm::erro("Erro: tarefa ", std::string(id) + " fora do vetor de " + std::to_string(n) + " a partir de " +
                                   std::to_string(m) + "; use shard=i/n");
  f = {static_cast<int>(i - m), static_cast<int>(n)};
  return true;
}

std::string nomeFatia(const Fatia& f) {
  return "fatias/fatia-" + std::to_string(f.indice) + "-de-" + std::to_string(f.total);
}

void gravaFatia(const std::string& saida, const Fatia& f, const Manifesto& m, const Tabelas& t) {
  tvm::criaPastas(saida + "/fatias");
  const std::string base = saida + "/" + nomeFatia(f);
  tvm::SaidaSegura resultados(base + ".resultados.csv"), tempos(base + ".tempos.csv"),
      curvas(base + ".curvas.csv"), poses(base + ".poses.csv"), manifesto(base + ".txt");
  formats::escreveTexto(resultados, std::string(kCabecalho) + "\n" + t.linhas);
  formats::escreveTexto(tempos, std::string(kCabecalhoTempos) + "\n" + t.tempos);
  formats::escreveTexto(curvas, std::string(kCabecalhoCurvas) + "\n" + t.curvas);
  formats::escreveTexto(poses, std::string(kCabecalhoPoses) + "\n" + t.poses);
  formats::escreveTexto(manifesto, "plano " + m.plano + "\nunidades " + std::to_string(m.unidades.inicio) + " " +
                                       std::to_string(m.unidades.fim) + " " + std::to_string(m.totalUnidades) +
                                       "\nlinhas " + std::to_string(contaLinhas(t.linhas)) + " " +
                                       std::to_string(contaLinhas(t.tempos)) + " " +
                                       std::to_string(contaLinhas(t.curvas)) + " " +
                                       std::to_string(contaLinhas(t.poses)) + "\nfalhas " +
                                       std::to_string(m.falhas) + "\ngraficos " + (m.graficos ? "1" : "0") + "\n");
  tvm::SaidaSegura::confirmaJuntas({&resultados, &tempos, &curvas, &poses, &manifesto});
}

Juncao junta(const std::string& saida) {
  const std::string pasta = saida + "/fatias";
  // Closed however the loop ends, and only after the entry's name is used.
  const std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(pasta.c_str()), closedir);
  if (!d) tvm::erro("Erro: nenhuma fatia em ", pasta);
  std::vector<std::pair<Fatia, Manifesto>> achadas;
  while (const dirent* e = readdir(d.get())) {
    const std::string nome = e->d_name;
    int i = -1, n = -1, lidos = 0;
    if (std::sscanf(nome.c_str(), "fatia-%d-de-%d.txt%n", &i, &n, &lidos) != 2 ||
        lidos != static_cast<int>(nome.size()))
      continue;
    const Fatia f{i, n};
    Manifesto m;
    if (i < 0 || n < 1 || i >= n || nomeFatia(f) + ".txt" != "fatias/" + nome || !leManifesto(pasta + "/" + nome, m))
      tvm::erro("Erro: fatia ilegivel ", pasta + "/" + nome);
    achadas.emplace_back(f, m);
  }
  if (achadas.empty()) tvm::erro("Erro: nenhuma fatia em ", pasta);
  std::sort(achadas.begin(), achadas.end(), [](const auto& a, const auto& b) {
    return std::make_pair(a.first.total, a.first.indice) < std::make_pair(b.first.total, b.first.indice);
  });

  // One sweep: the plan of the first shard is the reference.
  std::vector<Fatia> outras, todas;
  for (const auto& [f, m] : achadas) {
    todas.push_back(f);
    if (m.plano != achadas.front().second.plano) outras.push_back(f);
  }
  if (!outras.empty())
    tvm::erro("Erro: fatias de outra varredura em ", pasta + " (plano diferente de " +
                                                          textoFatia(achadas.front().first) + "): " + lista(outras));
  // Shards of two divisions cover the same units twice.
  if (achadas.front().first.total != achadas.back().first.total)
    tvm::erro("Erro: fatias duplicadas em ", pasta + " (divisoes diferentes): " + lista(todas));
  const int n = achadas.front().first.total;
  std::vector<Fatia> faltam;
  for (int i = 0, j = 0; i < n; ++i) {
    if (j < static_cast<int>(achadas.size()) && achadas[j].first.indice == i)
      ++j;
    else
      faltam.push_back({i, n});
  }
  if (!faltam.empty()) tvm::erro("Erro: faltam fatias em ", pasta + ": " + lista(faltam));

  Juncao r;
  r.fatias = n;
  Tabelas t;
  for (const auto& [f, m] : achadas) {
    const std::string base = saida + "/" + nomeFatia(f);
    std::string resultados, tempos, curvas, poses;
    const Faixa esperada = faixa(m.totalUnidades, f);
    if (!leTexto(base + ".resultados.csv", resultados) || !leTexto(base + ".tempos.csv", tempos) ||
        !leTexto(base + ".curvas.csv", curvas) || !leTexto(base + ".poses.csv", poses) ||
        resultados.rfind(std::string(kCabecalho) + "\n", 0) != 0 ||
        esperada.inicio != m.unidades.inicio || esperada.fim != m.unidades.fim ||
        contaLinhas(corpo(resultados)) != m.linhas || contaLinhas(corpo(tempos)) != m.tempos ||
        contaLinhas(corpo(curvas)) != m.curvas || contaLinhas(corpo(poses)) != m.poses)
      tvm::erro("Erro: fatia ", textoFatia(f) + " incompleta em " + pasta + "; rode-a de novo");
    t.linhas += corpo(resultados);
    t.tempos += corpo(tempos);
    t.curvas += corpo(curvas);
    t.poses += corpo(poses);
    r.unidades = m.totalUnidades;
    r.falhas += m.falhas;
    r.graficos = m.graficos;
  }
  tvm::SaidaSegura resultados(saida + "/resultados.csv"), tempos(saida + "/tempos.csv"),
      curvas(saida + "/curvas.csv"), poses(saida + "/poses.csv");
  formats::escreveTexto(resultados, std::string(kCabecalho) + "\n" + t.linhas);
  formats::escreveTexto(tempos, std::string(kCabecalhoTempos) + "\n" + t.tempos);
  formats::escreveTexto(curvas, std::string(kCabecalhoCurvas) + "\n" + t.curvas);
  formats::escreveTexto(poses, std::string(kCabecalhoPoses) + "\n" + t.poses);
  tvm::SaidaSegura::confirmaJuntas({&resultados, &tempos, &curvas, &poses});
  return r;
}

}  // namespace sweep
