// The sweep's report in a real browser: the demo's sweep, its relatorio.html
// opened by headless Chromium with the page's own check (#autoteste): no
// error, one summary row per configuration, a click on a column's name that
// reorders the rows and a second that reverses them, every image decoded;
// and the Relatorio tool rebuilding the same bytes from the folder.
#include "formats/csv.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

namespace {

std::string campo(const std::string& json, const std::string& nome) {
  std::smatch m;
  const std::regex r("\"" + nome + "\":(\\[[^\\]]*\\]|\"[^\"]*\"|[0-9]+)");
  return std::regex_search(json, m, r) ? m[1].str() : "(ausente)";
}

TEST(Relatorio, AbreNoChromiumOrdenaECarregaTudo) {
  teste::PastaTemp p;
  std::filesystem::create_directories(p / "ds");
  std::filesystem::create_directory_symlink(QUIVELAR_DATA, p / "ds/graf");
  teste::rodaBem({"SeqSint", std::string(QUIVELAR_DATA) + "/img1.png", "ds/v_giro", "n=4", "rotacao=45", "escala=1.3"},
                 p.caminho());
  // The demo's sweep (scripts/demo).
  const teste::Execucao v = teste::roda({"Varre", "ds", "o", "det=sift,orb,rand", "des=sift,rihog,orb", "mat=nn,mutuo",
                                         "rand.n=500", "orb.nfeatures=1000", "graficos=0"},
                                        p.caminho(), 300);
  ASSERT_EQ(v.status, 0) << v.err;
  const std::string pagina = p / "o/relatorio.html";
  const auto bytes = std::filesystem::file_size(pagina);
  EXPECT_LT(bytes, 8u << 20);

  std::set<std::string> configuracoes;
  const formats::TabelaCSV t = formats::leTabelaCSV(p / "o/resultados.csv");
  for (const auto& l : t.linhas)
    configuracoes.insert(l[t.coluna("detector")] + "/" + l[t.coluna("descriptor")] + "/" + l[t.coluna("matcher")]);

  teste::Processo chromium({"chromium", "--headless", "--no-sandbox", "--disable-gpu", "--enable-logging=stderr",
                            "--v=0", "--user-data-dir=" + p / "perfil", "--virtual-time-budget=20000", "--dump-dom",
                            "file://" + pagina + "#autoteste"},
                           p.caminho());
  ASSERT_TRUE(chromium.espera(120)) << "chromium passou do limite";
  const teste::Execucao c = chromium.fim();
  ASSERT_EQ(c.status, 0) << c.err;
  EXPECT_EQ(c.err.find("CONSOLE"), std::string::npos) << c.err;
  std::smatch m;
  ASSERT_TRUE(std::regex_search(c.out, m, std::regex("<pre id=\"autoteste\">([^<]*)</pre>"))) << c.out.substr(0, 400);
  const std::string r = m[1].str();
  EXPECT_EQ(campo(r, "erros"), "[]");
  EXPECT_EQ(campo(r, "linhas"), std::to_string(configuracoes.size()));
  EXPECT_EQ(campo(r, "coluna"), "\"matching_score\"");
  EXPECT_NE(campo(r, "antes"), campo(r, "depois"));
  EXPECT_NE(campo(r, "depois"), campo(r, "invertida"));
  // The plots (MMA, 2 sequences, the curves) and the chosen pair's drawing
  // for each configuration.
  EXPECT_EQ(std::stoi(campo(r, "imagens")), 4 + static_cast<int>(configuracoes.size()));
  EXPECT_EQ(campo(r, "carregadas"), campo(r, "imagens"));

  const std::string antes = teste::leTexto(pagina);
  std::filesystem::remove(pagina);
  teste::rodaBem({"Relatorio", "o"}, p.caminho());
  EXPECT_TRUE(teste::leTexto(pagina) == antes);
}

}  // namespace
