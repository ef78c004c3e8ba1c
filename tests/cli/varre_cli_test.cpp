// Varre, SeqSint and Graficos on the real binary: a sweep killed and run
// again ends with the tables of an uninterrupted one; broken inputs become
// rows; angles reach each descriptor in its own convention; flat patches
// cost one keypoint pair, not the unit; every refusal names what is wrong.
#include "formats/csv.hpp"
#include "sweep/resumo.hpp"
#include "sweep/varre.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

std::string semTempo(const teste::Execucao& e) { return teste::semTempo(e.out); }

// Two synthetic sequences of a texture, made by SeqSint itself.
void criaDataset(const teste::PastaTemp& p, int vistas = 4) {
  teste::salva(teste::textura(180, 220, 11), p / "fonte.png");
  const std::string n = "n=" + std::to_string(vistas);
  teste::rodaBem({"SeqSint", "fonte.png", "ds/v_giro", n, "rotacao=30", "escala=1.2"}, p.caminho());
  teste::rodaBem({"SeqSint", "fonte.png", "ds/i_luz", n, "brilho=-30", "ruido=3", "seed=4"}, p.caminho());
}

// Unit tables (not their timings or curves) in a sweep's folder.
int unidadesProntas(const std::string& pasta) {
  DIR* d = opendir((pasta + "/unidades").c_str());
  if (!d) return 0;
  int n = 0;
  while (dirent* e = readdir(d)) {
    const std::string nome = e->d_name;
    n += nome.size() > 4 && nome.compare(nome.size() - 4, 4, ".csv") == 0 &&
         nome.find(".tempos.") == std::string::npos && nome.find(".curvas.") == std::string::npos &&
         nome.find(".poses.") == std::string::npos &&
         nome.find(".tmp") == std::string::npos && nome[0] != '.';
  }
  closedir(d);
  return n;
}

formats::TabelaCSV tabela(const std::string& arquivo) { return formats::leTabelaCSV(arquivo); }

std::string campo(const formats::TabelaCSV& t, size_t linha, const std::string& coluna) {
  return t.linhas.at(linha).at(t.coluna(coluna));
}

// The ratio matcher by acceptance rate: the selection that once printed a
// line from the workers.
const std::vector<std::string> kVarredura = {"det=fast,sift", "des=sift,rihog,simple", "mat=nn,ratio",
                                             "ratio.acrate=0.5", "graficos=0"};

// The sweep's words, the tool's name first (as teste::roda takes them).
std::vector<std::string> varre(const std::string& saida) {
  std::vector<std::string> a = {"Varre", "ds", saida};
  a.insert(a.end(), kVarredura.begin(), kVarredura.end());
  return a;
}

TEST(Varre, MortaERetomadaDaAMesmaTabela) {
  teste::PastaTemp p;
  criaDataset(p);
  const teste::Execucao a = teste::roda(varre("a"), p.caminho());
  ASSERT_EQ(a.status, 0) << a.err;
  // stdout holds the summary and its last lines, nothing from the workers;
  // the report's size is the page's own business.
  std::string saida = semTempo(a);
  const size_t relatorio = saida.find("Relatorio: a/relatorio.html (");
  ASSERT_NE(relatorio, std::string::npos) << saida;
  saida.erase(relatorio, saida.find('\n', relatorio) + 1 - relatorio);
  EXPECT_EQ(saida, sweep::tabelaResumo(p / "a/resultados.csv") +
                       "Resultados: a/resultados.csv (12 unidades, 12 calculadas agora)\n"
                       "Unidades com falha: 0 de 12\n");
  // The summary splits each configuration by kind, overall first.
  const size_t todas = a.out.find("fast     sift       nn      all              6      0"),
               luz = a.out.find("fast     sift       nn      illumination     3      0"),
               vista = a.out.find("fast     sift       nn      viewpoint        3      0"),
               proxima = a.out.find("fast     sift       ratio   all");
  EXPECT_TRUE(todas < luz && luz < vista && vista < proxima && proxima != std::string::npos) << a.out;
  // One line per finished sequence when stderr is not a terminal.
  EXPECT_NE(a.err.find("Varre: sequencia i_luz pronta (1/2)"), std::string::npos) << a.err;
  EXPECT_NE(a.err.find("Varre: sequencia v_giro pronta (2/2)"), std::string::npos) << a.err;

  {
    std::vector<std::string> comando = varre("b");
    comando.insert(comando.begin(), QUIVELAR_BIN);
    teste::Processo b(comando, p.caminho());
    // Sanitizer builds are several times slower: up to 15 s for the first units.
    for (int i = 0; i < 7500 && unidadesProntas(p / "b") < 2; ++i) usleep(2000);
    const teste::Execucao morta = b.fim();
    ASSERT_TRUE(morta.estourou) << "terminou antes de ser morta";
  }
  const int prontas = unidadesProntas(p / "b");
  ASSERT_GE(prontas, 2);
  ASSERT_LT(prontas, 12);
  const teste::Execucao b = teste::roda(varre("b"), p.caminho());
  ASSERT_EQ(b.status, 0) << b.err;
  EXPECT_NE(b.out.find("(12 unidades, " + std::to_string(12 - prontas) + " calculadas agora)"), std::string::npos)
      << b.out;
  for (const char* t : {"/resultados.csv", "/curvas.csv"})
    EXPECT_EQ(teste::leTexto(p / "a" + t), teste::leTexto(p / "b" + t)) << t;
  // The summary comes from the table, so it is the same too.
  EXPECT_EQ(semTempo(a).substr(0, semTempo(a).find("Resultados:")),
            semTempo(b).substr(0, semTempo(b).find("Resultados:")));

  const formats::TabelaCSV t = tabela(p / "a/resultados.csv");
  // 2 sequences x 3 pairs x 2 detectors x 3 descriptors x 2 matchers.
  ASSERT_EQ(t.linhas.size(), 72u);
  EXPECT_EQ(t.colunas.front(), "sequence");
  EXPECT_EQ(campo(t, 0, "sequence"), "i_luz");
  EXPECT_EQ(campo(t, 0, "kind"), "illumination");
  EXPECT_EQ(campo(t, 0, "pair"), "1-2");
  EXPECT_EQ(campo(t, 0, "detector") + campo(t, 0, "descriptor") + campo(t, 0, "matcher"), "fastsiftnn");
  EXPECT_EQ(campo(t, 71, "sequence") + campo(t, 71, "pair") + campo(t, 71, "descriptor") + campo(t, 71, "matcher"),
            "v_giro1-4simpleratio");
  // Timings stay out of the table, in tempos.csv with the same keys.
  EXPECT_EQ(tabela(p / "a/tempos.csv").linhas.size(), 72u);
  // The same command, run once more, computes nothing and changes nothing.
  const teste::Execucao c = teste::roda(varre("b"), p.caminho());
  EXPECT_NE(c.out.find("(12 unidades, 0 calculadas agora)"), std::string::npos) << c.out;
  EXPECT_EQ(teste::leTexto(p / "a/resultados.csv"), teste::leTexto(p / "b/resultados.csv"));
}

TEST(Varre, ImagemETransformacaoRuinsViramLinhas) {
  teste::PastaTemp p;
  teste::salva(teste::textura(180, 220, 11), p / "fonte.png");
  teste::rodaBem({"SeqSint", "fonte.png", "ds/seq", "n=4", "rotacao=20"}, p.caminho());
  teste::escreveTexto(p / "ds/seq/img3.png", "isto nao e uma imagem");
  ASSERT_EQ(std::remove((p / "ds/seq/H1to4p").c_str()), 0);
  const teste::Execucao e = teste::roda({"Varre", "ds", "o", "det=fast", "des=rihog", "mat=nn"}, p.caminho());
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.err.substr(e.err.rfind("Erro:")),
            "Erro: 1 de 1 unidades falharam; ver a coluna status de o/resultados.csv\n");
  const formats::TabelaCSV t = tabela(p / "o/resultados.csv");
  ASSERT_EQ(t.linhas.size(), 3u);
  EXPECT_EQ(campo(t, 0, "status"), "ok");
  EXPECT_EQ(campo(t, 1, "status"), "Erro abertura arquivo ds/seq/img3.png");
  EXPECT_EQ(campo(t, 2, "status"), "Erro: transformacao 1-4 ausente em ds/seq");
  for (size_t i : {1, 2})
    for (const char* c : {"keypoints1", "repeatability", "matching_score", "mma@3", "homography@5"})
      EXPECT_EQ(campo(t, i, c), "NA") << i << c;
  double v = 0;
  EXPECT_TRUE(std::sscanf(campo(t, 0, "matching_score").c_str(), "%lf", &v) == 1 && v > 0);
  // The summary and the plots are made all the same.
  EXPECT_NE(e.out.find("fast     rihog      nn      all              1      2"), std::string::npos) << e.out;
  EXPECT_FALSE(teste::leTexto(p / "o/graficos/mma.svg").empty());
}

// KeyRand writes angles counter-clockwise; SIFT reads them clockwise. On a
// turned view only the mirrored angles let SIFT match (a few percent
// otherwise); SIMPLE reads them as written. A flat third of the image makes
// SIMPLE drop keypoint pairs, not the unit.
TEST(Varre, AngulosNaConvencaoDeCadaDescritorEManchasPlanas) {
  teste::PastaTemp p;
  // A crop of the graffiti: SIFT's descriptor on KeyRand's sizes needs
  // structure at that scale, which a noise texture lacks.
  cv::Mat_<uchar> img = teste::leCinzaDeDados("img1.png")(cv::Rect(300, 220, 240, 200)).clone();
  teste::salva(img, p / "textura.png");
  img(cv::Rect(0, 0, 80, 200)).setTo(128);
  teste::salva(img, p / "plana.png");
  teste::rodaBem({"SeqSint", "textura.png", "ds/v_giro", "n=2", "rotacao=60"}, p.caminho());
  teste::rodaBem({"SeqSint", "plana.png", "ds/v_plana", "n=2", "rotacao=60"}, p.caminho());
  const teste::Execucao e = teste::roda({"Varre", "ds", "o", "det=rand", "des=sift,simple", "mat=nn", "rand.n=150",
                                         "rand.diammin=24", "rand.diammax=30", "graficos=0"},
                                        p.caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  const formats::TabelaCSV t = tabela(p / "o/resultados.csv");
  ASSERT_EQ(t.linhas.size(), 4u);
  for (size_t i = 0; i < t.linhas.size(); ++i) {
    const std::string seq = campo(t, i, "sequence"), des = campo(t, i, "descriptor");
    EXPECT_EQ(campo(t, i, "status"), "ok");
    EXPECT_EQ(campo(t, i, "keypoints1"), "150");
    const int descartados = std::stoi(campo(t, i, "dropped"));
    EXPECT_EQ(std::stoi(campo(t, i, "described1")), 150 - descartados / 2) << seq << des;
    if (seq == "v_plana" && des == "simple") {
      EXPECT_GT(descartados, 0);
    } else {
      EXPECT_EQ(descartados, 0) << seq << des;
    }
    if (seq == "v_giro") {
      double score = 0;
      std::sscanf(campo(t, i, "matching_score").c_str(), "%lf", &score);
      EXPECT_GT(score, 0.9) << des;
    }
  }
}

// Binary rows through the whole sweep: ORB detected and described in one
// pass, ORB and BRISK on KeyRand's pairs, every matcher by Hamming distance.
// AKAZE's descriptor cannot follow ORB's keypoints: that pair is left out
// with a note, not failed.
TEST(Varre, DescritoresBinariosEParesImpossiveis) {
  teste::PastaTemp p;
  criaDataset(p, 2);
  const teste::Execucao e =
      teste::roda({"Varre", "ds", "o", "det=orb,rand", "des=orb,brisk,akaze", "mat=nn,ratio,mutuo", "rand.n=300",
                   "seq=v_giro", "graficos=0"},
                  p.caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(e.err.substr(0, e.err.find("Varre:")),
            "Aviso: akaze so descreve keypoints de akaze; o par orb+akaze fica fora da varredura\n"
            "Aviso: akaze so descreve keypoints de akaze; o par rand+akaze fica fora da varredura\n");
  const std::string orb = teste::rodaBem({"KeyOrb", "ds/v_giro/img1.png", "k.yml"}, p.caminho());
  const formats::TabelaCSV t = tabela(p / "o/resultados.csv");
  ASSERT_EQ(t.linhas.size(), 12u);  // (orb, rand) x (orb, brisk) x 3 matchers, one pair
  for (size_t i = 0; i < t.linhas.size(); ++i) {
    const std::string det = campo(t, i, "detector"), des = campo(t, i, "descriptor");
    SCOPED_TRACE(det + "+" + des + "+" + campo(t, i, "matcher"));
    EXPECT_EQ(campo(t, i, "status"), "ok");
    if (det == "orb") {
      EXPECT_EQ("Keypoints=" + campo(t, i, "keypoints1") + "\n", orb);
    }
    double score = 0;
    std::sscanf(campo(t, i, "matching_score").c_str(), "%lf", &score);
    EXPECT_GT(score, det == "rand" ? 0.5 : 0.2);
  }
}

TEST(Graficos, PngESvgComEixosELegenda) {
  teste::PastaTemp p;
  criaDataset(p, 3);
  ASSERT_EQ(
      teste::roda({"Varre", "ds", "o", "det=fast", "des=rihog", "mat=nn,mutuo", "graficos=0"}, p.caminho()).status, 0);
  const std::string out = teste::rodaBem({"Graficos", "o/resultados.csv", "g", "curvas=o/curvas.csv"}, p.caminho());
  EXPECT_EQ(out, "Graficos: g\n");
  for (const char* f : {"mma", "seq-i_luz", "seq-v_giro", "curva-i_luz-1-2"}) {
    const cv::Mat png = cv::imread(p / "g/" + f + ".png");
    EXPECT_GT(png.cols, png.rows) << f;
    const std::string svg = teste::leTexto(p / "g/" + f + ".svg");
    EXPECT_NE(svg.find("<svg"), std::string::npos) << f;
  }
  EXPECT_EQ(p.conteudo().size(), 4u);  // ds, fonte.png, g, o: no temporary left
}

// Five shards of twelve units: blocks of 2, 2, 3, 2, 3 units in table order,
// one of them chosen by Slurm's array variables; merged, they are the
// unsharded tables byte for byte, and every merge that cannot be whole says
// which shards are wrong.
TEST(Varre, FatiasJuntadasDaoAMesmaTabela) {
  teste::PastaTemp p;
  criaDataset(p, 3);
  std::vector<std::string> inteira = varre("a");
  inteira.back() = "graficos=1";
  const teste::Execucao a = teste::roda(inteira, p.caminho());
  ASSERT_EQ(a.status, 0) << a.err;

  auto fatia = [&](const std::string& saida, const std::string& shard,
                   const std::map<std::string, std::string>& ambiente = {}) {
    std::vector<std::string> c = varre(saida);
    c.back() = "graficos=1";
    if (!shard.empty()) c.push_back("shard=" + shard);
    return teste::roda(c, p.caminho(), 120, ambiente);
  };
  const struct {
    std::string shard;
    std::map<std::string, std::string> ambiente;
    std::string saida;
  } fatias[] = {
      {"0/5", {}, "Fatia 0/5: f/fatias/fatia-0-de-5.resultados.csv (2 unidades, 2 calculadas agora)\n"},
      {"", {{"SLURM_ARRAY_TASK_ID", "11"}, {"SLURM_ARRAY_TASK_MIN", "10"}, {"SLURM_ARRAY_TASK_COUNT", "5"}},
       "Fatia 1/5: f/fatias/fatia-1-de-5.resultados.csv (2 unidades, 2 calculadas agora)\n"},
      // shard= wins over the array's variables.
      {"3/5", {{"SLURM_ARRAY_TASK_ID", "0"}, {"SLURM_ARRAY_TASK_COUNT", "5"}},
       "Fatia 3/5: f/fatias/fatia-3-de-5.resultados.csv (2 unidades, 2 calculadas agora)\n"},
  };
  for (const auto& f : fatias) {
    const teste::Execucao e = fatia("f", f.shard, f.ambiente);
    ASSERT_EQ(e.status, 0) << e.err;
    EXPECT_EQ(teste::semTempo(e.out), f.saida + "Unidades com falha: 0 de 2\n");
  }
  const teste::Execucao incompleta = teste::roda({"VarreJunta", "f"}, p.caminho());
  EXPECT_EQ(incompleta.status, 1);
  EXPECT_EQ(incompleta.err, "Erro: faltam fatias em f/fatias: 2/5, 4/5\n");
  EXPECT_EQ(teste::leTexto(p / "f/resultados.csv"), "");

  for (const char* s : {"2/5", "4/5"}) ASSERT_EQ(fatia("f", s).status, 0);
  EXPECT_EQ(unidadesProntas(p / "f"), 12);
  // Run again, a shard resumes: nothing left to compute.
  EXPECT_NE(fatia("f", "4/5").out.find("(3 unidades, 0 calculadas agora)"), std::string::npos);

  // The three merged tables replace the old ones together or not at all: a
  // file-size limit stops one of them, and the others stay old too.
  const char* const juntas[] = {"/resultados.csv", "/tempos.csv", "/curvas.csv"};
  for (const char* t : juntas) teste::escreveTexto(p / "f" + t, "velho\n");
  {
    teste::Processo limitado({"prlimit", "--fsize=4096", "--", QUIVELAR_BIN, "VarreJunta", "f"}, p.caminho());
    ASSERT_TRUE(limitado.espera(60));
    const teste::Execucao e = limitado.fim();
    EXPECT_EQ(e.status, 1);
    EXPECT_EQ(e.err.rfind("Erro: falha ao gravar f/", 0), 0u) << e.err;
    EXPECT_NE(e.err.find(".csv: limite de tamanho de arquivo atingido\n"), std::string::npos) << e.err;
    for (const char* t : juntas) EXPECT_EQ(teste::leTexto(p / "f" + t), "velho\n") << t;
  }

  const teste::Execucao j = teste::roda({"VarreJunta", "f"}, p.caminho());
  ASSERT_EQ(j.status, 0) << j.err;
  for (const char* t : {"/resultados.csv", "/curvas.csv"})
    EXPECT_EQ(teste::leTexto(p / "a" + t), teste::leTexto(p / "f" + t)) << t;
  EXPECT_EQ(tabela(p / "f/tempos.csv").linhas.size(), 48u);
  EXPECT_EQ(semTempo(a).substr(0, semTempo(a).find("Resultados:")),
            semTempo(j).substr(0, semTempo(j).find("Resultados:")));
  EXPECT_NE(j.out.find("Resultados: f/resultados.csv (5 fatias, 12 unidades)\n"), std::string::npos) << j.out;
  EXPECT_EQ(teste::leTexto(p / "a/graficos/mma.svg"), teste::leTexto(p / "f/graficos/mma.svg"));

  // Each broken merge on a copy of the whole folder f.
  struct Quebra {
    std::string nome;
    std::function<void(const std::string&)> quebra;
    std::string err;
  };
  const Quebra quebras[] = {
      {"OutraDivisao",
       [&](const std::string& d) { ASSERT_EQ(fatia(d, "1/2").status, 0); },
       "Erro: fatias duplicadas em $/fatias (divisoes diferentes): 1/2, 0/5, 1/5, 2/5, 3/5, 4/5\n"},
      {"OutraVarredura",
       [&](const std::string& d) {
         std::vector<std::string> c = varre(d);
         c[6] = "ratio.acrate=0.25";
         c.push_back("shard=2/5");
         ASSERT_EQ(teste::roda(c, p.caminho()).status, 0);
       },
       "Erro: fatias de outra varredura em $/fatias (plano diferente de 0/5): 2/5\n"},
      {"TabelaTrocada",
       [&](const std::string& d) {
         const std::string t = p / (d + "/fatias/fatia-3-de-5.resultados.csv");
         const std::string texto = teste::leTexto(t);
         teste::escreveTexto(t, texto.substr(0, texto.rfind('\n', texto.size() - 2) + 1));
       },
       "Erro: fatia 3/5 incompleta em $/fatias; rode-a de novo\n"},
      {"ManifestoIlegivel",
       [&](const std::string& d) { teste::escreveTexto(p / (d + "/fatias/fatia-0-de-5.txt"), "plano x\n"); },
       "Erro: fatia ilegivel $/fatias/fatia-0-de-5.txt\n"},
  };
  for (const Quebra& q : quebras) {
    ASSERT_EQ(std::system(("cp -r '" + p / "f" + "' '" + p / q.nome + "'").c_str()), 0);
    std::remove((p / (q.nome + "/resultados.csv")).c_str());
    q.quebra(q.nome);
    const teste::Execucao e = teste::roda({"VarreJunta", q.nome}, p.caminho());
    EXPECT_EQ(e.status, 1) << q.nome;
    std::string err = q.err;
    err.replace(err.find('$'), 1, q.nome);
    EXPECT_EQ(e.err, err) << q.nome;
    EXPECT_EQ(teste::leTexto(p / (q.nome + "/resultados.csv")), "") << q.nome;
  }
}

TEST(Varre, FatiaDoSlurmIncoerente) {
  teste::PastaTemp p;
  teste::salva(teste::textura(60, 80, 1), p / "fonte.png");
  teste::rodaBem({"SeqSint", "fonte.png", "ds/v_giro", "n=2"}, p.caminho());
  const std::pair<std::map<std::string, std::string>, std::string> casos[] = {
      {{{"SLURM_ARRAY_TASK_ID", "2"}}, "Erro: SLURM_ARRAY_TASK_COUNT ausente ou invalido: \n"},
      {{{"SLURM_ARRAY_TASK_ID", "x"}, {"SLURM_ARRAY_TASK_COUNT", "2"}}, "Erro: SLURM_ARRAY_TASK_ID invalido: x\n"},
      // A task submitted again alone is an array of one: shard= is needed.
      {{{"SLURM_ARRAY_TASK_ID", "3"}, {"SLURM_ARRAY_TASK_MIN", "0"}, {"SLURM_ARRAY_TASK_COUNT", "1"}},
       "Erro: tarefa 3 fora do vetor de 1 a partir de 0; use shard=i/n\n"},
  };
  for (const auto& [ambiente, err] : casos) {
    const teste::Execucao e = teste::roda({"Varre", "ds", "o"}, p.caminho(), 120, ambiente);
    EXPECT_EQ(e.status, 1);
    EXPECT_EQ(e.err, err);
  }
}

struct CasoErro {
  std::string nome;
  std::vector<std::string> args;
  std::string err;
};

const CasoErro kErros[] = {
    {"DetectorDesconhecido", {"Varre", "ds", "o", "det=sirf"}, "Erro: detector desconhecido sirf\n"},
    {"DescritorDesconhecido", {"Varre", "ds", "o", "des=brief"}, "Erro: descritor desconhecido brief\n"},
    {"NenhumParPossivel",
     {"Varre", "ds", "o", "det=sift,orb", "des=akaze,kaze"},
     "Erro: nenhum par detector+descritor possivel em det= e des=\n"},
    {"OpcaoOpenCVForaDoIntervalo",
     {"Varre", "ds", "o", "det=orb", "des=orb", "orb.nlevels=0"},
     "Erro: orb.nlevels fora do intervalo (1 a 32)\n"},
    {"OpcaoOpenCVPalavraDesconhecida",
     {"Varre", "ds", "o", "det=orb", "orb.scoretype=sobel"},
     "Erro: orb.scoretype deve ser harris|fast: sobel\n"},
    {"CasamentoDesconhecido", {"Varre", "ds", "o", "mat=knn"}, "Erro: casamento desconhecido knn\n"},
    {"OpcaoDesconhecida",
     {"Varre", "ds", "o", "des=rihog", "rihog.largura=3"},
     "Erro: Argumento invalido rihog.largura 3\n"},
    {"OpcaoForaDaVarredura", {"Varre", "ds", "o", "rihog.raio=30"}, "Erro: Argumento invalido rihog.raio=30\n"},
    {"OpcaoDeDetectorForaDaVarredura",
     {"Varre", "ds", "o", "det=fast", "des=sift", "sift.nfeatures=9"},
     "Erro: Argumento invalido sift.nfeatures=9\n"},
    {"OpcaoDoDescritorInvalida",
     {"Varre", "ds", "o", "des=simple", "simple.dgauss=4"},
     "Erro: dGauss deve ser impar\n"},
    {"PalavraSolta", {"Varre", "ds", "o", "rapido"}, "Erro: Argumento invalido rapido\n"},
    {"NomeRepetido", {"Varre", "ds", "o", "det=sift,sift"}, "Erro: nome repetido na lista sift\n"},
    {"DistForaDoIntervalo", {"Varre", "ds", "o", "dist=0"}, "Erro: dist fora do intervalo\n"},
    {"CurvaForaDaVarredura", {"Varre", "ds", "o", "curva=v_giro:9"}, "Erro: par de curva fora da varredura v_giro:9\n"},
    {"SequenciaInexistente", {"Varre", "ds", "o", "seq=boat"}, "Erro: sequencia boat nao encontrada em ds\n"},
    {"DatasetSemSequencia", {"Varre", "vazia", "x"}, "Erro: nenhuma sequencia (img1.ppm.. ou 1.ppm..) nem cena posada (views.txt, cameras.txt) em vazia\n"},
    {"DatasetInexistente", {"Varre", "nada", "x"}, "Erro: nao foi possivel ler a pasta do dataset nada\n"},
    {"ShardForaDoIntervalo", {"Varre", "ds", "o", "shard=4/4"}, "Erro: shard deve ser i/n, com 0 <= i < n: 4/4\n"},
    {"ShardSemBarra", {"Varre", "ds", "o", "shard=1"}, "Erro: shard deve ser i/n, com 0 <= i < n: 1\n"},
    {"ShardDeZero", {"Varre", "ds", "o", "shard=0/0"}, "Erro: shard deve ser i/n, com 0 <= i < n: 0/0\n"},
    {"ShardNegativo", {"Varre", "ds", "o", "shard=-1/2"}, "Erro: shard deve ser i/n, com 0 <= i < n: -1/2\n"},
    {"JuntaSemFatias", {"VarreJunta", "o"}, "Erro: nenhuma fatia em o/fatias\n"},
    {"SeqSintPoucasVistas", {"SeqSint", "fonte.png", "s", "n=1"}, "Erro: n fora do intervalo (2 a 100)\n"},
    {"SeqSintOpcao", {"SeqSint", "fonte.png", "s", "giro=3"}, "Erro: Argumento invalido giro 3\n"},
    {"SeqSintSemImagem", {"SeqSint", "nada.png", "s"}, "Erro abertura arquivo nada.png\n"},
    {"GraficosSemTabela", {"Graficos", "nada.csv", "g"}, "Erro abertura arquivo nada.csv\n"},
    {"GraficosTabelaRuim", {"Graficos", "ruim.csv", "g"}, "Erro: tabela CSV mal formada em ruim.csv\n"},
    {"GraficosOutraTabela", {"Graficos", "outra.csv", "g"}, "Erro: coluna kind ausente em outra.csv\n"},
    {"GraficosSemCurvas", {"Graficos", "outra.csv", "g", "curvas=nada.csv"}, "Erro abertura arquivo nada.csv\n"},
};

class Erros : public testing::TestWithParam<CasoErro> {};

TEST_P(Erros, UmaMensagemEStatusUm) {
  static teste::PastaTemp p;
  static const bool pronto = [] {
    teste::salva(teste::textura(60, 80, 1), p / "fonte.png");
    teste::rodaBem({"SeqSint", "fonte.png", "ds/v_giro", "n=2", "rotacao=10"}, p.caminho());
    teste::escreveTexto(p / "ruim.csv", "a,b\n\"1,2\n");
    mkdir((p / "vazia").c_str(), 0777);
    teste::escreveTexto(p / "outra.csv", "x,y\n1,2\n");
    return true;
  }();
  ASSERT_TRUE(pronto);
  const teste::Execucao e = teste::roda(GetParam().args, p.caminho());
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.err, GetParam().err);
  EXPECT_EQ(teste::leTexto(p / "o/resultados.csv"), "");  // nothing written before the plan is whole
}

INSTANTIATE_TEST_SUITE_P(Varre, Erros, testing::ValuesIn(kErros),
                         [](const testing::TestParamInfo<CasoErro>& i) { return i.param.nome; });

TEST(Varre, Usos) {
  const std::pair<std::vector<std::string>, const char*> usos[] = {
      {{"Varre", "x"}, "Varre: Mede detectores x descritores x casamentos em todos os pares de um dataset\n"},
      {{"VarreJunta"}, "VarreJunta: Junta as fatias de uma varredura (Varre shard=i/n) nas tabelas de uma so\n"},
      {{"VarreJunta", "x", "y"}, "VarreJunta: Junta as fatias de uma varredura (Varre shard=i/n) nas tabelas de uma so\n"},
      {{"SeqSint", "x"},
       "SeqSint: Gera sequencia sintetica (img1.png..imgN.png, H1to2p..H1toNp) a partir de uma imagem\n"},
      {{"Graficos", "x"}, "Graficos: Desenha MMA, repetibilidade, matching score e recall x 1-precisao de uma tabela\n"},
  };
  for (const auto& [args, primeira] : usos) {
    const teste::Execucao e = teste::roda(args);
    EXPECT_EQ(e.status, 1);
    EXPECT_EQ(e.out.substr(0, e.out.find('\n') + 1), primeira);
    EXPECT_EQ(e.err, "Erro: Numero de argumentos invalido\n");
  }
}

}  // namespace
