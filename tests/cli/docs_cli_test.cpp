// The README and docs/ as a reader follows them: every relative link names
// a file that exists, every #anchor a heading of its file under GitHub's
// rule, the README stays short and keeps its sections in their order, and
// each page of docs/ has a title and a way back to the README.
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string kFonte = QUIVELAR_FONTE;

struct Linha {
  int numero;
  std::string texto;
};

bool comeca(const std::string& s, const std::string& prefixo) { return s.compare(0, prefixo.size(), prefixo) == 0; }

// The lines a reader sees as text: fenced blocks (``` or ~~~) and indented
// blocks (four spaces after a blank line) are code, and so are inline code
// spans, which are blanked out.
std::vector<Linha> linhasDeTexto(const std::string& texto) {
  std::vector<Linha> r;
  std::istringstream in(texto);
  std::string l;
  int n = 0;
  bool cercado = false, indentado = false, anteriorEmBranco = true;
  while (std::getline(in, l)) {
    ++n;
    const bool emBranco = l.find_first_not_of(" \t") == std::string::npos;
    const size_t inicio = l.find_first_not_of(' ');
    if (inicio != std::string::npos && inicio < 4 && (comeca(l.substr(inicio), "```") || comeca(l.substr(inicio), "~~~"))) {
      cercado = !cercado;
      anteriorEmBranco = false;
      continue;
    }
    if (cercado) continue;
    if (comeca(l, "    ") && (anteriorEmBranco || indentado) && !emBranco) indentado = true;
    else if (!emBranco) indentado = false;
    anteriorEmBranco = emBranco;
    if (indentado || emBranco) continue;
    r.push_back({n, std::regex_replace(l, std::regex("`[^`]*`"), "")});
  }
  return r;
}

// A heading's anchor as GitHub makes it: the text without backticks, lower
// case, spaces to '-', every character but letters, digits, '-' and '_'
// dropped (bytes of other alphabets kept as letters).
std::string ancora(const std::string& titulo) {
  std::string r;
  for (unsigned char c : titulo) {
    if (c >= 0x80 || std::isalnum(c) || c == '-' || c == '_') r += static_cast<char>(std::tolower(c));
    else if (c == ' ') r += '-';
  }
  return r;
}

struct Titulo {
  int nivel;
  std::string texto;
};

// The ATX headings outside code, in order (the code spans kept as text).
std::vector<Titulo> titulos(const std::string& texto) {
  std::vector<Titulo> r;
  std::istringstream in(texto);
  std::string l;
  bool cercado = false;
  const std::regex titulo("^(#{1,6})[ \t]+(.*?)[ \t#]*$");
  while (std::getline(in, l)) {
    if (comeca(l, "```") || comeca(l, "~~~")) cercado = !cercado;
    std::smatch m;
    if (!cercado && std::regex_match(l, m, titulo)) r.push_back({static_cast<int>(m[1].length()), m[2]});
  }
  return r;
}

// Every anchor of a file; a repeated one gets -1, -2... as on GitHub.
std::set<std::string> ancoras(const std::string& texto) {
  std::set<std::string> r;
  std::map<std::string, int> vistas;
  for (const Titulo& t : titulos(texto)) {
    std::string sem;
    for (char c : t.texto)
      if (c != '`') sem += c;
    const std::string a = ancora(sem);
    const int vezes = vistas[a]++;
    r.insert(vezes == 0 ? a : a + "-" + std::to_string(vezes));
  }
  return r;
}

// What is wrong with the relative links and images of one Markdown file,
// one line per fault ("file:line: ..."); empty when all resolve.
std::vector<std::string> problemas(const fs::path& arquivo) {
  std::vector<std::string> r;
  const std::regex link(R"(!?\[[^\]]*\]\(([^()\s]*)\))");
  for (const Linha& l : linhasDeTexto(teste::leTexto(arquivo.string()))) {
    for (std::sregex_iterator i(l.texto.begin(), l.texto.end(), link), fim; i != fim; ++i) {
      const std::string alvo = (*i)[1];
      if (comeca(alvo, "http://") || comeca(alvo, "https://") || comeca(alvo, "mailto:")) continue;
      const std::string onde = arquivo.filename().string() + ":" + std::to_string(l.numero) + ": " + alvo;
      const size_t cerquilha = alvo.find('#');
      const std::string nome = alvo.substr(0, cerquilha);
      const fs::path destino = nome.empty() ? arquivo : arquivo.parent_path() / nome;
      if (nome.empty() && cerquilha == std::string::npos) {
        r.push_back(onde + ": link vazio");
      } else if (!fs::exists(destino)) {
        r.push_back(onde + ": arquivo inexistente");
      } else if (cerquilha != std::string::npos) {
        const std::string a = alvo.substr(cerquilha + 1);
        if (destino.extension() != ".md" || ancoras(teste::leTexto(destino.string())).count(a) == 0)
          r.push_back(onde + ": nenhum titulo com essa ancora");
      }
    }
  }
  return r;
}

std::vector<std::string> documentos() {
  std::vector<std::string> r = {"README.md"};
  for (const auto& e : fs::directory_iterator(kFonte + "/docs"))
    if (e.path().extension() == ".md") r.push_back("docs/" + e.path().filename().string());
  std::sort(r.begin() + 1, r.end());
  return r;
}

class Documento : public testing::TestWithParam<std::string> {};

TEST_P(Documento, EveryRelativeLinkAndAnchorResolves) {
  const std::vector<std::string> p = problemas(kFonte + "/" + GetParam());
  EXPECT_TRUE(p.empty()) << testing::PrintToString(p);
}

INSTANTIATE_TEST_SUITE_P(Docs, Documento, testing::ValuesIn(documentos()),
                         [](const testing::TestParamInfo<std::string>& i) {
                           std::string n = i.param;
                           for (char& c : n)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return n;
                         });

// The checker itself, on files made for it: each case is a.md's text
// beside b.md (whose headings are fixed below) and the number of faults.
struct CasoLink {
  std::string nome, texto;
  size_t faltas;
};

const CasoLink kCasosLink[] = {
    {"ArquivoQueExiste", "[b](b.md) e ![img](c.png)", 0},
    {"ArquivoQueFalta", "[x](nao-existe.md)", 1},
    {"ImagemQueFalta", "![x](nao-existe.png)", 1},
    {"AncoraComCodigo", "[b](b.md#what-make-demo-shows)", 0},
    {"AncoraComPontuacao", "[b](b.md#d2-nets-protocol-side-by-side)", 0},
    {"AncoraRepetida", "[b](b.md#notas-1)", 0},
    {"AncoraQueFalta", "[b](b.md#notas-2)", 1},
    {"AncoraEmMaiusculas", "[b](b.md#What-make-demo-shows)", 1},
    {"AncoraNaPropriaPagina", "## Uma Secao\n[aqui](#uma-secao) [la](#outra)", 1},
    {"AncoraNumaImagem", "[c](c.png#algo)", 1},
    {"ForaDoTexto", "`[x](nao.md)`\n\n    [x](nao.md)\n\n```\n[x](nao.md)\n```\n", 0},
    {"Externos", "[x](https://example.com/nada) [y](mailto:ninguem@example.com)", 0},
    {"DoisNaMesmaLinha", "[x](nao.md) e [y](b.md#nada)", 2},
};

class VerificadorDeLinks : public testing::TestWithParam<CasoLink> {};

TEST_P(VerificadorDeLinks, CountsTheFaults) {
  teste::PastaTemp p;
  teste::escreveTexto(p / "b.md",
                      "# B\n\n## What `make demo` shows\n\n## D2-Net's protocol, side by side\n\n## Notas\n\n## Notas\n");
  teste::escreveTexto(p / "c.png", "");
  teste::escreveTexto(p / "a.md", GetParam().texto + "\n");
  const std::vector<std::string> f = problemas(p / "a.md");
  EXPECT_EQ(f.size(), GetParam().faltas) << testing::PrintToString(f);
}

INSTANTIATE_TEST_SUITE_P(Casos, VerificadorDeLinks, testing::ValuesIn(kCasosLink),
                         [](const testing::TestParamInfo<CasoLink>& i) { return i.param.nome; });

TEST(Readme, ShortWithItsSectionsInOrder) {
  const std::string readme = teste::leTexto(kFonte + "/README.md");
  EXPECT_LE(std::count(readme.begin(), readme.end(), '\n'), 210);
  const std::vector<std::string> esperadas = {"What it is",     "The tools",    "A chain by hand",
                                              "Whole datasets", "Scenes that are not flat", "Extending it",
                                              "Layout",         "Reference"};
  std::vector<std::string> secoes;
  for (const Titulo& t : titulos(readme))
    if (t.nivel == 2) secoes.push_back(t.texto);
  EXPECT_EQ(secoes, esperadas);
  EXPECT_TRUE(comeca(readme, "# QUIVELAR\n\n    make demo ")) << "os dois comandos abrem o README";
}

TEST(Docs, EachPageHasATitleAndLeadsBackToTheReadme) {
  for (const std::string& d : documentos()) {
    if (d == "README.md") continue;
    SCOPED_TRACE(d);
    const std::string texto = teste::leTexto(kFonte + "/" + d);
    EXPECT_TRUE(comeca(texto, "# ") && texto.find('\n') != std::string::npos);
    EXPECT_NE(texto.find("](../README.md)"), std::string::npos);
  }
}

}  // namespace
