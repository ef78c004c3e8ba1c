// Drawings of the display tools, in-process: our own rasterisation, the
// OpenCV-drawn keypoint and match images, and MatVis's frames.
#include "display/desenhos.hpp"
#include "support/desenho.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cctype>
#include <cmath>
#include <set>

namespace {

using teste::pixelsDaCor;
using Cores = std::set<std::vector<int>>;
const cv::Vec3b kVermelho(0, 0, 255), kVerde(0, 255, 0), kBranco(255, 255, 255), kPreto(0, 0, 0);

// Pixels whose three channels differ: marks on a grey image.
int coloridos(const cv::Mat_<cv::Vec3b>& img) {
  cv::Mat c[3];
  cv::split(img, c);
  return cv::countNonZero((c[0] != c[1]) | (c[1] != c[2]));
}

// The colours in `img` other than `fundo1` and `fundo2`.
Cores coresAlem(const cv::Mat_<cv::Vec3b>& img, cv::Vec3b fundo1, cv::Vec3b fundo2 = kBranco) {
  Cores cores;
  for (const cv::Vec3b& p : img)
    if (p != fundo1 && p != fundo2) cores.insert({p[0], p[1], p[2]});
  return cores;
}

cv::KeyPoint kp(float x, float y, float size, float angle = -1) { return cv::KeyPoint(x, y, size, angle); }

// Radius 0 and thick rings wider than the radius are the edge cases.
TEST(Circulo, AnelNaDistanciaCertaConexoESimetricoERecortado) {
  for (const auto& [raio, largura] : {std::pair(0, 1), std::pair(1, 1), std::pair(7, 1), std::pair(57, 1),
                                     std::pair(25, 3), std::pair(2, 6)}) {
    SCOPED_TRACE(testing::Message() << raio << " " << largura);
    const int lado = 2 * (raio + largura) + 11, centro = lado / 2;
    cv::Mat_<cv::Vec3b> img(lado, lado, kPreto);
    tvm::circulo(img, centro, centro, raio, kBranco, largura);
    const std::vector<cv::Point> pts = pixelsDaCor(img, kBranco);
    ASSERT_FALSE(pts.empty());
    const double dentro = std::max(0.0, raio - largura / 2.0), fora = raio + largura / 2.0;
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
    EXPECT_TRUE(teste::mesmosBits(img, espelho));
    cv::Mat_<uchar> canal;
    cv::Mat rotulos;
    cv::extractChannel(img, canal, 0);
    EXPECT_EQ(cv::connectedComponents(canal, rotulos, 8), 2);  // background + one ring
  }
  // row, col, radius, white pixels (-1: some): in a corner, far away, huge
  // around the image, huge and passing through it, negative.
  const std::tuple<int, int, int, int> casos[] = {{0, 0, 10, -1}, {-5000, -5000, 10, 0}, {20, 20, 1 << 30, 0},
                                                  {-1000000, 20, 1000010, -1}, {20, 20, -3, 0}};
  for (const auto& [row, col, raio, esperados] : casos) {
    cv::Mat_<cv::Vec3b> img(40, 40, kPreto);
    tvm::circulo(img, row, col, raio, kBranco, 1);
    const int n = static_cast<int>(pixelsDaCor(img, kBranco).size());
    EXPECT_TRUE(esperados < 0 ? n > 0 : n == esperados) << row << " " << col << " " << raio << ": " << n;
  }
}

TEST(Relogio, PonteiroSegueOAnguloEPaletaSemCinza) {
  // Angle, then the direction of the hand on screen.
  const std::tuple<double, int, int> casos[] = {{0, 0, 1},   {90, 1, 0},   {180, 0, -1},
                                                {270, -1, 0}, {-90, -1, 0}, {360, 0, 1}};
  const int r = 30, c = 30, raio = 20;
  for (const auto& [angulo, dRow, dCol] : casos) {
    cv::Mat_<cv::Vec3b> img(61, 61, kPreto);
    tvm::relogioCircular(img, r, c, raio, angulo, kBranco, 1);
    for (int t = 0; t <= raio; t += 5) EXPECT_EQ(img(r + t * dRow, c + t * dCol), kBranco) << angulo << " " << t;
    EXPECT_EQ(img(r - 10 * dRow, c - 10 * dCol), kPreto) << angulo;
  }
  cv::Mat_<cv::Vec3b> semPonteiro(61, 61, kPreto), soCirculo(61, 61, kPreto);
  tvm::relogioCircular(semPonteiro, r, c, raio, NAN, kBranco, 1);
  tvm::circulo(soCirculo, r, c, raio, kBranco, 1);
  EXPECT_TRUE(teste::mesmosBits(semPonteiro, soCirculo));

  // The palette: never grey (invisible on a grey image), and varied.
  cv::Mat_<cv::Vec3b> paleta(1, 20);
  for (int i = 0; i < 20; ++i) paleta(i) = display::corPaleta(i);
  EXPECT_TRUE(coloridos(paleta) == 20 && coresAlem(paleta, kPreto).size() >= 18);
}

TEST(KeyMyShow, ModosTamanhoECores) {
  const cv::Vec3b fundo(100, 100, 100);
  const cv::Mat_<uchar> img = teste::uniforme(80, 100, 100);
  const std::vector<cv::KeyPoint> kps = {kp(25, 40, 30, 0), kp(75, 40, 30, 90)};
  for (const char code : {'r', 'R', 'n', 'N'}) {
    const bool multicor = std::isupper(code), rico = std::tolower(code) == 'r';
    const cv::Mat_<cv::Vec3b> out = display::keyMyShow(img, kps, code, 1.0);
    ASSERT_EQ(out.size(), img.size()) << code;
    const Cores cores = coresAlem(out, fundo, fundo);
    EXPECT_TRUE(multicor ? cores.size() == 2 : cores == Cores({{0, 0, 255}})) << code;
    // Rich: a ring of radius 15; plain: a ring of radius 3.
    EXPECT_EQ(out(40, 25 - 15) != fundo, rico) << code;
    EXPECT_EQ(out(40, 25 - 3) != fundo, !rico) << code;
  }
  const cv::Mat_<cv::Vec3b> x4 = display::keyMyShow(img, {kp(50, 40, 10)}, 'r', 4.0);
  EXPECT_EQ(x4(40, 70), kVermelho);  // radius 5 * 4
  EXPECT_EQ(x4(40, 55), fundo);
}

TEST(MatMyShow, LadoALadoComLinhas) {
  const cv::Mat_<uchar> a = teste::xadrez(60, 50, 10), b = teste::uniforme(40, 30, 80);
  const cv::Mat_<cv::Vec3b> vazio = display::matMyShow(a, b, {}, {}, {}, 'R', 4.0);
  ASSERT_EQ(vazio.size(), cv::Size(80, 60));
  // Side by side, tops aligned, white below the shorter image.
  cv::Mat_<cv::Vec3b> esperada(60, 80, kBranco), aCor = esperada(cv::Rect(0, 0, 50, 60)),
                                                 bCor = esperada(cv::Rect(50, 0, 30, 40));
  tvm::converte(a, aCor);
  tvm::converte(b, bCor);
  EXPECT_TRUE(teste::mesmosBits(vazio, esperada));

  const std::vector<cv::KeyPoint> ka = {kp(10, 20, 2)}, kb = {kp(20, 20, 2)};
  const cv::Mat_<cv::Vec3b> r = display::matMyShow(a, b, {cv::DMatch(0, 0, 1.0f)}, ka, kb, 'r', 1.0);
  // The line runs along row 20 from column 10 to column 50 + 20.
  for (int col = 10; col <= 70; col += 6) EXPECT_EQ(r(20, col), kVermelho) << col;
  EXPECT_EQ(coloridos(r(cv::Rect(0, 25, 80, 35))), 0);
  EXPECT_EQ(teste::mensagemDe([&] { display::matMyShow(a, b, {cv::DMatch(0, 1, 1.0f)}, ka, kb, 'R', 4.0); }),
            "Erro: matMyShow: indice de keypoint fora do intervalo");
}

TEST(KeyShow, Modos) {
  const cv::Mat_<uchar> img = teste::uniforme(100, 100, 128);
  std::vector<cv::KeyPoint> kps;
  for (int i = 0; i < 6; ++i) kps.push_back(kp(15.0f + 14 * i, 50, 30, 30.0f * i));
  for (const char modo : {'r', 'R', 'n', 'N'}) {
    const cv::Mat_<cv::Vec3b> out = display::desenhaKeyShow(img, kps, modo);
    int naoVermelhos = 0;
    for (const cv::Vec3b& p : out) naoVermelhos += p[1] > p[2] + 40 || p[0] > p[2] + 40;
    EXPECT_EQ(naoVermelhos == 0, std::islower(modo) != 0) << modo;
    // Only the rich drawing reaches 15 pixels above a keypoint.
    EXPECT_EQ(coloridos(out(cv::Rect(0, 30, 100, 8))) > 0, std::tolower(modo) == 'r') << modo;
  }
}

TEST(MatShow, PontosSemCasamentoBrancosELinhaColorida) {
  const cv::Mat_<uchar> a = teste::uniforme(60, 50, 100), b = teste::uniforme(40, 30, 100);
  const std::vector<cv::KeyPoint> ka = {kp(25, 30, 4)}, kb = {kp(15, 20, 4)};
  const cv::Mat_<cv::Vec3b> sem = display::desenhaMatShow(a, ka, b, kb, {});
  const cv::Mat_<cv::Vec3b> com = display::desenhaMatShow(a, ka, b, kb, {{0, 0, 1}});
  EXPECT_TRUE(sem.size() == cv::Size(80, 60) && coloridos(sem) == 0 &&
              cv::norm(sem(cv::Rect(20, 25, 11, 11)), cv::NORM_INF) > 200 &&
              cv::norm(sem(cv::Rect(60, 15, 11, 11)), cv::NORM_INF) > 200);
  EXPECT_GT(coloridos(com(cv::Rect(30, 20, 40, 15))), 10);
}

TEST(MatVis, ModoESelecaoPelaDistancia15) {
  using display::ModoVis;
  for (const auto& [palavra, modo] : {std::pair("a", ModoVis::acertos), std::pair("A", ModoVis::acertos),
                                      std::pair("Erros", ModoVis::erros), std::pair("T", ModoVis::todos)})
    EXPECT_EQ(display::modoVis(palavra), modo) << palavra;
  EXPECT_EQ(teste::mensagemDe([] { display::modoVis(""); }), "Erro: Modo invalido");

  // Image 2 is image 1 moved 100 pixels right: k2 mapped back 3 pixels off
  // k1 is right, 100 wrong (the tolerance itself is the formats test's).
  formats::Casamentos c;
  c.keypoints1 = {kp(50, 50, 10), kp(50, 50, 10), kp(50, 50, 10)};
  c.keypoints2 = {kp(153, 50, 10), kp(250, 50, 10), kp(150, 50, 10)};
  const cv::Mat Hinv = (cv::Mat_<double>(3, 3) << 1, 0, -100, 0, 1, 0, 0, 0, 1);
  c.matches = {cv::DMatch(0, 0, 1), cv::DMatch(1, 1, 2), cv::DMatch(2, 2, 3)};
  const std::pair<ModoVis, std::vector<std::pair<size_t, bool>>> casos[] = {
      {ModoVis::todos, {{0, true}, {1, false}, {2, true}}}, {ModoVis::acertos, {{0, true}, {2, true}}},
      {ModoVis::erros, {{1, false}}}};
  for (const auto& [modo, esperados] : casos) {
    std::vector<std::pair<size_t, bool>> vistos;
    for (const display::CasamentoVis& v : display::casamentosVisiveis(formats::julga(Hinv, c, display::kToleranciaVis), modo))
      vistos.emplace_back(v.indice, v.correto);
    EXPECT_EQ(vistos, esperados);
  }
}

TEST(MatVis, TelaEQuadro) {
  const cv::Vec3b cinza(90, 90, 90);
  const cv::Mat_<uchar> a = teste::uniforme(50, 60, 90), b = teste::uniforme(40, 80, 90);
  const cv::Mat_<cv::Vec3b> tela = display::telaVis(a, b);
  ASSERT_EQ(tela.size(), cv::Size(80, 90));
  EXPECT_EQ(tela(10, 70), kBranco);  // beside the narrower top image
  EXPECT_EQ(tela(60, 70), cinza);
  const cv::Mat_<cv::Vec3b> antes = tela.clone();
  for (const auto& [correto, cor] : {std::pair(true, kVerde), std::pair(false, kVermelho)}) {
    // Keypoint angle 0 points the hand at twelve o'clock.
    const cv::Mat_<cv::Vec3b> q = display::quadroVis(tela, 50, kp(30, 25, 20, 0), kp(40, 20, 20, 0), correto);
    EXPECT_TRUE(teste::mesmosBits(tela, antes));
    EXPECT_EQ(coresAlem(q, cinza), (Cores{{cor[0], cor[1], cor[2]}}));
    // k1 at (row 25, col 30); k2 at (row 50 + 20, col 40); radius 10, hands
    // upwards; nothing where an unshifted k2 would have its ring.
    for (const cv::Point p : {cv::Point(20, 25), cv::Point(30, 18), cv::Point(50, 70), cv::Point(40, 63)})
      EXPECT_EQ(q(p), cor) << p;
    for (const cv::Point p : {cv::Point(30, 32), cv::Point(50, 20)}) EXPECT_EQ(q(p), cinza) << p;
  }
}

}  // namespace
