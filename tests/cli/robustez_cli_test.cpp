// Bad input, tool by tool, through the real binary. Researchers run the tools
// by the thousand from scripts, so every bad file or word must end the run
// with status 1, a last stderr line "Erro..." naming the file or value at
// fault, no signal, within a time bound, and no file left behind.
//
// The cases are generated: one table gives each tool's command line, with its
// input files, outputs and numeric words marked; every input is then replaced
// by each broken variant of its kind, every output by an unwritable path,
// every numeric word by words that are not numbers or are extreme.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using teste::PastaTemp;

constexpr double kLimite = 20.0;

// ---- the tools ------------------------------------------------------------
//
// In a command line: "@name" is an input file (its kind follows from the
// name, see tipoDe), ">name" an output file, "{}" a numeric word. A prefix
// before '@' or '>' stays ("key=@k.yml" gives "key=k.yml").

struct Ferramenta {
  const char* nome;
  std::vector<std::string> args;
  // Numeric words: an option "key={}" is added to args; a longer line is a
  // whole command line with one "{}".
  std::vector<std::vector<std::string>> numericos;
};

const std::vector<Ferramenta>& ferramentas() {
  const std::vector<std::string> des = {"@a.pgm", ">sai.yml", "key=@k.yml"};
  const std::vector<std::string> rand = {"@a.pgm", "@b.pgm", "@h.txt", "5", ">sa.yml", ">sb.yml"};
  const std::vector<std::string> hog = {"naneis={}", "raio={}", "nbins={}", "ngauss={}"};
  const auto opcoes = [](std::vector<std::string> chaves) {
    std::vector<std::vector<std::string>> v;
    for (std::string& c : chaves) v.push_back({c});
    return v;
  };
  static const std::vector<Ferramenta> tabela = {
      {"keysift", {"@a.pgm", ">sai.yml"}, {{"@a.pgm", ">sai.yml", "{}", "3"}, {"@a.pgm", ">sai.yml", "0", "{}"}}},
      {"keysurf", {"@a.pgm", ">sai.yml"}, {{"@a.pgm", ">sai.yml", "{}"}}},
      {"keyfast", {"@a.pgm", ">sai.yml"}, {{"@a.pgm", ">sai.yml", "{}"}}},
      {"keystar", {"@a.pgm", ">sai.yml"}, {}},
      {"keyrand", rand,
       [&] {
         auto v = opcoes({"seed={}", "diamMin={}", "diamMax={}", "pertPt={}", "pertDiam={}", "pertDeg={}"});
         v.push_back({"@a.pgm", "@b.pgm", "@h.txt", "{}", ">sa.yml", ">sb.yml"});
         return v;
       }()},
      {"keycgsize", {"@k.yml", ">sai.yml", "2"}, {{"@k.yml", ">sai.yml", "{}"}}},
      {"keygrande", {"@a.pgm", "@k.yml", ">sai.yml", "3"}, {{"@a.pgm", "@k.yml", ">sai.yml", "{}"}}},
      {"keyshow", {"@a.pgm", "@k.yml", ">sai.png"}, {}},
      {"keymyshow", {"@a.pgm", "@k.yml", ">sai.png"}, {}},
      {"dessift", {"@a.pgm", ">sai.yml", "@k.yml"}, {}},
      {"dessurf", {"@a.pgm", ">sai.yml", "@k.yml"}, {}},
      {"dessimp", des, opcoes({"camadas={}", "dgauss={}"})},
      {"desriff", des, opcoes({"naneis={}", "larguraAnel={}"})},
      {"desrihog", des, opcoes(hog)},
      {"desruhog", des, opcoes(hog)},
      {"desforapro", des, opcoes({"nrad={}", "ncir={}", "raio={}"})},
      {"matnn", {"@d1.yml", "@d2.yml", ">sai.txt"}, {}},
      {"matratio", {"@d1.yml", "@d2.yml", ">sai.txt"}, opcoes({"ratio={}", "acrate={}"})},
      {"matshow", {"@a.pgm", "@b.pgm", "@m.txt", ">sai.png"}, {}},
      {"matmyshow", {"@a.pgm", "@b.pgm", "@m.txt", ">sai.png"}, {}},
      {"matroc",
       {"@m.txt", "@h.txt", ">sai.png", "arquivo=>roc.txt"},
       {{"@m.txt", "@h.txt", ">sai.png", "dist={}"}, {"@m.txt", "@h.txt", ">sai.png", "cor={},0,0"}}},
      {"matacert", {"@m.txt", "@h.txt", ">sai.png"}, opcoes({"dist={}", "cor=0,{},0"})},
      {"matlab", {"@m.txt", "@h.txt", ">sai.txt"}, opcoes({"dist={}"})},
      // No display in a test run: a good MatVis run stops at the display
      // check, after every file was read.
      {"matvis", {"@a.pgm", "@b.pgm", "@m.txt", "@h.txt"}, {}},
      {"sobrroc", {">sai.png", "@c1.png", "@c2.png"}, {}},
      {"filtmat", {"@m.txt", "@h.txt", "15", ">sai.txt"}, {{"@m.txt", "@h.txt", "{}", ">sai.txt"}}},
  };
  return tabela;
}

// ---- good inputs ----------------------------------------------------------

enum class Tipo { imagem, cor, keypoints, descritores, casamentos, transformacao };

Tipo tipoDe(const std::string& nome) {
  if (nome == "k.yml") return Tipo::keypoints;
  if (nome == "d1.yml" || nome == "d2.yml") return Tipo::descritores;
  if (nome == "m.txt") return Tipo::casamentos;
  if (nome == "h.txt") return Tipo::transformacao;
  if (nome == "c1.png" || nome == "c2.png") return Tipo::cor;
  return Tipo::imagem;
}

constexpr int kLado = 64;

std::vector<cv::KeyPoint> keypointsBons() {
  std::vector<cv::KeyPoint> k;
  for (int i = 0; i < 6; ++i) k.emplace_back(16.0f + 6.0f * i, 20.0f + 4.0f * i, 12.0f, 30.0f * i, 1.0f, 0, -1);
  return k;
}

cv::Mat descritoresBons(unsigned semente, int colunas = 16) {
  cv::Mat d(6, colunas, CV_32F);
  cv::RNG rng(semente);
  rng.fill(d, cv::RNG::UNIFORM, 0.0, 1.0);
  return d;
}

// A keypoint store as text, so single fields can be spoilt.
std::string storeTexto(const std::vector<std::vector<std::string>>& campos) {
  std::string t = "%YAML:1.0\n---\nkeypoints: [ ";
  for (size_t i = 0; i < campos.size(); ++i)
    for (size_t c = 0; c < campos[i].size(); ++c) t += (i + c ? ", " : "") + campos[i][c];
  return t + " ]\n";
}

std::vector<std::string> camposKeyPoint(float x, float y, float size) {
  return {std::to_string(x), std::to_string(y), std::to_string(size), "0.", "1.", "0", "-1"};
}

std::string matchTexto(int contagem, int colunas, const std::vector<std::vector<std::string>>& linhas) {
  std::string t = std::to_string(contagem) + " " + std::to_string(colunas) + "\n//comentario\n";
  for (const auto& linha : linhas) {
    for (size_t c = 0; c < linha.size(); ++c) t += (c ? " " : "") + linha[c];
    t += '\n';
  }
  return t;
}

std::vector<std::string> linhaMatch(float x, float y, float size) {
  const std::vector<std::string> k = camposKeyPoint(x, y, size);
  std::vector<std::string> l = {"1.5"};
  l.insert(l.end(), k.begin(), k.end());
  l.insert(l.end(), k.begin(), k.end());
  return l;
}

std::vector<std::vector<std::string>> linhasBoas() {
  std::vector<std::vector<std::string>> l;
  for (int i = 0; i < 6; ++i) l.push_back(linhaMatch(10.0f + 7.0f * i, 30.0f, 8.0f));
  return l;
}

uint32_t crc32(const std::string& bytes) {
  uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}

std::string be32(uint32_t v) {
  return {char(v >> 24), char((v >> 16) & 0xFF), char((v >> 8) & 0xFF), char(v & 0xFF)};
}

// A PNG header claiming `lado` x `lado` grey pixels, followed by a scrap of data.
std::string pngGigante(uint32_t lado) {
  const std::string ihdr = "IHDR" + be32(lado) + be32(lado) + std::string("\x08\x00\x00\x00\x00", 5);
  const std::string idat = "IDAT" + std::string("\x78\x9c\x63\x60", 4);
  return std::string("\x89PNG\r\n\x1a\n", 8) + be32(13) + ihdr + be32(crc32(ihdr)) + be32(4) + idat +
         be32(crc32(idat));
}

std::string lixo(size_t n) {
  std::string t(n, '\0');
  cv::RNG rng(12345);
  for (char& ch : t) ch = static_cast<char>(rng.uniform(0, 256));
  return t;
}

// The files of a run that works, by name.
const std::map<std::string, std::string>& boas() {
  static const std::map<std::string, std::string> arquivos = [] {
    std::map<std::string, std::string> a;
    PastaTemp pasta;
    teste::salva(teste::textura(kLado, kLado, 1), pasta / "a.pgm");
    teste::salva(teste::textura(kLado, kLado, 2), pasta / "b.pgm");
    cv::Mat_<cv::Vec3b> cor(40, 40, cv::Vec3b(255, 255, 255));
    teste::salva(cor, pasta / "c.png");
    formats::impKeyPoints(pasta / "k.yml", keypointsBons());
    formats::impDescritores(pasta / "d1.yml", keypointsBons(), descritoresBons(1));
    formats::impDescritores(pasta / "d2.yml", keypointsBons(), descritoresBons(2));
    for (const char* nome : {"a.pgm", "b.pgm", "k.yml", "d1.yml", "d2.yml"}) a[nome] = teste::leTexto(pasta / nome);
    a["c1.png"] = a["c2.png"] = teste::leTexto(pasta / "c.png");
    a["m.txt"] = matchTexto(6, 15, linhasBoas());
    a["h.txt"] = "1 0 0\n0 1 0\n0 0 1\n";
    return a;
  }();
  return arquivos;
}

// ---- broken inputs ---------------------------------------------------------

struct Variante {
  std::string nome;
  std::optional<std::string> conteudo;  // none: the file is missing
  std::string esperado;                 // in the last stderr line; empty: the file's name
  bool podeDarCerto = false;            // legal input of an odd shape: status 0 allowed
};

Variante falha(std::string nome, std::string conteudo, std::string esperado = "") {
  return {std::move(nome), std::move(conteudo), std::move(esperado), false};
}

Variante aceitavel(std::string nome, std::string conteudo) { return {std::move(nome), std::move(conteudo), "", true}; }

// NaN in each field of one record (each field has its own check), the
// infinities in the first.
void porCampo(std::vector<Variante>& v, int campos, const std::function<std::string(int, const std::string&)>& texto) {
  for (int c = 0; c < campos; ++c) v.push_back(falha("nan" + std::to_string(c), texto(c, "nan")));
  for (const char* valor : {"inf", "-inf"}) v.push_back(falha(valor, texto(0, valor)));
}

// The ways an input of `tipo` can be broken. `completo` adds the cases that
// only exercise the shared reader, once per reader; the rest reach each tool.
std::vector<Variante> variantes(Tipo tipo, const std::string& arquivo, bool completo) {
  const std::string bom = boas().at(arquivo);
  std::vector<Variante> v;
  v.push_back({"ausente", std::nullopt, "", false});
  if (completo) {
    v.push_back(falha("vazio", ""));
    v.push_back(falha("lixo", lixo(3000)));
    v.push_back(falha("truncado", tipo == Tipo::transformacao ? "1 0 0\n0 1" : bom.substr(0, bom.size() / 2 + 7)));
    v.push_back(falha("outroTipo", boas().at(tipo == Tipo::keypoints || tipo == Tipo::transformacao ? "a.pgm"
                                             : tipo == Tipo::descritores                            ? "m.txt"
                                                                                                    : "k.yml")));
  }
  switch (tipo) {
    case Tipo::imagem:
    case Tipo::cor: {
      v.push_back(aceitavel("umPixel", tipo == Tipo::cor ? std::string("P6\n1 1\n255\n\x80\x80\x80", 14)
                                                         : std::string("P5\n1 1\n255\n\x80", 12)));
      if (completo) {
        v.push_back(falha("pgmGigante", "P5\n100000 100000\n255\n" + lixo(100)));
        v.push_back(falha("pngGigante", pngGigante(100000)));
        v.push_back(falha("pgmGrandeTruncado", "P5\n30000 30000\n255\n" + lixo(100)));
      }
      break;
    }
    case Tipo::keypoints: {
      if (completo) {
        porCampo(v, 7, [](int c, const std::string& valor) {
          std::vector<std::string> k = camposKeyPoint(20, 20, 10);
          k[c] = valor[0] == '-' ? "-.inf" : "." + valor;  // YAML spelling
          return storeTexto({camposKeyPoint(30, 30, 10), k});
        });
        v.push_back(falha("camposAMenos", storeTexto({{"1.", "2.", "3."}})));
      }
      v.push_back(aceitavel("tamanhoZero", storeTexto({camposKeyPoint(30, 30, 0)})));
      v.push_back(aceitavel("foraDaImagem", storeTexto({camposKeyPoint(1e6f, -1e6f, 10)})));
      v.push_back(aceitavel("tamanhoGigante", storeTexto({camposKeyPoint(30, 30, 1e30f)})));
      v.push_back(aceitavel("posicaoGigante", storeTexto({camposKeyPoint(-1e30f, 1e30f, 10)})));
      std::vector<std::string> oitava = camposKeyPoint(30, 30, 10);
      oitava[5] = "2147483647";
      v.push_back(aceitavel("oitavaAbsurda", storeTexto({oitava})));
      break;
    }
    case Tipo::descritores: {
      PastaTemp pasta;
      const auto store = [&](const cv::Mat& d) {
        formats::impDescritores(pasta / "d.yml", keypointsBons(), d);
        return teste::leTexto(pasta / "d.yml");
      };
      // The two stores of a matcher must have the same width.
      v.push_back(falha("larguraDiferente", store(descritoresBons(3, 8))));
      if (!completo) break;
      v.push_back(falha("soKeypoints", boas().at("k.yml"), "Erro: numero de keypoints != descritores"));
      v.push_back(falha("linhaAMenos", store(descritoresBons(3).rowRange(0, 5)),
                        "Erro: numero de keypoints != descritores"));
      cv::Mat u8, nan = descritoresBons(3), inf = descritoresBons(3);
      descritoresBons(3).convertTo(u8, CV_8U, 255.0);
      v.push_back(falha("uchar", store(u8)));
      nan.at<float>(2, 3) = std::numeric_limits<float>::quiet_NaN();
      inf.at<float>(4, 0) = std::numeric_limits<float>::infinity();
      v.push_back(falha("descritorNan", store(nan)));
      v.push_back(falha("descritorInf", store(inf)));
      std::string linhas = store(descritoresBons(3));
      linhas.replace(linhas.find("rows: 6"), 7, "rows: 600000000");
      v.push_back(falha("linhasGigantes", linhas));
      break;
    }
    case Tipo::casamentos: {
      if (completo) {
        v.push_back(falha("contagemNegativa", matchTexto(-1, 15, linhasBoas())));
        v.push_back(falha("contagemEnorme", matchTexto(2147483647, 15, linhasBoas())));
        v.push_back(falha("contagemAlemDoInt", "99999999999 15\n" + bom.substr(bom.find('\n') + 1)));
        v.push_back(falha("contagemMaiorQueLinhas", matchTexto(10, 15, linhasBoas())));
        v.push_back(falha("colunas14", matchTexto(6, 14, linhasBoas()), "Erro: Arquivo nao tem 15 colunas"));
        porCampo(v, 15, [](int c, const std::string& valor) {
          std::vector<std::vector<std::string>> l = linhasBoas();
          l[3][c] = valor;
          return matchTexto(6, 15, l);
        });
      }
      v.push_back(aceitavel("tamanhoZero", matchTexto(1, 15, {linhaMatch(20, 20, 0)})));
      v.push_back(aceitavel("foraDaImagem", matchTexto(1, 15, {linhaMatch(1e7f, -1e7f, 8)})));
      v.push_back(aceitavel("tamanhoGigante", matchTexto(1, 15, {linhaMatch(20, 20, 1e30f)})));
      v.push_back(aceitavel("posicaoGigante", matchTexto(1, 15, {linhaMatch(-1e30f, 1e30f, 8)})));
      break;
    }
    case Tipo::transformacao: {
      if (completo)
        porCampo(v, 9, [](int c, const std::string& valor) {
          std::string t;
          for (int i = 0; i < 9; ++i) t += (i == c ? valor : i % 4 == 0 ? "1" : "0") + (i % 3 == 2 ? "\n" : " ");
          return t;
        });
      v.push_back(aceitavel("singular", "0 0 0\n0 0 0\n0 0 0\n"));
      v.push_back(aceitavel("enorme", "1e308 0 0\n0 1e308 0\n0 0 1e-308\n"));
      break;
    }
  }
  return v;
}

// ---- cases -------------------------------------------------------------------

struct Caso {
  std::string nome;
  std::vector<std::string> args;                        // the tool word first
  std::map<std::string, std::optional<std::string>> arquivos;  // written before the run
  std::vector<std::string> pastas;                       // folders made before the run
  std::set<std::string> saidas;                          // may appear on success
  std::string esperado;
  bool podeDarCerto = false;
};

struct Linha {
  std::vector<std::string> args;
  std::vector<std::string> entradas, saidas;
};

// Splits the marks of a command line.
Linha interpreta(const Ferramenta& f, const std::vector<std::string>& modelo) {
  Linha l;
  l.args.push_back(f.nome);
  for (const std::string& palavra : modelo) {
    const size_t marca = palavra.find_first_of("@>");
    if (marca == std::string::npos) {
      l.args.push_back(palavra);
      continue;
    }
    const std::string nome = palavra.substr(marca + 1);
    (palavra[marca] == '@' ? l.entradas : l.saidas).push_back(nome);
    l.args.push_back(palavra.substr(0, marca) + nome);
  }
  return l;
}

Caso casoBase(const Linha& l, const std::string& nome) {
  Caso c;
  c.nome = nome;
  c.args = l.args;
  for (const std::string& e : l.entradas) c.arquivos[e] = boas().at(e);
  c.saidas.insert(l.saidas.begin(), l.saidas.end());
  return c;
}

std::vector<Caso> casosDe(const Ferramenta& f) {
  std::vector<Caso> casos;
  const Linha l = interpreta(f, f.args);

  // Each reader gets its full set of cases through the first tool of the
  // table that reads that kind of file.
  std::set<Tipo> anteriores;
  for (const Ferramenta& outra : ferramentas()) {
    if (std::string(outra.nome) == f.nome) break;
    for (const std::string& e : interpreta(outra, outra.args).entradas) anteriores.insert(tipoDe(e));
  }
  std::set<Tipo> vistos = anteriores;

  for (const std::string& entrada : l.entradas) {
    const Tipo tipo = tipoDe(entrada);
    const bool completo = vistos.insert(tipo).second;
    for (const Variante& v : variantes(tipo, entrada, completo)) {
      Caso c = casoBase(l, entrada + "_" + v.nome);
      c.arquivos[entrada] = v.conteudo;
      c.esperado = v.esperado.empty() ? entrada : v.esperado;
      c.podeDarCerto = v.podeDarCerto;
      casos.push_back(c);
    }
  }

  for (const std::string& saida : l.saidas) {
    const auto comSaida = [&](const std::string& caminho) {
      Caso c = casoBase(l, saida);
      for (std::string& a : c.args)
        if (a.size() >= saida.size() && a.compare(a.size() - saida.size(), saida.size(), saida) == 0)
          a = a.substr(0, a.size() - saida.size()) + caminho;
      c.esperado = caminho;
      return c;
    };
    Caso semPasta = comSaida("naoha/" + saida);
    semPasta.nome += "_pastaInexistente";
    casos.push_back(semPasta);
    // Renaming onto a folder is the same final step for every output.
    if (saida != l.saidas.front()) continue;
    Caso ehPasta = comSaida(saida);
    ehPasta.nome += "_ehPasta";
    ehPasta.pastas.push_back(saida);
    casos.push_back(ehPasta);
  }

  // Words the number parser refuses need one option per tool; NaN (which
  // strtod takes) and the extremes reach each option's own guard.
  struct Valor {
    const char* texto;
    bool invalido, todaOpcao;
  };
  const Valor valores[] = {{"abc", true, false}, {"1e999", true, false}, {"-2147483648", false, false},
                           {"nan", true, true},  {"0", false, true},     {"-1", false, true},
                           {"2147483647", false, true}};
  for (size_t n = 0; n < f.numericos.size(); ++n) {
    for (const Valor& valor : valores) {
      if (n > 0 && !valor.todaOpcao) continue;
      std::vector<std::string> modelo = f.numericos[n];
      if (modelo.size() == 1) modelo.insert(modelo.begin(), f.args.begin(), f.args.end());
      for (std::string& palavra : modelo) {
        const size_t p = palavra.find("{}");
        if (p != std::string::npos) palavra.replace(p, 2, valor.texto);
      }
      Caso c = casoBase(interpreta(f, modelo), "numero" + std::to_string(n) + "_" + valor.texto);
      c.esperado = valor.texto;
      c.podeDarCerto = !valor.invalido;
      casos.push_back(c);
    }
  }
  return casos;
}

// ---- running and judging ------------------------------------------------------

std::string ultimaLinha(const std::string& texto) {
  std::string t = texto;
  while (!t.empty() && t.back() == '\n') t.pop_back();
  const size_t p = t.find_last_of('\n');
  return p == std::string::npos ? t : t.substr(p + 1);
}

std::string juntos(const std::vector<std::string>& v) {
  std::string t;
  for (const std::string& s : v) t += (t.empty() ? "" : " ") + s;
  return t;
}

// OpenCV's own failure texts: an assertion turned into our message, or a
// line of its own.
bool textoDoOpenCV(const std::string& err) {
  std::istringstream linhas(err);
  for (std::string linha; std::getline(linhas, linha);) {
    if (linha.find("OpenCV") != std::string::npos || linha.find("Assertion") != std::string::npos ||
        linha.rfind("imread_(", 0) == 0)
      return true;
  }
  return false;
}

// An empty string when the case ended as it must, else what went wrong.
std::string executa(const Caso& caso) {
  PastaTemp pasta;
  for (const auto& [nome, conteudo] : caso.arquivos)
    if (conteudo) teste::escreveTexto(pasta / nome, *conteudo);
  for (const std::string& p : caso.pastas) ::mkdir((pasta / p).c_str(), 0755);
  const std::vector<std::string> antes = pasta.conteudo();

  const teste::Execucao e = teste::roda(caso.args, pasta.caminho(), kLimite);
  const std::vector<std::string> depois = pasta.conteudo();
  const std::string ultima = ultimaLinha(e.err);

  std::ostringstream erro;
  if (e.estourou) erro << "passou de " << kLimite << " s; ";
  if (e.sinal != 0) erro << "morto pelo sinal " << e.sinal << "; ";
  if (textoDoOpenCV(e.err)) erro << "texto do OpenCV no stderr; ";
  if (e.status == 0 && !e.estourou && e.sinal == 0) {
    if (!caso.podeDarCerto) erro << "status 0 com entrada invalida; ";
    for (const std::string& nome : depois)
      if (std::find(antes.begin(), antes.end(), nome) == antes.end() && !caso.saidas.count(nome))
        erro << "arquivo inesperado " << nome << "; ";
  } else if (!e.estourou && e.sinal == 0) {
    if (e.status != 1) erro << "status " << e.status << "; ";
    if (ultima.rfind("Erro", 0) != 0) erro << "ultima linha do stderr nao comeca com Erro; ";
    // Odd but legal input may fail for reasons of its own ("Erro: Desvio<epsilon").
    if (!caso.podeDarCerto && ultima.find(caso.esperado) == std::string::npos)
      erro << "a mensagem nao cita '" << caso.esperado << "'; ";
    if (depois != antes) erro << "pasta mudou: " << juntos(depois) << "; ";
  }
  if (erro.str().empty()) return "";
  return caso.nome + " [" + juntos(caso.args) + "]: " + erro.str() + "stderr: " + e.err;
}

void PrintTo(const Ferramenta& f, std::ostream* os) { *os << f.nome; }

class Robustez : public ::testing::TestWithParam<Ferramenta> {
 protected:
  // No test run may open a window.
  static void SetUpTestSuite() { ::unsetenv("DISPLAY"); }
};

TEST_P(Robustez, TodaEntradaRuimTerminaLimpo) {
  const std::vector<Caso> casos = casosDe(GetParam());
  ASSERT_FALSE(casos.empty());
  RecordProperty("casos", static_cast<int>(casos.size()));
  std::vector<std::string> falhas(casos.size());
  std::atomic<size_t> proximo{0};
  const unsigned nThreads = std::max(2u, std::thread::hardware_concurrency());
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < nThreads; ++t)
    threads.emplace_back([&] {
      for (size_t i = proximo++; i < casos.size(); i = proximo++) falhas[i] = executa(casos[i]);
    });
  for (std::thread& t : threads) t.join();
  for (const std::string& f : falhas)
    if (!f.empty()) ADD_FAILURE() << f;
}

INSTANTIATE_TEST_SUITE_P(Ferramentas, Robustez, ::testing::ValuesIn(ferramentas()),
                         [](const ::testing::TestParamInfo<Ferramenta>& info) { return std::string(info.param.nome); });

}  // namespace
