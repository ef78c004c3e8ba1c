// Datasets, synthetic sequences, CSV reading, the plots' means and the
// sweep's task graph, in-process.
#include "datasets/sequencia.hpp"
#include "datasets/sintetica.hpp"
#include "formats/csv.hpp"
#include "plots/graficos.hpp"
#include "sweep/tarefas.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <sys/stat.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// ------------------------------------------------------------------ layouts

struct CasoLayout {
  std::string nome;
  std::string pasta;  // the sequence folder's name
  std::vector<std::string> arquivos;
  int vistas;
  datasets::Tipo tipo;
  std::vector<bool> imagens, transformacoes;  // which are present, per view
};

const CasoLayout kLayouts[] = {
    {"Oxford",
     "graf",
     {"img1.ppm", "img2.ppm", "img3.pgm", "H1to2p", "H1to3p"},
     3,
     datasets::Tipo::nenhum,
     {true, true, true},
     {false, true, true}},
    {"HPatches", "v_boat", {"1.ppm", "2.ppm", "H_1_2"}, 2, datasets::Tipo::pontoDeVista, {true, true}, {false, true}},
    {"HPatchesLuz",
     "i_ajuntament",
     {"1.png", "2.png", "3.png", "H_1_2", "H_1_3"},
     3,
     datasets::Tipo::iluminacao,
     {true, true, true},
     {false, true, true}},
    // A view whose image is gone still counts, so its pair is reported.
    {"ImagemFaltando",
     "wall",
     {"img1.png", "img2.png", "H1to2p", "H1to3p"},
     3,
     datasets::Tipo::nenhum,
     {true, true, false},
     {false, true, true}},
    {"TransformacaoFaltando",
     "bark",
     {"img1.jpg", "img2.jpg", "img3.jpeg", "H1to2p"},
     3,
     datasets::Tipo::nenhum,
     {true, true, true},
     {false, true, false}},
};

class Layout : public testing::TestWithParam<CasoLayout> {};

TEST_P(Layout, ReconheceVistasETipo) {
  const CasoLayout& c = GetParam();
  teste::PastaTemp p;
  ASSERT_EQ(mkdir((p / c.pasta).c_str(), 0777), 0);
  for (const std::string& a : c.arquivos) teste::escreveTexto(p / c.pasta + "/" + a, "x");
  datasets::Sequencia s;
  ASSERT_TRUE(datasets::leSequencia(p / c.pasta, s));
  EXPECT_EQ(s.nome, c.pasta);
  EXPECT_EQ(s.vistas(), c.vistas);
  EXPECT_EQ(s.tipo, c.tipo);
  for (int k = 0; k < c.vistas; ++k) {
    EXPECT_EQ(!s.imagens[k].empty(), c.imagens[k]) << "imagem " << k + 1;
    EXPECT_EQ(!s.transformacoes[k].empty(), c.transformacoes[k]) << "transformacao " << k + 1;
  }
  // Pairs 1-k, each with its view's transform.
  ASSERT_EQ(s.pares.size(), static_cast<size_t>(c.vistas - 1));
  for (int k = 1; k < c.vistas; ++k) {
    const datasets::ParDaSequencia& par = s.pares[k - 1];
    EXPECT_EQ(par.rotulo, "1-" + std::to_string(k + 1));
    EXPECT_EQ(par.a, 0);
    EXPECT_EQ(par.b, k);
    EXPECT_EQ(par.transformacao, s.transformacoes[k]);
    EXPECT_FALSE(par.posado.has_value());
  }
}

// A posed list as a sequence: an image named by several pairs is read once,
// but the same file turned is another image.
TEST(Dataset, ParesPosadosCompartilhamImagens) {
  std::vector<datasets::ParPosado> pares(3);
  const char* const nomes[3][2] = {{"a.png", "b.png"}, {"a.png", "c.png"}, {"b.png", "c.png"}};
  for (int i = 0; i < 3; ++i) {
    pares[i].nome0 = nomes[i][0];
    pares[i].nome1 = nomes[i][1];
    pares[i].imagem0 = std::string("img/") + nomes[i][0];
    pares[i].imagem1 = std::string("img/") + nomes[i][1];
    pares[i].profundidade0 = std::string("d/") + nomes[i][0] + ".h5";
  }
  pares[2].giro1 = 1;
  const std::vector<datasets::Sequencia> partes = datasets::sequenciaPosada("cena", "pasta", pares);
  ASSERT_EQ(partes.size(), 1u);
  const datasets::Sequencia& s = partes[0];
  EXPECT_EQ(s.nomeDaParte(), "cena");
  EXPECT_EQ(s.tipo, datasets::Tipo::posada);
  EXPECT_STREQ(datasets::nomeTipo(s.tipo), "posed");
  EXPECT_EQ(s.imagens, (std::vector<std::string>{"img/a.png", "img/b.png", "img/c.png", "img/c.png"}));
  EXPECT_EQ(s.giros, (std::vector<int>{0, 0, 0, 1}));
  EXPECT_EQ(s.nomes, (std::vector<std::string>{"a.png", "b.png", "c.png", "c.png"}));
  // b's depth comes with the pair that names it first as image 0.
  EXPECT_EQ(s.profundidades, (std::vector<std::string>{"d/a.png.h5", "d/b.png.h5", "", ""}));
  ASSERT_EQ(s.pares.size(), 3u);
  const int esperados[3][2] = {{0, 1}, {0, 2}, {1, 3}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(s.pares[i].a, esperados[i][0]) << i;
    EXPECT_EQ(s.pares[i].b, esperados[i][1]) << i;
    EXPECT_EQ(s.pares[i].rotulo, std::string(nomes[i][0]) + " " + nomes[i][1]);
    ASSERT_TRUE(s.pares[i].posado.has_value());
  }
}

INSTANTIATE_TEST_SUITE_P(Sequencias, Layout, testing::ValuesIn(kLayouts),
                         [](const testing::TestParamInfo<CasoLayout>& i) { return i.param.nome; });

TEST(Dataset, PastaDeSequenciasOuUmaSequencia) {
  teste::PastaTemp p;
  for (const char* s : {"b", "a", "vazia"}) ASSERT_EQ(mkdir((p / s).c_str(), 0777), 0);
  for (const char* s : {"a", "b"})
    for (const char* f : {"/img1.png", "/img2.png", "/H1to2p"}) teste::escreveTexto(p / s + f, "x");
  const std::vector<datasets::Sequencia> todas = datasets::leDataset(p.caminho(), {});
  ASSERT_EQ(todas.size(), 2u);
  EXPECT_EQ(todas[0].nome, "a");
  EXPECT_EQ(todas[1].nome, "b");
  const std::vector<datasets::Sequencia> uma = datasets::leDataset(p / "b", {});
  ASSERT_EQ(uma.size(), 1u);
  EXPECT_EQ(uma[0].nome, "b");
  EXPECT_EQ(datasets::leDataset(p.caminho(), {"b", "b"}).size(), 1u);
  EXPECT_EQ(teste::mensagemDe([&] { datasets::leDataset(p.caminho(), {"c"}); }),
            "Erro: sequencia c nao encontrada em " + p.caminho());
  EXPECT_EQ(teste::mensagemDe([&] { datasets::leDataset(p / "vazia", {}); }),
            "Erro: nenhuma sequencia (img1.ppm.. ou 1.ppm..) nem cena posada (views.txt, cameras.txt) em " + p / "vazia");
}

// A long list is cut into parts of consecutive pairs, none naming more
// images than allowed; together they hold the list in order.
TEST(Dataset, CenaLongaEmPartes) {
  // Pairs i-(i+1) and i-(i+2) over 8 images: a chain that never closes.
  std::vector<datasets::ParPosado> pares;
  for (int i = 0; i < 8; ++i)
    for (int d : {1, 2}) {
      if (i + d >= 8) continue;
      datasets::ParPosado p;
      p.nome0 = p.imagem0 = std::to_string(i) + ".png";
      p.nome1 = p.imagem1 = std::to_string(i + d) + ".png";
      pares.push_back(p);
    }
  for (int maximo : {2, 3, 5, 16}) {
    const std::vector<datasets::Sequencia> partes = datasets::sequenciaPosada("cena", "pasta", pares, maximo);
    std::vector<std::string> rotulos;
    for (size_t k = 0; k < partes.size(); ++k) {
      const datasets::Sequencia& s = partes[k];
      EXPECT_LE(s.vistas(), maximo);
      EXPECT_EQ(s.parte, static_cast<int>(k));
      EXPECT_EQ(s.partes, static_cast<int>(partes.size()));
      EXPECT_EQ(s.primeiroPar, static_cast<int>(rotulos.size()));
      EXPECT_EQ(s.nomeDaParte(), partes.size() > 1 ? "cena#" + std::to_string(k + 1) : "cena");
      for (const datasets::ParDaSequencia& q : s.pares) {
        rotulos.push_back(q.rotulo);
        EXPECT_EQ(s.imagens[q.a] + " " + s.imagens[q.b], q.rotulo);
      }
    }
    ASSERT_EQ(rotulos.size(), pares.size()) << maximo;
    for (size_t i = 0; i < pares.size(); ++i) EXPECT_EQ(rotulos[i], pares[i].nome0 + " " + pares[i].nome1);
    EXPECT_EQ(partes.size() == 1, maximo >= 8) << maximo;
  }
}

// ---------------------------------------------------------------- synthetic

// A bright dot drawn in the source must reappear where the written transform
// sends it: the files' H is the warp's.
struct CasoGeometria {
  std::string nome;
  datasets::ParamSint p;
};

datasets::ParamSint geometria(double rotacao, double escala, double vista) {
  datasets::ParamSint p;
  p.rotacao = rotacao;
  p.escala = escala;
  p.vista = vista;
  return p;
}

const CasoGeometria kGeometrias[] = {
    {"Rotacao", geometria(50, 1, 0)},
    {"Escala", geometria(0, 1.6, 0)},
    {"Vista", geometria(0, 1, 40)},
    {"Todas", geometria(-30, 0.7, -35)},
};

class Geometria : public testing::TestWithParam<CasoGeometria> {};

TEST_P(Geometria, PontoVaiParaOndeHManda) {
  const datasets::ParamSint& p = GetParam().p;
  for (const cv::Point2f q : {cv::Point2f(70, 60), cv::Point2f(150, 100), cv::Point2f(110, 80)}) {
    cv::Mat_<uchar> fonte(160, 220, uchar(0));
    cv::circle(fonte, cv::Point(cvRound(q.x), cvRound(q.y)), 3, 255, -1);
    const cv::Mat_<uchar> vista = datasets::vistaSint(fonte, p, 1);
    const cv::Matx33d H = datasets::transformacaoSint(fonte.size(), p, 1);
    const cv::Vec3d h = H * cv::Vec3d(q.x, q.y, 1);
    // The dot's centroid: a tilt stretches it, so its brightest pixel wanders.
    const cv::Moments m = cv::moments(vista);
    ASSERT_GT(m.m00, 0) << q;
    EXPECT_NEAR(m.m10 / m.m00, h[0] / h[2], 0.5) << q;
    EXPECT_NEAR(m.m01 / m.m00, h[1] / h[2], 0.5) << q;
  }
}

INSTANTIATE_TEST_SUITE_P(Sintetica, Geometria, testing::ValuesIn(kGeometrias),
                         [](const testing::TestParamInfo<CasoGeometria>& i) { return i.param.nome; });

TEST(Sintetica, ImagemUmEhAFonteEMetadeDaMudancaNoMeio) {
  datasets::ParamSint p;
  p.rotacao = 80;
  const cv::Mat_<uchar> fonte = teste::textura(100, 120, 3);
  EXPECT_EQ(cv::norm(datasets::vistaSint(fonte, p, 0), fonte, cv::NORM_INF), 0);
  const cv::Matx33d H = datasets::transformacaoSint(fonte.size(), p, 0.5);
  EXPECT_NEAR(std::atan2(-H(1, 0), H(0, 0)) * 180 / CV_PI, 40, 1e-9);  // counter-clockwise on screen
}

TEST(Sintetica, FotometriaMudaNiveisSemMoverPixels) {
  datasets::ParamSint p;
  p.brilho = -40;
  const cv::Mat_<uchar> fonte = teste::uniforme(40, 50, 100);
  EXPECT_EQ(datasets::transformacaoSint(fonte.size(), p, 1), cv::Matx33d::eye());
  EXPECT_EQ(cv::mean(datasets::vistaSint(fonte, p, 1))[0], 60);
  EXPECT_EQ(cv::mean(datasets::vistaSint(fonte, p, 0.5))[0], 80);
  p = datasets::ParamSint();
  p.jpeg = 10;
  const cv::Mat_<uchar> tex = teste::textura(64, 64, 1);
  EXPECT_GT(cv::norm(datasets::vistaSint(tex, p, 1), tex, cv::NORM_INF), 0);
}

TEST(Sintetica, MesmaSementeMesmosArquivos) {
  datasets::ParamSint p;
  p.vistas = 3;
  p.ruido = 8;
  p.rotacao = 15;
  const cv::Mat_<uchar> fonte = teste::textura(60, 80, 9);
  teste::PastaTemp a;
  datasets::escreveSequencia(fonte, a / "s1", p);
  datasets::escreveSequencia(fonte, a / "s2", p);
  p.seed = 8;
  datasets::escreveSequencia(fonte, a / "s3", p);
  for (const char* f : {"/img2.png", "/img3.png", "/H1to3p"})
    EXPECT_EQ(teste::leTexto(a / "s1" + f), teste::leTexto(a / "s2" + f)) << f;
  EXPECT_NE(teste::leTexto(a / "s1/img3.png"), teste::leTexto(a / "s3/img3.png"));
  EXPECT_EQ(teste::leTexto(a / "s1/H1to3p"), teste::leTexto(a / "s3/H1to3p"));
}

TEST(Sintetica, ParametrosForaDoIntervalo) {
  const std::vector<std::pair<std::function<void(datasets::ParamSint&)>, std::string>> casos = {
      {[](datasets::ParamSint& p) { p.vistas = 1; }, "Erro: n fora do intervalo (2 a 100)"},
      {[](datasets::ParamSint& p) { p.escala = 0; }, "Erro: escala deve ser positiva"},
      {[](datasets::ParamSint& p) { p.vista = 85; }, "Erro: vista fora do intervalo (-80 a 80 graus)"},
      {[](datasets::ParamSint& p) { p.jpeg = 0; }, "Erro: jpeg fora do intervalo (1 a 100)"},
      {[](datasets::ParamSint& p) { p.gama = -1; }, "Erro: gama deve ser positivo"},
  };
  for (const auto& [muda, mensagem] : casos) {
    datasets::ParamSint p;
    muda(p);
    EXPECT_EQ(teste::mensagemDe([&] { p.confere(); }), mensagem);
  }
}

// --------------------------------------------------------------------- CSV

TEST(CSV, LeCamposComAspasEVirgulas) {
  formats::TabelaCSV t;
  ASSERT_TRUE(formats::analisaCSV("a,b,c\n1,\"x, \"\"y\"\"\",\n\n\"linha\nquebrada\",2,3\r\n", t));
  EXPECT_EQ(t.colunas, (std::vector<std::string>{"a", "b", "c"}));
  ASSERT_EQ(t.linhas.size(), 2u);
  EXPECT_EQ(t.linhas[0], (std::vector<std::string>{"1", "x, \"y\"", ""}));
  EXPECT_EQ(t.linhas[1], (std::vector<std::string>{"linha\nquebrada", "2", "3"}));
  EXPECT_EQ(t.coluna("c"), 2);
  EXPECT_EQ(t.coluna("d"), -1);
  EXPECT_EQ(formats::campoCSV(t.linhas[0][1]), "\"x, \"\"y\"\"\"");
  for (const char* ruim : {"a,b\n1\n", "a,b\n\"1,2\n", ""}) EXPECT_FALSE(formats::analisaCSV(ruim, t)) << ruim;
}

// ------------------------------------------------------------------- plots

TEST(Graficos, MediasDeMMAPorConfiguracaoETipo) {
  std::string texto = "sequence,kind,pair,detector,descriptor,matcher,status";
  for (int t = 1; t <= 10; ++t) texto += ",mma@" + std::to_string(t);
  texto += "\n";
  auto linha = [&](const char* seq, const char* tipo, const char* status, const char* mma1) {
    texto += std::string(seq) + "," + tipo + ",1-2,sift,sift,nn," + status + "," + mma1;
    for (int t = 2; t <= 10; ++t) texto += ",1";
    texto += "\n";
  };
  linha("i_a", "illumination", "ok", "0.2");
  linha("v_b", "viewpoint", "ok", "0.6");
  linha("v_c", "viewpoint", "ok", "NA");      // undefined: not averaged
  linha("v_d", "viewpoint", "Erro: x", "0");  // failed: not averaged
  formats::TabelaCSV t;
  ASSERT_TRUE(formats::analisaCSV(texto, t));
  const plots::Figura f = plots::figuraMMA(t);
  ASSERT_EQ(f.paineis.size(), 3u);
  const double esperado[] = {0.4, 0.2, 0.6};  // all, illumination, viewpoint
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(f.paineis[i].series.size(), 1u);
    const plots::Serie& s = f.paineis[i].series[0];
    EXPECT_EQ(s.rotulo, "sift/sift/nn");
    ASSERT_EQ(s.y.size(), 10u);
    EXPECT_NEAR(s.y[0], esperado[i], 1e-12) << f.paineis[i].titulo;
    EXPECT_EQ(s.y[9], 1);
  }
}

// ------------------------------------------------------------- task graph

// A diamond per group (a -> b, c -> d) over a chain of groups: on one worker
// the tasks run in the order added, on any number every task runs once and
// after its dependencies; a task that throws stops the tasks not started and
// the exception reaches the caller.
TEST(Tarefas, OrdemDependenciasEFalha) {
  for (int threads : {1, 2, 4}) {
    SCOPED_TRACE(threads);
    const int antes = cv::getNumThreads();
    cv::setNumThreads(threads);
    for (bool falha : {false, true}) {
      sweep::Tarefas t;
      std::mutex m;
      std::vector<int> ordem;
      std::vector<std::atomic<int>> vezes(40);
      const auto marca = [&](int i) {
        ++vezes[i];
        std::lock_guard<std::mutex> trava(m);
        ordem.push_back(i);
      };
      std::vector<std::vector<int>> deps(40);
      for (int g = 0; g < 10; ++g) {
        const int a = 4 * g;
        deps[a] = g ? std::vector<int>{a - 1} : std::vector<int>{};
        deps[a + 1] = deps[a + 2] = {a};
        deps[a + 3] = {a + 1, a + 2};
      }
      for (int i = 0; i < 40; ++i)
        t.adiciona([&, i] {
          marca(i);
          if (falha && i == 21) throw std::runtime_error("tarefa 21");
        }, deps[i]);
      if (falha)
        EXPECT_THROW(t.executa(), std::runtime_error);
      else
        EXPECT_NO_THROW(t.executa());
      std::vector<int> posicao(40, -1);
      for (size_t j = 0; j < ordem.size(); ++j) posicao[ordem[j]] = static_cast<int>(j);
      for (int i = 0; i < 40; ++i) {
        EXPECT_LE(vezes[i], 1) << i;
        if (posicao[i] < 0) continue;
        for (int d : deps[i]) EXPECT_LT(posicao[d], posicao[i]) << d << " -> " << i;
      }
      // 21 only unlocks 23 and what follows: nothing after group 5 starts.
      EXPECT_EQ(falha ? posicao[24] : static_cast<int>(ordem.size()), falha ? -1 : 40);
      if (threads == 1) {
        for (size_t j = 0; j < ordem.size(); ++j) EXPECT_EQ(ordem[j], static_cast<int>(j));
        EXPECT_EQ(ordem.size(), falha ? 22u : 40u);
      }
    }
    cv::setNumThreads(antes);
  }
}

// Two tasks that each wait for the other to start end only when the graph
// runs them on two threads at once; meanwhile OpenCV's pool is held at one
// thread, and given back afterwards.
TEST(Tarefas, EmThreadsDeVerdade) {
  const int antes = cv::getNumThreads();
  for (int threads : {2, 4}) {
    SCOPED_TRACE(threads);
    cv::setNumThreads(threads);
    sweep::Tarefas t;
    std::mutex m;
    std::condition_variable mudou;
    int chegaram = 0;
    std::vector<int> poolNaTarefa(2, -1);
    for (int i = 0; i < 2; ++i)
      t.adiciona([&, i] {
        std::unique_lock<std::mutex> trava(m);
        poolNaTarefa[i] = cv::getNumThreads();
        ++chegaram;
        mudou.notify_all();
        mudou.wait(trava, [&] { return chegaram == 2; });
      });
    t.executa();
    EXPECT_EQ(poolNaTarefa, (std::vector<int>{1, 1}));
    EXPECT_EQ(cv::getNumThreads(), threads);
  }
  cv::setNumThreads(antes);
}

}  // namespace
