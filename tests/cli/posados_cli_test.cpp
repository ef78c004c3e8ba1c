// Varre on posed scenes, end to end on the real binary: a synthetic scene
// written by SintPose in glue-factory's layout and, by a NumPy script that
// shares nothing with the program, in SuperGlue's pair list (also with an
// image stored turned) and as a COLMAP model. Every layout must give the
// same poses; the anchor (SuperGlue's procedure on cv2) must agree with the
// sweep pair by pair; the thread count must change nothing.
#include "formats/csv.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>

namespace {

const std::string kPython = "/usr/bin/python3";
const std::string kFonte = QUIVELAR_FONTE;
const char* const kColunasPose[] = {"pose_error",    "rotation_error", "translation_error", "inliers",
                                    "epipolar@1e-4", "epipolar@5e-4",  "epipolar@1e-3"};

// One scene of three views (pairs v0-v1, v0-v2) and its other layouts,
// made once for the whole file: SintPose ray-casts every pixel.
class VarrePosada : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    pasta_ = std::make_unique<teste::PastaTemp>();
    teste::rodaBem({"SintPose", kFonte + "/data/img1.png", "ds/cena", "superficie=ondas", "n=3"}, pasta_->caminho());
    teste::Processo py({kPython, kFonte + "/tests/cli/posados_gera.py", "ds/cena", "conv"}, pasta_->caminho());
    py.espera(120);
    const teste::Execucao e = py.fim();
    ASSERT_EQ(e.status, 0) << e.err;
  }
  static void TearDownTestSuite() { pasta_.reset(); }

  static const teste::PastaTemp& p() { return *pasta_; }

  // Runs a sweep of SIFT with the ratio test and returns its table.
  static formats::TabelaCSV varre(const std::string& dataset, const std::string& saida,
                                  std::vector<std::string> extras = {}) {
    std::vector<std::string> args = {"Varre", dataset, saida, "det=sift", "des=sift", "mat=ratio", "graficos=0",
                                     "desenhos=0"};
    args.insert(args.end(), extras.begin(), extras.end());
    const teste::Execucao e = teste::roda(args, pasta_->caminho(), 240);
    EXPECT_EQ(e.status, 0) << e.err;
    return formats::leTabelaCSV(*pasta_ / (saida + "/resultados.csv"));
  }

  // "pair -> the pose columns" of a table.
  static std::map<std::string, std::string> poses(const formats::TabelaCSV& t) {
    std::map<std::string, std::string> r;
    for (const auto& l : t.linhas) {
      EXPECT_EQ(l[t.coluna("status")], "ok");
      std::string v;
      for (const char* c : kColunasPose) v += l[t.coluna(c)] + " ";
      r[l[t.coluna("pair")]] = v;
    }
    return r;
  }

 private:
  static std::unique_ptr<teste::PastaTemp> pasta_;
};
std::unique_ptr<teste::PastaTemp> VarrePosada::pasta_;

TEST_F(VarrePosada, OsTresLayoutsDaoAsMesmasPoses) {
  const formats::TabelaCSV glue = varre("ds/cena", "glue");
  ASSERT_EQ(glue.linhas.size(), 2u);
  for (const auto& l : glue.linhas) {
    EXPECT_EQ(l[glue.coluna("kind")], "posed");
    // The homography's measures do not apply; depth gives the MMA.
    for (const char* c : {"repeatability", "ap", "homography_error", "homography@3"})
      EXPECT_EQ(l[glue.coluna(c)], "NA") << c;
    for (const char* c : {"correct", "matching_score", "mma@3"}) EXPECT_NE(l[glue.coluna(c)], "NA") << c;
    // SIFT with the ratio test recovers the synthetic pose within a few degrees.
    EXPECT_LT(std::stod(l[glue.coluna("pose_error")]), 3.0);
    EXPECT_GT(std::stod(l[glue.coluna("epipolar@5e-4")]), 0.8);
    EXPECT_GT(std::stod(l[glue.coluna("mma@3")]), 0.8);
  }
  const std::map<std::string, std::string> esperadas = poses(glue);
  EXPECT_EQ(esperadas.count("v0.png v1.png") + esperadas.count("v0.png v2.png"), 2u);

  // SuperGlue's list (images elsewhere) and COLMAP's model carry no depth.
  const formats::TabelaCSV superglue = varre("conv/superglue/pares.txt", "superglue", {"imagens=ds/cena/images"});
  const formats::TabelaCSV colmap = varre("conv/colmap", "colmap");
  EXPECT_EQ(poses(superglue), esperadas);
  EXPECT_EQ(poses(colmap), esperadas);
  for (const formats::TabelaCSV* t : {&superglue, &colmap})
    for (const auto& l : t->linhas) EXPECT_EQ(l[t->coluna("mma@3")], "NA");

  // Image 1 stored turned clockwise, listed with rot1 = 1: turned back, it
  // is the same image, and its cameras must come back with it.
  std::map<std::string, std::string> giradas;
  for (const auto& [par, v] : poses(varre("conv/superglue/girada.txt", "girada", {"imagens=conv/girada"})))
    giradas[par.substr(0, par.find(' ')) + " " + par.substr(par.find("girada-") + 7)] = v;
  EXPECT_EQ(giradas, esperadas);

  // A folder of scenes: each its own sequence, sorted by name.
  const formats::TabelaCSV ambas = varre("ds", "ambas");
  ASSERT_EQ(ambas.linhas.size(), 2u);
  EXPECT_EQ(ambas.linhas[0][ambas.coluna("sequence")], "cena");
  EXPECT_EQ(poses(ambas), esperadas);
}

// The anchor, bench/anchors/pose.py, on the matches the single tools make
// from the same images (KeySift, DesSift, MatRatio), each match keypoint's
// float restored from its store: the numbers of the sweep's row.
TEST_F(VarrePosada, AAncoraConcordaParAPar) {
  const formats::TabelaCSV t = varre("ds/cena", "ancora");
  for (const auto& nome : {"v0", "v1", "v2"}) {
    const std::string img = "ds/cena/images/" + std::string(nome) + ".png";
    teste::rodaBem({"KeySift", img, std::string(nome) + ".k.xml"}, p().caminho());
    teste::rodaBem({"DesSift", img, std::string(nome) + ".d.xml", std::string(nome) + ".k.xml"}, p().caminho());
  }
  for (int k = 1; k <= 2; ++k) {
    const std::string v = "v" + std::to_string(k);
    teste::rodaBem({"MatRatio", "v0.d.xml", v + ".d.xml", "m" + v + ".txt"}, p().caminho());
    teste::Processo py({kPython, kFonte + "/bench/anchors/pose.py", "m" + v + ".txt",
                        "conv/pose-" + std::to_string(k) + ".txt", "keys=v0.k.xml," + v + ".k.xml"},
                       p().caminho());
    py.espera(120);
    const teste::Execucao e = py.fim();
    ASSERT_EQ(e.status, 0) << e.err;
    std::map<std::string, std::string> ancora;
    std::istringstream in(e.out);
    for (std::string w; in >> w;) ancora[w.substr(0, w.find('='))] = w.substr(w.find('=') + 1);
    const auto linha = std::find_if(t.linhas.begin(), t.linhas.end(), [&](const std::vector<std::string>& l) {
      return l[t.coluna("pair")] == "v0.png " + v + ".png";
    });
    ASSERT_NE(linha, t.linhas.end());
    EXPECT_EQ(ancora.at("matches"), (*linha)[t.coluna("matches")]);
    for (const char* c : kColunasPose) {
      ASSERT_TRUE(ancora.count(c)) << c << "\n" << e.out;
      EXPECT_NEAR(std::stod(ancora.at(c)), std::stod((*linha)[t.coluna(c)]), 2e-6) << v << " " << c;
    }
  }
}

// OpenCV 4.6 seeds its estimators on each call: neither the thread count
// nor the order of the work may change a pose. With glue-factory's sweep of
// thresholds, each row has six poses, the first that of resultados.csv.
TEST_F(VarrePosada, UmaOuDuasThreadsAsMesmasPoses) {
  const std::vector<std::string> opcoes = {"mat=ratio,mutuo", "pose=magsac", "limiarpose=glue"};
  std::vector<std::string> um = opcoes, dois = opcoes;
  um.push_back("threads=1");
  dois.push_back("threads=2");
  const formats::TabelaCSV t = varre("ds/cena", "t1", um);
  varre("ds/cena", "t2", dois);
  for (const char* tabela : {"/resultados.csv", "/poses.csv"})
    EXPECT_EQ(teste::leTexto(p() / ("t1" + std::string(tabela))), teste::leTexto(p() / ("t2" + std::string(tabela))))
        << tabela;
  const formats::TabelaCSV poses = formats::leTabelaCSV(p() / "t1/poses.csv");
  ASSERT_EQ(poses.linhas.size(), 6 * t.linhas.size());
  const char* const limiares[] = {"0.5", "1", "1.5", "2", "2.5", "3"};
  for (size_t i = 0; i < poses.linhas.size(); ++i) {
    const auto& l = poses.linhas[i];
    const auto& r = t.linhas[i / 6];
    EXPECT_EQ(l[poses.coluna("threshold")], limiares[i % 6]);
    EXPECT_EQ(l[poses.coluna("pair")], r[t.coluna("pair")]);
    EXPECT_EQ(l[poses.coluna("matcher")], r[t.coluna("matcher")]);
    if (i % 6 != 0) continue;
    for (const char* c : {"pose_error", "rotation_error", "translation_error", "inliers"})
      EXPECT_EQ(l[poses.coluna(c)], r[t.coluna(c)]) << c;
  }
}

// Shards of a posed sweep join into the tables of the sweep run whole,
// poses.csv included.
TEST_F(VarrePosada, FatiasJuntadasDaoAsMesmasPoses) {
  for (const char* shard : {"shard=0/2", "shard=1/2"}) {
    const teste::Execucao e = teste::roda({"Varre", "ds", "fatiada", "det=sift,orb", "des=sift", "mat=ratio",
                                           "graficos=0", "desenhos=0", "limiarpose=1,2", shard},
                                          p().caminho(), 240);
    ASSERT_EQ(e.status, 0) << e.err;
  }
  varre("ds", "inteira", {"det=sift,orb", "limiarpose=1,2"});
  const teste::Execucao j = teste::roda({"VarreJunta", "fatiada"}, p().caminho(), 240);
  ASSERT_EQ(j.status, 0) << j.err;
  for (const char* t : {"/resultados.csv", "/poses.csv"})
    EXPECT_EQ(teste::leTexto(p() / ("inteira" + std::string(t))), teste::leTexto(p() / ("fatiada" + std::string(t))))
        << t;
  EXPECT_NE(teste::leTexto(p() / "fatiada/poses.csv").find("cena,v0.png v2.png,orb,sift,ratio,2,"), std::string::npos);
}

// medidas=mma on a posed scene: the matches' MMA through depth, no pose.
TEST_F(VarrePosada, SoMMAPelaProfundidade) {
  const formats::TabelaCSV t = varre("ds/cena", "mma", {"medidas=mma"});
  ASSERT_EQ(t.linhas.size(), 2u);
  for (const auto& l : t.linhas) {
    EXPECT_NE(l[t.coluna("mma@3")], "NA");
    for (const char* c : kColunasPose) EXPECT_EQ(l[t.coluna(c)], "NA") << c;
  }
  const formats::TabelaCSV pose = formats::leTabelaCSV(p() / "mma/pose.csv");
  ASSERT_EQ(pose.linhas.size(), 1u);
  EXPECT_EQ(pose.linhas[0][pose.coluna("pairs")], "2");
  EXPECT_EQ(pose.linhas[0][pose.coluna("auc@5")], "NA");
}

// Features another program wrote beside each posed image (D2-Net's .npz,
// by NumPy) sweep like any detector's.
TEST_F(VarrePosada, CaracteristicasDeOutroPrograma) {
  teste::Processo py({kPython, "-c",
                      "import cv2, glob, numpy as np\n"
                      "for f in sorted(glob.glob('ds/cena/images/*.png')):\n"
                      "    k, d = cv2.SIFT_create(nfeatures=1500).detectAndCompute(cv2.imread(f, 0), None)\n"
                      "    np.savez(open(f + '.sift-py', 'wb'), keypoints=np.float32([p.pt for p in k]),\n"
                      "             descriptors=d / np.linalg.norm(d, axis=1, keepdims=True))\n"},
                     p().caminho());
  py.espera(120);
  ASSERT_EQ(py.fim().status, 0);
  const teste::Execucao e = teste::roda({"Varre", "ds/cena", "npz", "feat=npz:sift-py", "mat=mutuo", "graficos=0"},
                                        p().caminho(), 240);
  ASSERT_EQ(e.status, 0) << e.err;
  const formats::TabelaCSV t = formats::leTabelaCSV(p() / "npz/resultados.csv");
  ASSERT_EQ(t.linhas.size(), 2u);
  for (const auto& l : t.linhas) {
    EXPECT_EQ(l[t.coluna("detector")], "npz:sift-py");
    EXPECT_LT(std::stod(l[t.coluna("pose_error")]), 5.0);
  }
}

struct Recusa {
  const char* nome;
  std::vector<std::string> args;
  std::string erro;
};

class RecusasPosadas : public testing::TestWithParam<Recusa> {};

TEST_P(RecusasPosadas, UmaLinhaDeErro) {
  teste::PastaTemp p;
  // Two views are enough to be read; nothing is measured.
  teste::rodaBem({"SintPose", kFonte + "/data/img1.png", "cena", "n=2"}, p.caminho());
  std::vector<std::string> args = {"Varre", "cena", "saida"};
  args.insert(args.end(), GetParam().args.begin(), GetParam().args.end());
  const teste::Execucao e = teste::roda(args, p.caminho());
  EXPECT_EQ(e.status, 1);
  EXPECT_EQ(e.err, GetParam().erro);
  EXPECT_EQ(p.conteudo(), std::vector<std::string>{"cena"});
}

const Recusa kRecusas[] = {
    {"RandSemHomografia", {"det=rand"}, "Erro: rand sorteia pares pela homografia; a cena posada cena nao tem uma\n"},
    {"CurvaForaDosPares", {"curva=cena:2"}, "Erro: par de curva fora da varredura cena:2\n"},
    {"LimiarNulo", {"limiarpose=1,0"}, "Erro: limiarpose fora do intervalo: 0\n"},
    {"Estimador", {"pose=lmeds"}, "Erro: pose deve ser ransac ou magsac: lmeds\n"},
};

INSTANTIATE_TEST_SUITE_P(Varre, RecusasPosadas, testing::ValuesIn(kRecusas),
                         [](const testing::TestParamInfo<Recusa>& i) { return i.param.nome; });

}  // namespace
