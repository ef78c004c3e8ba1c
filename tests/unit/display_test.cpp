// Drawings of the display tools, in-process: our own rasterisation, the
// OpenCV-drawn keypoint and match images, and MatVis's frames.
#include "display/desenhos.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/relogio.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace {

const cv::Vec3b kVermelho(0, 0, 255);
const cv::Vec3b kVerde(0, 255, 0);
const cv::Vec3b kBranco(255, 255, 255);
const cv::Vec3b kPreto(0, 0, 0);

using teste::pixelsDaCor;

// Pixels whose three channels differ: marks on a grey image.
int coloridos(const cv::Mat_<cv::Vec3b>& img) {
  int n = 0;
  for (const cv::Vec3b& p : img) n += p[0] != p[1] || p[1] != p[2];
  return n;
}

cv::Mat_<cv::Vec3b> emCor(const cv::Mat_<uchar>& g) {
  cv::Mat_<cv::Vec3b> c;
  tvm::converte(g, c);
  return c;
}

bool iguais(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

cv::KeyPoint kp(float x, float y, float size, float angle = -1) { return cv::KeyPoint(x, y, size, angle); }

// ---- circle rasterisation ----------------------------------------------------

struct CasoCirculo {
  int raio, largura;
};

class CirculoTest : public ::testing::TestWithParam<CasoCirculo> {};

TEST_P(CirculoTest, AnelNaDistanciaCertaConexoESimetrico) {
  const CasoCirculo c = GetParam();
  const int lado = 2 * (c.raio + c.largura) + 11, centro = lado / 2;
  cv::Mat_<cv::Vec3b> img(lado, lado, kPreto);
  tvm::circulo(img, centro, centro, c.raio, kBranco, c.largura);
  const std::vector<cv::Point> pts = pixelsDaCor(img, kBranco);
  ASSERT_FALSE(pts.empty());
  const double dentro = std::max(0.0, c.raio - c.largura / 2.0), fora = c.raio + c.largura / 2.0;
  for (const cv::Point& p : pts) {
    const double d = std::hypot(p.x - centro, p.y - centro);
    EXPECT_GE(d, dentro) << p;
    EXPECT_LT(d, fora) << p;
  }
  // Area of the ring, within the error of a pixel grid.
  const double area = CV_PI * (fora * fora - dentro * dentro);
  EXPECT_NEAR(static_cast<double>(pts.size()), area, 0.15 * area + 4);
  cv::Mat_<cv::Vec3b> espelho;
  cv::flip(img, espelho, -1);
  EXPECT_TRUE(iguais(img, espelho));
  cv::Mat_<uchar> canal;
  cv::extractChannel(img, canal, 0);
  cv::Mat rotulos;
  EXPECT_EQ(cv::connectedComponents(canal, rotulos, 8), 2);  // background + one ring
}

INSTANTIATE_TEST_SUITE_P(Raios, CirculoTest,
                         ::testing::Values(CasoCirculo{0, 1}, CasoCirculo{1, 1}, CasoCirculo{7, 1},
                                           CasoCirculo{57, 1}, CasoCirculo{25, 3}, CasoCirculo{2, 6}));

TEST(Circulo, RecortadoEFora) {
  struct Caso {
    const char* nome;
    int row, col, raio;
    int esperados;  // -1: some, not counted
  };
  const Caso casos[] = {
      {"no canto", 0, 0, 10, -1},
      {"longe", -5000, -5000, 10, 0},
      {"enorme em volta", 20, 20, 1 << 30, 0},
      {"enorme passando", -1000000, 20, 1000010, -1},
      {"raio negativo", 20, 20, -3, 0},
  };
  for (const Caso& c : casos) {
    cv::Mat_<cv::Vec3b> img(40, 40, kPreto);
    tvm::circulo(img, c.row, c.col, c.raio, kBranco, 1);
    const int n = static_cast<int>(pixelsDaCor(img, kBranco).size());
    if (c.esperados < 0)
      EXPECT_GT(n, 0) << c.nome;
    else
      EXPECT_EQ(n, c.esperados) << c.nome;
  }
}

// ---- clock hand --------------------------------------------------------------

TEST(Relogio, PonteiroSegueOAngulo) {
  struct Caso {
    double angulo;
    int dRow, dCol;  // direction of the hand on screen
  };
  const Caso casos[] = {{0, 0, 1}, {90, 1, 0}, {180, 0, -1}, {270, -1, 0}, {-90, -1, 0}, {360, 0, 1}};
  const int r = 30, c = 30, raio = 20;
  for (const Caso& k : casos) {
    cv::Mat_<cv::Vec3b> img(61, 61, kPreto);
    tvm::relogioCircular(img, r, c, raio, k.angulo, kBranco, 1);
    for (int t = 0; t <= raio; t += 5)
      EXPECT_EQ(img(r + t * k.dRow, c + t * k.dCol), kBranco) << "angulo " << k.angulo << " t " << t;
    EXPECT_EQ(img(r - 10 * k.dRow, c - 10 * k.dCol), kPreto) << "angulo " << k.angulo;
  }
  cv::Mat_<cv::Vec3b> semPonteiro(61, 61, kPreto), soCirculo(61, 61, kPreto);
  tvm::relogioCircular(semPonteiro, r, c, raio, NAN, kBranco, 1);
  tvm::circulo(soCirculo, r, c, raio, kBranco, 1);
  EXPECT_TRUE(iguais(semPonteiro, soCirculo));
}

TEST(Relogio, PaletaSemCinzaEVariada) {
  std::set<std::vector<int>> cores;
  for (size_t i = 0; i < 20; ++i) {
    const cv::Vec3b p = tvm::corPaleta(i);
    EXPECT_FALSE(p[0] == p[1] && p[1] == p[2]) << i;
    cores.insert({p[0], p[1], p[2]});
  }
  EXPECT_GE(cores.size(), 18u);
}

// ---- keyMyShow ---------------------------------------------------------------

TEST(KeyMyShow, ModosTamanhoECores) {
  const cv::Mat_<uchar> img = teste::uniforme(80, 100, 100);
  const std::vector<cv::KeyPoint> kps = {kp(25, 40, 30, 0), kp(75, 40, 30, 90)};
  struct Caso {
    char code;
    bool multicor;
    bool rico;
  };
  for (const Caso& c :
       {Caso{'r', false, true}, Caso{'R', true, true}, Caso{'n', false, false}, Caso{'N', true, false}}) {
    const cv::Mat_<cv::Vec3b> out = tvm::keyMyShow(img, kps, c.code, 1.0);
    ASSERT_EQ(out.size(), img.size()) << c.code;
    std::set<std::vector<int>> cores;
    for (const cv::Vec3b& p : out)
      if (p != cv::Vec3b(100, 100, 100)) cores.insert({p[0], p[1], p[2]});
    if (c.multicor)
      EXPECT_EQ(cores.size(), 2u) << c.code;
    else
      EXPECT_EQ(cores, (std::set<std::vector<int>>{{0, 0, 255}})) << c.code;
    // Rich: a ring of radius 15; plain: a ring of radius 3.
    EXPECT_EQ(out(40, 25 - 15) != cv::Vec3b(100, 100, 100), c.rico) << c.code;
    EXPECT_EQ(out(40, 25 - 3) != cv::Vec3b(100, 100, 100), !c.rico) << c.code;
  }
  EXPECT_EQ(teste::mensagemDe([&] { tvm::keyMyShow(img, kps, 'x', 1.0); }), "Erro: Modo invalido");
  EXPECT_EQ(teste::mensagemDe([&] { tvm::keyMyShow(img, kps, 'R', -1.0); }), "Erro: fator de escala invalido");
}

TEST(KeyMyShow, EscalaMultiplicaORaio) {
  const cv::Mat_<uchar> img = teste::uniforme(100, 100, 50);
  const cv::Mat_<cv::Vec3b> out = tvm::keyMyShow(img, {kp(50, 50, 10)}, 'r', 4.0);
  EXPECT_EQ(out(50, 70), kVermelho);  // radius 5 * 4
  EXPECT_EQ(out(50, 55), cv::Vec3b(50, 50, 50));
}

// ---- matMyShow ---------------------------------------------------------------

TEST(MatMyShow, LadoALadoComLinhas) {
  const cv::Mat_<uchar> a = teste::xadrez(60, 50, 10), b = teste::uniforme(40, 30, 80);
  const cv::Mat_<cv::Vec3b> vazio = tvm::matMyShow(a, b, {}, {}, {}, 'R', 4.0);
  ASSERT_EQ(vazio.size(), cv::Size(80, 60));
  EXPECT_TRUE(iguais(vazio(cv::Rect(0, 0, 50, 60)), emCor(a)));
  EXPECT_TRUE(iguais(vazio(cv::Rect(50, 0, 30, 40)), emCor(b)));
  EXPECT_TRUE(iguais(vazio(cv::Rect(50, 40, 30, 20)), cv::Mat_<cv::Vec3b>(20, 30, kBranco)));

  const std::vector<cv::KeyPoint> ka = {kp(10, 20, 2)}, kb = {kp(20, 20, 2)};
  const std::vector<cv::DMatch> m = {cv::DMatch(0, 0, 1.0f)};
  const cv::Mat_<cv::Vec3b> r = tvm::matMyShow(a, b, m, ka, kb, 'r', 1.0);
  // The line runs along row 20 from column 10 to column 50 + 20.
  for (int col = 10; col <= 70; col += 6) EXPECT_EQ(r(20, col), kVermelho) << col;
  EXPECT_EQ(coloridos(r(cv::Rect(0, 25, 80, 35))), 0);

  EXPECT_EQ(teste::mensagemDe([&] { tvm::matMyShow(a, b, {cv::DMatch(0, 1, 1.0f)}, ka, kb, 'R', 4.0); }),
            "Erro: matMyShow: indice de keypoint fora do intervalo");
}

// ---- KeyShow and MatShow (OpenCV drawing) ------------------------------------

TEST(KeyShow, Modos) {
  const cv::Mat_<uchar> img = teste::uniforme(100, 100, 128);
  std::vector<cv::KeyPoint> kps;
  for (int i = 0; i < 6; ++i) kps.push_back(kp(15.0f + 14 * i, 50, 30, 30.0f * i));
  struct Caso {
    char modo;
    bool rico, vermelho;
  };
  for (const Caso& c :
       {Caso{'r', true, true}, Caso{'R', true, false}, Caso{'n', false, true}, Caso{'N', false, false}}) {
    const cv::Mat_<cv::Vec3b> out = display::desenhaKeyShow(img, kps, c.modo);
    ASSERT_EQ(out.size(), img.size()) << c.modo;
    int naoVermelhos = 0;
    for (const cv::Vec3b& p : out) naoVermelhos += p[1] > p[2] + 40 || p[0] > p[2] + 40;
    EXPECT_EQ(naoVermelhos == 0, c.vermelho) << c.modo;
    // Only the rich drawing reaches 15 pixels above a keypoint.
    EXPECT_EQ(coloridos(out(cv::Rect(0, 30, 100, 8))) > 0, c.rico) << c.modo;
  }
}

TEST(MatShow, TamanhoEPontosBrancosSemCasamento) {
  const cv::Mat_<uchar> a = teste::uniforme(60, 50, 100), b = teste::uniforme(40, 30, 100);
  const std::vector<cv::KeyPoint> ka = {kp(25, 30, 4)}, kb = {kp(15, 20, 4)};
  const cv::Mat_<cv::Vec3b> out = display::desenhaMatShow(a, ka, b, kb, {});
  ASSERT_EQ(out.size(), cv::Size(80, 60));
  EXPECT_EQ(coloridos(out), 0);
  // Antialiased white circles: brighter than the images around both keypoints.
  for (const cv::Rect r : {cv::Rect(20, 25, 11, 11), cv::Rect(60, 15, 11, 11)}) {
    double maximo = 0;
    cv::minMaxLoc(out(r).reshape(1), nullptr, &maximo);
    EXPECT_GT(maximo, 200) << r;
  }
  EXPECT_EQ(out(5, 5), cv::Vec3b(100, 100, 100));
  const cv::Mat_<cv::Vec3b> comLinha = display::desenhaMatShow(a, ka, b, kb, {cv::DMatch(0, 0, 1.0f)});
  EXPECT_GT(coloridos(comLinha(cv::Rect(30, 20, 40, 15))), 10);
}

// ---- MatVis --------------------------------------------------------------------

TEST(MatVis, Modo) {
  using display::ModoVis;
  const std::pair<const char*, ModoVis> validos[] = {{"a", ModoVis::acertos}, {"A", ModoVis::acertos},
                                                     {"e", ModoVis::erros},   {"Erros", ModoVis::erros},
                                                     {"t", ModoVis::todos},   {"T", ModoVis::todos}};
  for (const auto& [palavra, modo] : validos) EXPECT_EQ(display::modoVis(palavra), modo) << palavra;
  for (const char* invalido : {"x", "", "1"})
    EXPECT_EQ(teste::mensagemDe([&] { display::modoVis(invalido); }), "Erro: Modo invalido") << invalido;
}

TEST(MatVis, SelecaoPelaDistancia15) {
  formats::Casamentos c;
  // Identity transform: the distance is that between k1 and k2.
  for (float d : {0.0f, 15.0f, 15.5f, 3.0f, 100.0f}) {
    c.keypoints1.push_back(kp(50, 50, 10));
    c.keypoints2.push_back(kp(50 + d, 50, 10));
    c.matches.emplace_back(static_cast<int>(c.matches.size()), static_cast<int>(c.matches.size()), d);
  }
  const cv::Mat Hinv = cv::Mat::eye(3, 3, CV_64F);
  struct Caso {
    display::ModoVis modo;
    std::vector<size_t> indices;
  };
  for (const Caso& k : {Caso{display::ModoVis::todos, {0, 1, 2, 3, 4}}, Caso{display::ModoVis::acertos, {0, 1, 3}},
                        Caso{display::ModoVis::erros, {2, 4}}}) {
    std::vector<size_t> indices;
    for (const display::CasamentoVis& v : display::casamentosVisiveis(c, Hinv, k.modo)) {
      indices.push_back(v.indice);
      EXPECT_EQ(v.correto, v.indice == 0 || v.indice == 1 || v.indice == 3) << v.indice;
    }
    EXPECT_EQ(indices, k.indices);
  }
}

TEST(MatVis, TelaEQuadro) {
  const cv::Mat_<uchar> a = teste::uniforme(50, 60, 90), b = teste::uniforme(40, 80, 90);
  const cv::Mat_<cv::Vec3b> tela = display::telaVis(a, b);
  ASSERT_EQ(tela.size(), cv::Size(80, 90));
  EXPECT_EQ(tela(10, 70), kBranco);  // beside the narrower top image
  EXPECT_EQ(tela(60, 70), cv::Vec3b(90, 90, 90));
  const cv::Mat_<cv::Vec3b> antes = tela.clone();

  struct Caso {
    bool correto;
    cv::Vec3b cor;
  };
  for (const Caso& c : {Caso{true, kVerde}, Caso{false, kVermelho}}) {
    // Keypoint angle 0 points the hand at twelve o'clock.
    const cv::Mat_<cv::Vec3b> q = display::quadroVis(tela, 50, kp(30, 25, 20, 0), kp(40, 20, 20, 0), c.correto);
    EXPECT_TRUE(iguais(tela, antes));
    std::set<std::vector<int>> cores;
    for (const cv::Vec3b& p : q)
      if (p != kBranco && p != cv::Vec3b(90, 90, 90)) cores.insert({p[0], p[1], p[2]});
    EXPECT_EQ(cores, (std::set<std::vector<int>>{{c.cor[0], c.cor[1], c.cor[2]}}));
    // k1 at (row 25, col 30); k2 at (row 50 + 20, col 40); radius 10, hands upwards.
    EXPECT_EQ(q(25, 20), c.cor);
    EXPECT_EQ(q(18, 30), c.cor);
    EXPECT_EQ(q(32, 30), cv::Vec3b(90, 90, 90));
    EXPECT_EQ(q(70, 50), c.cor);
    EXPECT_EQ(q(63, 40), c.cor);
    EXPECT_EQ(q(20, 50), cv::Vec3b(90, 90, 90));  // where an unshifted k2 would have its ring
  }
}

}  // namespace
