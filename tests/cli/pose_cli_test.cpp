// MatPose on the real binary against bench/anchors/pose.py, SuperGlue's
// evaluation run on Debian's cv2, over pairs made from known scenes; the
// table it appends to; and its refusals.
#include "formats/match_file.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <random>
#include <sstream>

namespace {

const std::string kPython = "/usr/bin/python3";
const std::string kAncora = std::string(QUIVELAR_FONTE) + "/bench/anchors/pose.py";

// Points in front of both 640 x 480 cameras projected by K0 and K1; a share
// thrown anywhere in image 1, uniform noise of `ruido` pixels on the rest.
struct Par {
  std::string nome;
  cv::Vec3d r, t;
  int n;
  double outliers, ruido;
  std::vector<std::string> opcoes;
  double maiorRotacao;  // degrees; < 0: no pose expected, 0: not checked
  unsigned semente = 7;
  const char* formato = "%.17g ";  // of T_0to1's numbers
};

void escrevePar(const Par& p, const teste::PastaTemp& pasta) {
  teste::salva(teste::textura(480, 640, 1), pasta / "a.png");
  teste::salva(teste::textura(480, 640, 2), pasta / "b.png");
  const cv::Matx33d K0(500, 0, 320, 0, 510, 240, 0, 0, 1), K1(620, 0, 300, 0, 600, 250, 0, 0, 1);
  cv::Matx33d R;
  cv::Rodrigues(p.r, R);
  std::mt19937 g(p.semente);
  const auto u = [&] { return std::uniform_real_distribution<double>(0, 1)(g); };
  const auto projeta = [](const cv::Matx33d& K, cv::Vec3d X) {
    const cv::Vec3d q = K * X;
    return cv::Point2d(q[0] / q[2], q[1] / q[2]);
  };
  const cv::Rect2d imagem(0, 0, 639, 479);
  std::vector<cv::KeyPoint> k0, k1;
  std::vector<cv::DMatch> m;
  while (static_cast<int>(k0.size()) < p.n) {
    const cv::Vec3d X0(4 * u() - 2, 3 * u() - 1.5, 4 + 6 * u()), X1 = R * X0 + p.t;
    cv::Point2d a = projeta(K0, X0), b = projeta(K1, X1);
    if (X1[2] < 1 || !imagem.contains(a) || !imagem.contains(b)) continue;
    if (u() < p.outliers) b = {639 * u(), 479 * u()};
    b += cv::Point2d(p.ruido * (2 * u() - 1), p.ruido * (2 * u() - 1));
    m.emplace_back(static_cast<int>(k0.size()), static_cast<int>(k0.size()), 1.f);
    k0.emplace_back(cv::Point2f(a), 8.f);
    k1.emplace_back(cv::Point2f(std::clamp(b.x, 0.0, 639.0), std::clamp(b.y, 0.0, 479.0)), 8.f);
  }
  formats::impMatch(m, k0, k1, pasta / "m.txt");
  FILE* f = std::fopen((pasta / "pose.txt").c_str(), "w");
  for (const cv::Matx33d& K : {K0, K1})
    for (double v : K.val) std::fprintf(f, "%.17g ", v);
  for (int i = 0; i < 3; ++i)
    for (double v : {R(i, 0), R(i, 1), R(i, 2), p.t[i]}) std::fprintf(f, p.formato, v);
  std::fprintf(f, "0 0 0 1\n");
  std::fclose(f);
}

std::map<std::string, std::string> campos(const std::string& texto) {
  std::map<std::string, std::string> r;
  std::istringstream in(texto);
  for (std::string w; in >> w;) r[w.substr(0, w.find('='))] = w.substr(w.find('=') + 1);
  return r;
}

const Par kPares[] = {
    {"Exato", {0.05, -0.1, 0.02}, {0.1, 0.05, 1}, 100, 0, 0, {}, 1e-4},
    {"RuidoEOutliers", {0.3, -0.4, 0.2}, {-0.8, 0.3, 0.4}, 400, 0.3, 0.7, {}, 3},
    {"Magsac", {0, 0.1, 0}, {1, 0, 0.1}, 300, 0.4, 1.0, {"metodo=magsac", "ransac=2"}, 3},
    // Five matches: E stacks four candidates. The first keeps 4 of them
    // through the cheirality check, the second 5, but the narrowed mask
    // lets no later candidate beat the first: 4 inliers, as the anchor says.
    {"CincoCasamentos", {0.3, -0.4, 0.2}, {-0.8, 0.3, 0.4}, 5, 0, 0.3, {}, 0, 2},
    {"QuatroCasamentos", {0.3, -0.4, 0.2}, {-0.8, 0.3, 0.4}, 4, 0, 0, {}, -1},
    // As SuperGlue's lists print T_0to1: R five decimals from a rotation.
    {"CincoDecimais", {0.2, 0.1, -0.1}, {0.5, -0.2, 0.3}, 200, 0.2, 0.5, {}, 3, 7, "%.5f "},
};

class ContraAncora : public testing::TestWithParam<Par> {};

TEST_P(ContraAncora, MesmasMedidasQueOSuperGlue) {
  const Par& p = GetParam();
  teste::PastaTemp pasta;
  escrevePar(p, pasta);
  std::vector<std::string> args = {"MatPose", "a.png", "b.png", "m.txt", "pose.txt", "csv=t.csv"},
                           ancora = {kPython, kAncora, "m.txt", "pose.txt"};
  args.insert(args.end(), p.opcoes.begin(), p.opcoes.end());
  ancora.insert(ancora.end(), p.opcoes.begin(), p.opcoes.end());
  const std::string saida = teste::rodaBem(args, pasta.caminho());
  const auto nos = campos(saida);
  teste::Processo py(ancora, pasta.caminho());
  py.espera(120);
  const teste::Execucao e = py.fim();
  ASSERT_EQ(e.status, 0) << e.err;
  const auto eles = campos(e.out);
  ASSERT_EQ(nos.size(), 8u);
  for (const auto& [chave, valor] : nos) {
    ASSERT_TRUE(eles.count(chave)) << chave;
    if (valor == "NA" || eles.at(chave) == "NA")
      EXPECT_EQ(valor, eles.at(chave)) << chave;
    else
      EXPECT_NEAR(std::stod(valor), std::stod(eles.at(chave)), 2e-6) << chave;
  }
  if (p.maiorRotacao < 0) {
    EXPECT_EQ(nos.at("pose_error"), "NA");
  } else if (p.maiorRotacao > 0) {
    EXPECT_LE(std::stod(nos.at("rotation_error")), p.maiorRotacao);
  }
  // The table's row holds what was printed.
  std::string opcoes = "metodo=ransac ransac=1";  // the defaults, which the options override
  for (const std::string& o : p.opcoes) opcoes += " " + o;
  const auto o = campos(opcoes);
  std::string linha = "a.png,b.png,m.txt,pose.txt," + o.at("metodo") + "," + o.at("ransac");
  for (const char* c : {"matches", "inliers", "pose_error", "rotation_error", "translation_error", "epipolar@1e-4",
                        "epipolar@5e-4", "epipolar@1e-3"})
    linha += "," + nos.at(c);
  EXPECT_EQ(teste::leTexto(pasta / "t.csv"), "img0,img1,matches,pose,method,ransac,matches_n,inliers,pose_error,"
                                             "rotation_error,translation_error,epipolar@1e-4,epipolar@5e-4,"
                                             "epipolar@1e-3\n" + linha + "\n");
}

INSTANTIATE_TEST_SUITE_P(Pose, ContraAncora, testing::ValuesIn(kPares),
                         [](const testing::TestParamInfo<Par>& i) { return i.param.nome; });

// A good pose file (sideways motion) with some words changed, cut or
// lengthened to n words.
std::string pose(const std::map<int, std::string>& troca, size_t n = 34) {
  std::istringstream in("500 0 320 0 510 240 0 0 1 500 0 320 0 510 240 0 0 1 1 0 0 1 0 1 0 0 0 0 1 0 0 0 0 1");
  std::vector<std::string> w(std::istream_iterator<std::string>(in), {});
  for (const auto& [i, palavra] : troca) w[i] = palavra;
  w.resize(n, "7");
  std::string texto;
  for (const std::string& p : w) texto += p + " ";
  return texto;
}

struct Falha {
  std::string nome, pose;
  std::vector<std::string> opcoes;
  std::string err, imagem1 = "b.png";
};
const std::string kIncompleta = "Erro: pose incompleta ou invalida (34 numeros: K0 K1 T_0to1) em x.txt\n";
const Falha kFalhas[] = {
    {"NaoNumero", pose({{25, "nan"}}), {}, kIncompleta},
    {"Faltando", pose({}, 33), {}, kIncompleta},
    {"Sobrando", pose({}, 35), {}, "Erro: pose com mais de 34 numeros (K0 K1 T_0to1) em x.txt\n"},
    {"KSingular", pose({{4, "0"}}), {}, "Erro: K0 nao e matriz de camera (fx, fy > 0; 0 0 1 embaixo) em x.txt\n"},
    {"RComEscala", pose({{18, "1.01"}, {23, "1.01"}, {28, "1.01"}}), {},
     "Erro: T_0to1 nao e [R t; 0 0 0 1] com R rotacao em x.txt\n"},
    {"TranslacaoNula", pose({{21, "0"}}), {}, "Erro: translacao nula, sem geometria epipolar, em x.txt\n"},
    {"ImagemPequena", pose({}), {}, "Erro: keypoint fora da imagem p.png em m.txt\n", "p.png"},
};

class Falhas : public testing::TestWithParam<Falha> {};

TEST_P(Falhas, UmaLinhaDeErro) {
  const Falha& f = GetParam();
  teste::PastaTemp pasta;
  escrevePar(kPares[0], pasta);
  teste::salva(teste::textura(100, 100, 3), pasta / "p.png");
  teste::escreveTexto(pasta / "x.txt", f.pose);
  std::vector<std::string> args = {"MatPose", "a.png", f.imagem1, "m.txt", "x.txt"};
  args.insert(args.end(), f.opcoes.begin(), f.opcoes.end());
  const teste::Execucao e = teste::roda(args, pasta.caminho());
  EXPECT_EQ(std::make_pair(e.err, e.status), std::make_pair(f.err, 1));
}

INSTANTIATE_TEST_SUITE_P(Pose, Falhas, testing::ValuesIn(kFalhas),
                         [](const testing::TestParamInfo<Falha>& i) { return i.param.nome; });

}  // namespace
