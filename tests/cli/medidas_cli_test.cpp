// KeyRep, MatScore and MatMutuo on the real binary: results worked by hand on
// scenes whose truth is known, the tables they append to, and every refusal.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace {

// Two 200 x 160 views; image 2 is image 1 moved by (6, -4) (t.txt). k1 holds
// ten keypoints of image 1 well inside, k2 the same moved. m.txt pairs them
// in rank order, the second pair moved 20 px off and the last 2.5 px off.
const cv::Matx33d kTranslacao(1, 0, 6, 0, 1, -4, 0, 0, 1);

void criaCena(const teste::PastaTemp& p) {
  teste::salva(teste::textura(160, 200, 5), p / "a.png");
  teste::salva(teste::textura(160, 200, 6), p / "b.png");
  teste::salvaMat33(kTranslacao, p / "t.txt");
  teste::salvaMat33(cv::Matx33d(1, 0, 0, 0, 1, 0, 0, 0, 0), p / "singular.txt");
  teste::salvaMat33(cv::Matx33d(1, 0, 5000, 0, 1, 0, 0, 0, 1), p / "longe.txt");
  std::vector<cv::KeyPoint> k1, k2, m2;
  for (int i = 0; i < 10; ++i) {
    const cv::KeyPoint k(30.f + 14 * i, 30.f + (i * 37) % 100, 10.f);
    k1.push_back(k);
    k2.emplace_back(k.pt.x + 6, k.pt.y - 4, k.size);
    m2.push_back(k2.back());
  }
  m2[1].pt.x += 20;
  m2[9].pt.y += 2.5f;
  formats::impKeyPoints(p / "k1.xml", k1);
  formats::impKeyPoints(p / "k2.xml", k2);
  std::vector<cv::DMatch> m;
  for (int i = 0; i < 10; ++i) m.emplace_back(i, i, static_cast<float>(i + 1));
  formats::impMatch(m, k1, m2, p / "m.txt");
  k1[3].size = 0;
  formats::impKeyPoints(p / "ruim.xml", k1);
  k1[3] = cv::KeyPoint(210, 50, 10);
  formats::impKeyPoints(p / "fora.xml", k1);
  teste::escreveTexto(p / "outra.csv", "x,y\n1,2\n");
}

const std::string kRep = "img1,img2,key1,key2,H,overlap_error,common,px,repeatability,correspondences,n1,n2,"
                         "dist_repeatability,repeated1,repeated2,dist_n1,dist_n2\n";

struct CasoBom {
  std::string nome;
  std::vector<std::string> args;
  std::string out;
};

const CasoBom kBons[] = {
    {"TranslacaoRepeteTudo",
     {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "t.txt"},
     "repeatability=1.000000 correspondences=10 n1=10 n2=10 dist_repeatability=1.000000 repeated1=10 "
     "repeated2=10 dist_n1=10 dist_n2=10\n"},
    // Against itself, image 2's keypoints are 7.2 px off: the distance form
    // needs px=8; the overlap form magnifies both discs to radius 30 about
    // their centres (offsets stay in pixels), where 7.2 px still overlap 0.74.
    {"DeslocadosPorDistancia",
     {"KeyRep", "a.png", "b.png", "k1.xml", "k1.xml", "t.txt", "px=8"},
     "repeatability=1.000000 correspondences=10 n1=10 n2=10 dist_repeatability=1.000000 repeated1=10 "
     "repeated2=10 dist_n1=10 dist_n2=10\n"},
    {"DeslocadosAlemDoLimiar",
     {"KeyRep", "a.png", "b.png", "k1.xml", "k1.xml", "t.txt", "erro=20"},
     "repeatability=0.000000 correspondences=0 n1=10 n2=10 dist_repeatability=0.000000 repeated1=0 "
     "repeated2=0 dist_n1=10 dist_n2=10\n"},
    {"SemParteComumNaoHaValor",
     {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "longe.txt"},
     "repeatability=NA correspondences=0 n1=0 n2=0 dist_repeatability=NA repeated1=0 repeated2=0 dist_n1=0 "
     "dist_n2=0\n"},
    // Errors 0, 20, 0 ... 0, 2.5: right at 3 px but the second; AP over the
    // ranks 1, 3, 4 ... 10 of the nine right ones; RANSAC at 2 px keeps the
    // eight exact ones and finds the translation.
    {"CasamentosPorDistancia",
     {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "dist=3", "ransac=2"},
     "matches=10 correct=9 n1=10 n2=10 matching_score=0.900000\n"
     "mma@1=0.800000 mma@2=0.800000 mma@3=0.900000 mma@4=0.900000 mma@5=0.900000 mma@6=0.900000 "
     "mma@7=0.900000 mma@8=0.900000 mma@9=0.900000 mma@10=0.900000\n"
     "ap=0." + std::to_string(static_cast<long>(
                   (1 + 2.0 / 3 + 3.0 / 4 + 4.0 / 5 + 5.0 / 6 + 6.0 / 7 + 7.0 / 8 + 8.0 / 9 + 9.0 / 10) / 9 * 1e6 + 0.5)) +
         "\nhomography_error=0.000000 homography@1=1 homography@3=1 homography@5=1\n"},
    // Discs 20 px apart are 4 radii apart: no overlap. Magnified to radius
    // 30, discs 2.5 px apart overlap by 0.90: right at the default 40 %,
    // wrong at 5 %.
    {"CasamentosPorSobreposicao",
     {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt"},
     "matches=10 correct=9 n1=10 n2=10 matching_score=0.900000\n"},
    {"SobreposicaoExigente",
     {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "erro=5"},
     "matches=10 correct=8 n1=10 n2=10 matching_score=0.800000\n"},
};

class Bons : public testing::TestWithParam<CasoBom> {};

TEST_P(Bons, SaidaExata) {
  const CasoBom& c = GetParam();
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::string out = teste::rodaBem(c.args, pasta.caminho());
  // MatScore's later lines are checked where the case spells them.
  EXPECT_EQ(out.substr(0, c.out.size()), c.out);
}

INSTANTIATE_TEST_SUITE_P(Medidas, Bons, testing::ValuesIn(kBons),
                         [](const testing::TestParamInfo<CasoBom>& i) { return i.param.nome; });

struct CasoFalha {
  std::string nome;
  std::vector<std::string> args;
  std::string err;
};

const std::string N = "Erro: Numero de argumentos invalido\n";
const CasoFalha kFalhas[] = {
    {"KeyRepUso", {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml"}, N},
    {"MatScoreUso", {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt"}, N},
    {"MatMutuoUso", {"MatMutuo", "d1.xml", "d2.xml"}, N},
    {"Singular", {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "singular.txt"},
     "Erro: transformacao singular em singular.txt\n"},
    {"TamanhoZero", {"KeyRep", "a.png", "b.png", "ruim.xml", "k2.xml", "t.txt"},
     "Erro: keypoint de tamanho invalido em ruim.xml\n"},
    {"ForaDaImagem", {"MatScore", "a.png", "b.png", "fora.xml", "k2.xml", "m.txt", "t.txt"},
     "Erro: keypoint fora da imagem a.png em fora.xml\n"},
    {"ErroForaDoIntervalo", {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "t.txt", "erro=100"},
     "Erro: erro fora do intervalo (0 a 100)\n"},
    {"PxZero", {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "t.txt", "px=0"}, "Erro: px fora do intervalo\n"},
    {"ComumDesconhecida", {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "t.txt", "comum=uma"},
     "Erro: comum deve ser ambas ou opencv: uma\n"},
    {"OpcaoDesconhecida", {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "raio=3"},
     "Erro: Argumento invalido raio 3\n"},
    {"DistZero", {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "dist=0"},
     "Erro: dist fora do intervalo\n"},
    {"RansacNegativo", {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "ransac=-1"},
     "Erro: ransac fora do intervalo\n"},
    {"CurvaECsvIguais", {"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "curva=x.csv", "csv=x.csv"},
     "Erro: curva e csv no mesmo arquivo x.csv\n"},
    {"TabelaDeOutrasColunas", {"KeyRep", "a.png", "b.png", "k1.xml", "k2.xml", "t.txt", "csv=outra.csv"},
     "Erro: colunas diferentes das desta ferramenta em outra.csv\n"},
};

class Falhas : public testing::TestWithParam<CasoFalha> {};

TEST_P(Falhas, UmaMensagemNadaMuda) {
  const CasoFalha& c = GetParam();
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::vector<std::string> antes = pasta.conteudo();
  const std::string outra = teste::leTexto(pasta / "outra.csv");
  const teste::Execucao e = teste::roda(c.args, pasta.caminho());
  EXPECT_EQ(e.err, c.err);
  EXPECT_EQ(std::make_pair(e.status, e.sinal), std::make_pair(1, 0));
  EXPECT_EQ(pasta.conteudo(), antes);
  EXPECT_EQ(teste::leTexto(pasta / "outra.csv"), outra);
}

INSTANTIATE_TEST_SUITE_P(Medidas, Falhas, testing::ValuesIn(kFalhas),
                         [](const testing::TestParamInfo<CasoFalha>& i) { return i.param.nome; });

TEST(Tabelas, LinhasAcrescentadasSobUmCabecalhoECurvaPorPosto) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  for (const char* px : {"px=3", "px=8"})
    teste::rodaBem({"KeyRep", "a.png", "b.png", "k1.xml", "k1.xml", "t.txt", px, "csv=r.csv"}, pasta.caminho());
  EXPECT_EQ(teste::leTexto(pasta / "r.csv"),
            kRep + "a.png,b.png,k1.xml,k1.xml,t.txt,40,ambas,3,1.000000,10,10,10,0.000000,0,0,10,10\n" +
                "a.png,b.png,k1.xml,k1.xml,t.txt,40,ambas,8,1.000000,10,10,10,1.000000,10,10,10,10\n");

  teste::rodaBem({"MatScore", "a.png", "b.png", "k1.xml", "k2.xml", "m.txt", "t.txt", "dist=3", "curva=rp.csv",
                  "csv=s.csv"},
                 pasta.caminho());
  const std::string curva = teste::leTexto(pasta / "rp.csv");
  EXPECT_EQ(curva.substr(0, curva.find('\n', curva.find('\n', curva.find('\n') + 1) + 1) + 1),
            "rank,distance,correct,one_minus_precision,recall\n1,1,1,0,0.111111112\n2,2,0,0.5,0.111111112\n");
  EXPECT_EQ(std::count(curva.begin(), curva.end(), '\n'), 11);
  const std::string s = teste::leTexto(pasta / "s.csv"), linha = "a.png,b.png,k1.xml,k2.xml,m.txt,t.txt,dist=3,ambas,10,9,10,10,0.900000,0.800000,";
  EXPECT_EQ(s.substr(s.find('\n') + 1, linha.size()), linha);
  EXPECT_EQ(pasta.conteudo(), (std::vector<std::string>{"a.png", "b.png", "fora.xml", "k1.xml", "k2.xml", "longe.txt",
                                                         "m.txt", "outra.csv", "r.csv", "rp.csv", "ruim.xml", "s.csv",
                                                         "singular.txt", "t.txt"}));
}

// The matches of MatMutuo are those of BFMatcher with its cross-check.
TEST(MatMutuo, IgualAoBFMatcherComVerificacaoCruzada) {
  teste::PastaTemp pasta;
  cv::Mat d1(60, 20, CV_32F), d2(45, 20, CV_32F);
  cv::randu(d1, 0, 10);
  cv::randu(d2, 0, 10);
  d2.row(3).copyTo(d1.row(7));  // an exact pair
  d1.row(7).copyTo(d1.row(8));  // and a tie for it
  std::vector<cv::KeyPoint> k1, k2;
  for (int i = 0; i < d1.rows; ++i) k1.emplace_back(static_cast<float>(i), 0.f, 1.f);
  for (int i = 0; i < d2.rows; ++i) k2.emplace_back(static_cast<float>(i), 1.f, 1.f);
  formats::impDescritores(pasta / "d1.xml", k1, d1);
  formats::impDescritores(pasta / "d2.xml", k2, d2);
  teste::rodaBem({"MatMutuo", "d1.xml", "d2.xml", "m.txt"}, pasta.caminho());
  std::vector<cv::DMatch> lidos;
  std::vector<cv::KeyPoint> a, b;
  formats::leMatch(lidos, a, b, pasta / "m.txt");
  std::set<std::pair<int, int>> nossos, deles;
  for (size_t i = 0; i < lidos.size(); ++i) nossos.emplace(int(a[i].pt.x), int(b[i].pt.x));
  std::vector<cv::DMatch> ref;
  cv::BFMatcher(cv::NORM_L2, true).match(d1, d2, ref);
  for (const cv::DMatch& m : ref) deles.emplace(m.queryIdx, m.trainIdx);
  EXPECT_EQ(nossos, deles);
  EXPECT_TRUE(nossos.count({7, 3}));
  EXPECT_GT(nossos.size(), 10u);
  for (size_t i = 1; i < lidos.size(); ++i) EXPECT_LE(lidos[i - 1].distance, lidos[i].distance);
}

}  // namespace
