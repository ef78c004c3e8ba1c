// The own descriptors: first one table for what every one must do whatever
// its computation, then what is each one's own. The rows against the plain
// whole-patch computation are in gauss_inteiro_test.
#include "descriptors/forapro.hpp"
#include "descriptors/frame.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using Calcula = std::function<void(const cv::Mat_<uchar>&, const std::vector<cv::KeyPoint>&, cv::Mat&)>;

template <class D, class... A>
Calcula de(A... a) {
  const auto d = std::make_shared<const D>(a...);
  return [d](const cv::Mat_<uchar>& i, const std::vector<cv::KeyPoint>& k, cv::Mat& o) { d->compute(i, k, o); };
}

struct Caso {
  const char* nome;
  Calcula compute;
  int comprimento;
  bool usaAngulo;   // SIMPLE turns its pattern with the keypoint; the others never read the angle
  int colunasFase;  // leading columns that are phases in [0, 2 pi)
  double giro;      // bound on (same keypoint turned) / (another keypoint) distance; 0: not turn-invariant
  bool planoFatal;  // a flat patch stops the run instead of giving a row
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nome; }

class Descritor : public testing::TestWithParam<Caso> {};
class DescritorQueGira : public testing::TestWithParam<Caso> {};

// A texture with sharp-edged blobs on it: on a smooth texture alone RIFF's
// quantised derivatives take one level everywhere, and every row is the same.
cv::Mat_<uchar> manchas(int lado, unsigned seed) {
  cv::Mat_<uchar> img = teste::textura(lado, lado, seed);
  cv::addWeighted(img, 0.5, img > 128, 0.5, 0.0, img);
  return img;
}

std::vector<cv::KeyPoint> grade(float anguloExtra = 0) {
  std::vector<cv::KeyPoint> kps;
  for (int y = 20; y < 190; y += 16)
    for (int x = 20; x < 190; x += 16) kps.emplace_back(x, y, 12.0f + (x + y) % 40, (x * 7 + y) % 360 + anguloExtra);
  return kps;
}

TEST_P(Descritor, LinhasCertasComQualquerNumeroDeThreadsEOAnguloSoLidoPorQuemOUsa) {
  const cv::Mat_<uchar> img = manchas(200, 8);
  const int antes = cv::getNumThreads();
  cv::Mat um, varios, girados;
  cv::setNumThreads(1);
  GetParam().compute(img, grade(), um);
  cv::setNumThreads(antes);
  GetParam().compute(img, grade(), varios);
  GetParam().compute(img, grade(97), girados);
  ASSERT_EQ(um.size(), cv::Size(GetParam().comprimento, static_cast<int>(grade().size())));
  ASSERT_EQ(um.type(), CV_32F);
  EXPECT_TRUE(cv::checkRange(um));
  EXPECT_EQ(cv::norm(um, varios, cv::NORM_INF), 0.0);
  for (int r = 0; r < um.rows; ++r) {
    const double d = cv::norm(um.row(r), girados.row(r));
    EXPECT_TRUE(GetParam().usaAngulo ? d > 0.3 * cv::norm(um.row(r)) : d == 0.0) << "linha " << r << ": " << d;
  }
}

double distancia(const cv::Mat& a, const cv::Mat& b, int colunasFase) {
  cv::Mat_<float> d = cv::abs(a - b);
  for (int k = 0; k < colunasFase; ++k) d(0, k) = std::min(d(0, k), static_cast<float>(2 * CV_PI) - d(0, k));
  return cv::norm(d);
}

// The image turned a quarter counter-clockwise, (x, y) -> (y, 200 - x), and
// the keypoints with it (their angles by 90 degrees).
TEST_P(DescritorQueGira, QuartoDeVoltaQuaseNaoMudaALinha) {
  const cv::Mat_<uchar> img = manchas(201, 21);
  cv::Mat_<uchar> girada;
  cv::rotate(img, girada, cv::ROTATE_90_COUNTERCLOCKWISE);
  std::vector<cv::KeyPoint> k1, k2;
  for (const cv::Point& p : {cv::Point(100, 100), cv::Point(70, 120), cv::Point(130, 80), cv::Point(90, 60)}) {
    k1.emplace_back(p.x, p.y, 36.0f, 30.0f);
    k2.emplace_back(p.y, 200 - p.x, 36.0f, 120.0f);
  }
  cv::Mat d1, d2;
  GetParam().compute(img, k1, d1);
  GetParam().compute(girada, k2, d2);
  for (int i = 0; i < d1.rows; ++i) {
    const double mesmo = distancia(d1.row(i), d2.row(i), GetParam().colunasFase);
    const double outro = distancia(d1.row(i), d1.row((i + 1) % d1.rows), GetParam().colunasFase);
    EXPECT_LT(mesmo, GetParam().giro * outro) << "keypoint " << i;
  }
}

// A keypoint that cannot be placed stops the run naming it; tiny, huge and
// far-away ones give one finite row each (or, where a flat patch is fatal,
// that stop), never a crash.
TEST_P(Descritor, KeypointsRuinsOuExtremos) {
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  cv::Mat d;
  for (const cv::KeyPoint& ruim : {cv::KeyPoint(80, 80, 0.0f), cv::KeyPoint(80, 80, inf), cv::KeyPoint(nan, 80, 10)}) {
    std::vector<cv::KeyPoint> kps = grade();
    kps.insert(kps.begin() + 3, ruim);
    EXPECT_EQ(teste::mensagemDe([&] { GetParam().compute(manchas(200, 17), kps, d); }),
              "Erro: keypoint 3 com tamanho ou posicao invalida")
        << "size=" << ruim.size << " x=" << ruim.pt.x;
  }
  const std::vector<cv::KeyPoint> kps = {cv::KeyPoint(32, 32, 1e-20f), cv::KeyPoint(32, 32, 1e30f),
                                         cv::KeyPoint(-1e6f, 5e5f, 10), cv::KeyPoint(63.9f, 0, 0.5f),
                                         cv::KeyPoint(1e9f, -1e9f, 1e-3f)};
  const std::string m = teste::mensagemDe([&] { GetParam().compute(teste::textura(64, 64, 13), kps, d); });
  EXPECT_EQ(m, GetParam().planoFatal ? "Erro: Desvio<epsilon" : "(sem erro)");
  if (!GetParam().planoFatal) {
    ASSERT_EQ(d.rows, 5);
    EXPECT_TRUE(cv::checkRange(d));
  }
}

std::vector<Caso> casos(bool soOsQueGiram) {
  const std::vector<Caso> todos = {
      {"simple_copia", de<SIMPLE>('c', 6, 11), 127, true, 0, 0.1, true},
      {"simple_inplace", de<SIMPLE>('i', 4, 11), 61, true, 0, 0.1, true},
      {"riff", de<RIFF>(4, 10), 100, false, 0, 0, false},
      {"rihog", de<RIHOG>(5, 40, 20, 37, true), 100, false, 0, 0.1, false},
      {"ruhog", de<RUHOG>(4, 30, 8, 9, true), 32, false, 0, 0.1, false},
      {"forapro", de<Forapro>(4, 4, 40, true, true, true), 15, false, 3, 0.01, false}};
  std::vector<Caso> v;
  for (const Caso& c : todos)
    if (!soOsQueGiram || c.giro > 0) v.push_back(c);
  return v;
}

std::string nomeDo(const testing::TestParamInfo<Caso>& i) { return i.param.nome; }

INSTANTIATE_TEST_SUITE_P(Proprios, Descritor, testing::ValuesIn(casos(false)), nomeDo);
// RIFF's direction-0 derivative is not antisymmetric, so RIFF is not turn-invariant.
INSTANTIATE_TEST_SUITE_P(Proprios, DescritorQueGira, testing::ValuesIn(casos(true)), nomeDo);

TEST(Opcoes, ForaDosLimitesParamComMensagemClara) {
  const std::string riff = "Erro: naneis e larguraAnel devem ser positivos com naneis*larguraAnel ate 1000";
  const std::string semPixels = "Erro: anel sem pixels: 0 (naneis grande demais para o raio)";
  const std::string ok = "(sem erro)";
  const std::pair<std::function<void()>, std::string> casos[] = {
      {[] { SIMPLE('x', 6, 11); }, "Erro: Modo invalido"}, {[] { SIMPLE('C', 6, 11); }, "Erro: Modo invalido"},
      {[] { SIMPLE('c', 6, 10); }, "Erro: dGauss deve ser impar"},
      {[] { SIMPLE('c', 6, -3); }, "Erro: dGauss deve ser impar"},
      {[] { SIMPLE('c', 6, 1003); }, "Erro: dGauss maior que 1001"},
      {[] { SIMPLE('c', -1, 11); }, "Erro: camadas fora da faixa 0 a 89: -1"},
      {[] { SIMPLE('c', 90, 11); }, "Erro: camadas fora da faixa 0 a 89: 90"},
      {[] { SIMPLE('i', 89, 1001); }, ok}, {[] { SIMPLE('c', 0, 1); }, ok},
      {[] { RIFF(0, 10); }, riff}, {[] { RIFF(4, 0); }, riff}, {[] { RIFF(-2, 10); }, riff},
      {[] { RIFF(100, 11); }, riff}, {[] { RIFF(70000, 70000); }, riff}, {[] { RIFF(1000, 1); }, ok},
      {[] { float l[100]; RIFF().descreve(cv::Mat_<uchar>(88, 89, uchar(0)), l); }, "Erro riff: tamanho imagem"},
      {[] { RIHOG(0, 40, 20, 37, true); }, "Erro: naneis deve ser positivo: 0"},
      {[] { RIHOG(5, 0, 20, 37, true); }, "Erro: raio deve ser positivo: 0"},
      {[] { RIHOG(5, 40, 0, 37, true); }, "Erro: nbins deve ser positivo: 0"},
      {[] { RIHOG(5, 40, 20, 36, true); }, "Erro: ngauss deve ser impar e positivo: 36"},
      {[] { RIHOG(41, 40, 20, 37, true); }, semPixels}, {[] { RUHOG(2000, 40, 2, 37, true); }, semPixels},
      {[] { RIHOG(5, 100000, 20, 37, true); }, "Erro: raio e ngauss grandes demais: 100000 37 (lado do patch > 2049)"},
      {[] { RUHOG(50, 40, 100000, 3, true); }, "Erro: naneis x nbins grande demais: 50 x 100000"},
      {[] { Forapro(0, 4, 40, true, true, true); }, "Erro: nrad deve ser positivo: 0"},
      {[] { Forapro(4, -1, 40, true, true, true); }, "Erro: ncir nao pode ser negativo: -1"},
      {[] { Forapro(4, 4, -3, true, true, true); }, "Erro: raio nao pode ser negativo: -3"},
      {[] { Forapro(4, 4, 5000, true, true, true); }, "Erro: kernels grandes demais: nrad=4 ncir=4 raio=5000"},
  };
  for (size_t i = 0; i < std::size(casos); ++i)
    EXPECT_EQ(teste::mensagemDe(casos[i].first), casos[i].second) << "caso " << i;
}

TEST(Simple, TamanhoEspacamentoERaioDoPadrao) {
  struct Caso {
    int c, n, espacamento, raioExterno;
  };
  const Caso casos[] = {{0, 1, 0, 0},    {1, 7, 23, 23}, {2, 19, 15, 30}, {3, 37, 11, 33},
                        {4, 61, 9, 36},  {5, 91, 8, 40}, {6, 127, 6, 36}};
  for (const Caso& t : casos)
    for (char modo : {'c', 'i'}) {
      const SIMPLE s(modo, t.c, 11);
      EXPECT_EQ(s.descriptorSize(), t.n);
      ASSERT_EQ(static_cast<int>(s.padrao().size()), t.n);
      EXPECT_EQ(t.c > 0 ? s.espacamento() : 0, t.espacamento) << "c=" << t.c;
      double raioMax = 0;
      for (const cv::Point& p : s.padrao()) raioMax = std::max(raioMax, std::hypot(p.x, p.y));
      EXPECT_NEAR(raioMax, t.raioExterno, 0.75) << "c=" << t.c;
    }
}

TEST(Simple, AnelGiradoPorFracaoDoPasso) {
  // Ring k turns by (k-1)/c of its step 2*pi/(6k): a real fraction, not an
  // integer division that would leave every ring starting at angle 0.
  const std::vector<cv::Point> p = SIMPLE('c', 2, 11).padrao();
  EXPECT_EQ(p[0], cv::Point(0, 0));
  EXPECT_EQ(p[1], cv::Point(15, 0));  // ring 1, j = 0, no turn
  EXPECT_EQ(p[7], cv::Point(29, 8));  // ring 2, j = 0: half of pi/6
}

TEST(Simple, RegiaoPlanaOuUmSoValorParaORun) {
  // A flat neighbourhood, or a one-value row (c = 0), has no deviation to
  // normalise by: fatal, not a skipped keypoint.
  const cv::Mat_<uchar> plana = teste::uniforme(200, 200, 90), textura = manchas(200, 2);
  for (const SIMPLE& s : {SIMPLE('c', 6, 11), SIMPLE('i', 6, 11), SIMPLE('c', 0, 11)}) {
    cv::Mat d;
    EXPECT_EQ(teste::mensagemDe([&] { s.compute(s.descriptorSize() > 1 ? plana : textura, grade(), d); }),
              "Erro: Desvio<epsilon")
        << s.modo() << s.descriptorSize();
  }
}

TEST(Simple, LinhasNormalizadasECopiaEInplaceSaoDescritoresDiferentes) {
  const cv::Mat_<uchar> img = teste::textura(200, 200, 7);
  cv::Mat copia, inplace, semBlur;
  SIMPLE('c', 6, 11).compute(img, grade(), copia);
  SIMPLE('i', 6, 11).compute(img, grade(), inplace);
  // Inplace reads the blurred image: a 1-pixel kernel (no blur) must differ.
  SIMPLE('i', 6, 1).compute(img, grade(), semBlur);
  EXPECT_GT(cv::norm(copia, inplace) / std::sqrt(copia.total()), 0.1);
  EXPECT_GT(cv::norm(semBlur, inplace) / std::sqrt(copia.total()), 0.1);
  for (int r = 0; r < copia.rows; ++r)
    for (const cv::Mat& linha : {copia.row(r), inplace.row(r)}) {
      cv::Scalar media, desvio;
      cv::meanStdDev(linha, media, desvio);
      EXPECT_NEAR(media[0], 0.0, 1e-5) << "linha " << r;
      EXPECT_NEAR(desvio[0], 1.0, 1e-4) << "linha " << r;
    }
}

// Ring k holds the pixels at kW < d <= (k + 1)W, so its count is a
// difference of the Gauss circle numbers N(r), the lattice points with
// x^2 + y^2 <= r^2 (OEIS A000328: N(1) = 5, N(2) = 13, N(3) = 29, N(7) = 149,
// N(10) = 317, N(14) = 613, N(20) = 1257, N(21) = 1373, N(28) = 2453,
// N(30) = 2821, N(35) = 3853, N(40) = 5025), less the centre in ring 0.
TEST(Riff, LarguraLadoEPixelsDeCadaAnel) {
  const struct {
    int naneis, largura;
    std::vector<int> pixels;
  } casos[] = {{4, 10, {316, 940, 1564, 2204}},
               {2, 10, {316, 940}},
               {1, 1, {4}},
               {3, 1, {4, 8, 16}},
               {5, 7, {148, 464, 760, 1080, 1400}}};
  for (const auto& c : casos) {
    SCOPED_TRACE(std::to_string(c.naneis) + "x" + std::to_string(c.largura));
    const RIFF riff(c.naneis, c.largura);
    EXPECT_EQ(riff.descriptorSize(), 25 * c.naneis);
    EXPECT_EQ(riff.lado(), 2 * c.naneis * c.largura + 9);
    int naLut = 0;
    for (int l = 0; l < riff.lado(); ++l)
      for (int k = 0; k < riff.lado(); ++k) naLut += riff.lut(l, k)[2] != 65535;
    int soma = 0;
    for (int k = 0; k < c.naneis; ++k) {
      EXPECT_EQ(riff.pixelsNoAnel(k), c.pixels[k]) << "anel " << k;
      soma += c.pixels[k];
    }
    EXPECT_EQ(naLut, soma);
    // The centre is in no ring; a pixel exactly W away is in ring 0, one
    // pixel further in ring 1 (or in none when there is one ring).
    const int m = (riff.lado() - 1) / 2, w = c.largura;
    EXPECT_EQ(riff.lut(m, m)[2], 65535);
    EXPECT_EQ(riff.lut(m - w, m)[2], 0);
    EXPECT_EQ(riff.lut(m, m + w + 1)[2], c.naneis > 1 ? 1 : 65535);
  }
}

TEST(Riff, OctantesRadialETangencial) {
  const RIFF riff(4, 10);
  const int m = (riff.lado() - 1) / 2;
  // Offset from the centre (rows down, columns right), radial and tangential octants.
  const cv::Vec4i casos[] = {{0, 5, 0, 2}, {-5, 5, 1, 3}, {-5, 0, 2, 4}, {0, -5, 4, 6}, {5, 0, 6, 0}, {5, 5, 7, 1}};
  for (const cv::Vec4i& c : casos)
    EXPECT_EQ(riff.lut(m + c[0], m + c[1]), cv::Vec3w(c[2], c[3], 0)) << c;
}

TEST(Riff, NiveisDeQuantizacao) {
  // One ring of width 1: the four pixels beside the centre. On rows that
  // grow by `passo` upwards, the vertical difference is g = 2 * passo and
  // direction 0's kernel is far above 120 everywhere, so the four votes are
  // up (level(g), 0), down (level(-g), 4), right (4, level(g)) and left
  // (0, level(-g)), each 1/4. Pairs (passo, level(2 * passo)).
  const std::pair<int, int> casos[] = {{-61, 0}, {-60, 1}, {-21, 1}, {-20, 2}, {0, 2},
                                       {20, 2},  {21, 3},  {60, 3},  {61, 4}};
  const RIFF riff(1, 1);
  const int lado = riff.lado(), m = (lado - 1) / 2;
  for (const auto& [passo, nivel] : casos) {
    cv::Mat_<uchar> patch(lado, lado);
    for (int l = 0; l < lado; ++l) patch.row(l).setTo(cv::saturate_cast<uchar>(128 + passo * (m - l)));
    std::vector<float> linha(riff.descriptorSize()), esperado(25, 0.0f);
    riff.descreve(patch, linha.data());
    for (int i : {nivel * 5, (4 - nivel) * 5 + 4, 20 + nivel, 4 - nivel}) esperado[i] += 0.25f;
    for (int i = 0; i < 25; ++i) EXPECT_FLOAT_EQ(linha[i], esperado[i]) << "passo " << passo << " bin " << i;
  }
}

// Table entry at (x right, y up) from the patch centre.
cv::Vec2f entrada(const HogAneis& h, int x, int y) {
  const cv::Mat_<cv::Vec2f>& t = h.tabela();
  return t((t.rows - 1) / 2 - y, (t.cols - 1) / 2 + x);
}

struct OpcoesHog {
  int naneis, raio, nbins, ngauss;
  bool bcinv;
};

std::unique_ptr<HogAneis> cria(bool ruhog, const OpcoesHog& o) {
  if (ruhog) return std::make_unique<RUHOG>(o.naneis, o.raio, o.nbins, o.ngauss, o.bcinv);
  return std::make_unique<RIHOG>(o.naneis, o.raio, o.nbins, o.ngauss, o.bcinv);
}

TEST(HogTamanho, LinhaDeBinsVezesAneisEPatchComMargemDoFiltro) {
  struct Caso {
    bool ruhog;
    OpcoesHog o;
    int comprimento, ladoPatch;
  };
  const Caso casos[] = {{false, {5, 40, 20, 37, true}, 100, 117},
                        {false, {3, 40, 10, 5, true}, 30, 85},  // 40 / 3 * 3 truncates to 40: the radius stays 40
                        {true, {5, 40, 20, 37, true}, 100, 117},
                        {true, {7, 12, 3, 9, true}, 21, 33}};
  for (const Caso& c : casos) {
    const auto h = cria(c.ruhog, c.o);
    EXPECT_EQ(h->descriptorSize(), c.comprimento) << c.ruhog << " " << c.o.naneis;
    EXPECT_EQ(h->ladoPatch(), c.ladoPatch) << c.ruhog << " " << c.o.naneis;
  }
}

TEST(HogTabela, PixelCaiNoSeuAnel) {
  struct Caso {
    bool ruhog;
    int naneis, raio, x, y;
    float anel;  // -1: no ring
  };
  const Caso casos[] = {
      // RIHOG 5 rings of 40: width 8, ring k holds 8k < d <= 8(k + 1). The
      // centre, exactly 8, just past 8, exactly 40 (24, 32), outside.
      {false, 5, 40, 0, 0, -1}, {false, 5, 40, 8, 0, 0}, {false, 5, 40, 8, 1, 1}, {false, 5, 40, 24, 32, 4},
      {false, 5, 40, 40, 1, -1},
      // RUHOG 4 rings of 10: outer radii 5, 5 sqrt 2, 5 sqrt 3, 10 (each +
      // epsilon). Exactly 5, exactly 5 sqrt 2, just past it; one ring's edge.
      {true, 4, 10, 3, 4, 0}, {true, 4, 10, 5, 5, 1}, {true, 4, 10, 6, 5, 2}, {true, 1, 10, 0, 10, 0},
      // sqrt(1) * 10 / sqrt(2) rounds below sqrt(50): only the epsilon margin
      // keeps these pixels in the inner ring.
      {true, 2, 10, 5, 5, 0}, {true, 8, 16, 4, -4, 0}};
  for (const Caso& c : casos)
    EXPECT_EQ(entrada(*cria(c.ruhog, {c.naneis, c.raio, 8, 3, true}), c.x, c.y)[1], c.anel)
        << c.ruhog << " " << c.naneis << " (" << c.x << ", " << c.y << ")";
}

TEST(HogTabela, AngulosCrescemAntiHorarioComYParaCima) {
  const RIHOG h(5, 40, 20, 37, true);
  // (0, 5) is above the centre: a smaller row index.
  for (const cv::Vec3i& c : {cv::Vec3i(5, 0, 0), {0, 5, 90}, {-5, 0, 180}, {0, -5, 270}, {3, 3, 45}})
    EXPECT_NEAR(entrada(h, c[0], c[1])[0], c[2], 0.01f) << c;
}

TEST(HogTabela, AneisDeAreaIgualTemQuaseOsMesmosPixels) {
  const RUHOG ru(5, 40, 20, 37, true);
  const RIHOG ri(5, 40, 20, 37, true);
  ASSERT_EQ(ru.contagem().size(), 5u);
  int total = 0;
  for (int n : ru.contagem()) total += n;
  for (int n : ru.contagem()) EXPECT_NEAR(n, total / 5.0, total * 0.03) << "anel com " << n;
  // Equal-width rings grow outwards instead.
  EXPECT_GT(ri.contagem()[4], 5 * ri.contagem()[0]);
}

TEST(HogQuantiza, BinsCentradosEmMultiplosDoPasso) {
  const RIHOG h(5, 40, 20, 37, true);  // step 18: bin 0 covers [-9, 9)
  const std::pair<double, int> casos[] = {{0.0, 0},    {8.999, 0},   {9.0, 1},   {26.999, 1}, {27.0, 2},
                                          {180.0, 10}, {350.99, 19}, {351.0, 0}, {359.999, 0}};
  for (const auto& [angulo, bin] : casos) EXPECT_EQ(h.quantiza(angulo), bin) << angulo;
}

TEST(HogQuantiza, AnguloForaDoCirculoParaNomeandoODescritor) {
  const RIHOG ri;
  const RUHOG ru;
  for (double a : {-0.001, 360.0, std::nan("")}) {
    EXPECT_EQ(teste::mensagemDe([&] { ri.quantiza(a); }), "Erro RIHOG:quantiza-1 fora de 0 a 360") << a;
    EXPECT_EQ(teste::mensagemDe([&] { ru.quantiza(a); }), "Erro RUHOG:quantiza-1 fora de 0 a 360") << a;
  }
}

// A patch whose grey level grows (or falls) with the distance from the centre
// has only radial gradients: all the weight lands in one relative bin of 8,
// 0 outwards or 4 inwards.
TEST(HogHistograma, GradientesRadiaisEnchemUmBinRelativo) {
  for (bool ruhog : {false, true})
    for (bool cresce : {false, true}) {
      const auto h = cria(ruhog, {4, 20, 8, 5, false});
      const int lado = h->ladoPatch(), centro = (lado - 1) / 2;
      cv::Mat_<uchar> patch(lado, lado);
      for (int l = 0; l < lado; ++l)
        for (int k = 0; k < lado; ++k) {
          const double d = std::hypot(l - centro, k - centro);
          patch(l, k) = cv::saturate_cast<uchar>(cresce ? 20 + 3 * d : 235 - 3 * d);
        }
      cv::Mat_<float> hist;
      h->rihog(patch, hist);
      ASSERT_EQ(hist.size(), cv::Size(8, 4));
      for (int anel = 0; anel < 4; ++anel) {
        const double total = cv::sum(hist.row(anel))[0];
        ASSERT_GT(total, 0.0);
        EXPECT_GT(hist(anel, cresce ? 0 : 4) / total, 0.85) << ruhog << cresce << " anel " << anel;
        // Per ring pixel: a slope of 3 grey levels per pixel gives a difference
        // of about 6 over the two-pixel span.
        EXPECT_NEAR(total, 6.0, 1.0) << ruhog << cresce << " anel " << anel;
      }
    }
}

// Gradients ignore a brightness offset, so every row does; a doubled
// contrast doubles the plain rows and, because the invariant row is divided
// by its mean square rather than by its deviation, halves the invariant ones.
TEST(HogLinhas, BrilhoNaoMudaNadaEContrasteDobradoDobraOuCortaAMetade) {
  // Sharp edges and a small kernel, so that gradients are large beside the
  // rounding of the smoothed grey levels.
  const cv::Mat_<uchar> base = manchas(160, 11) / 2;  // 0 .. 128
  const cv::Mat_<uchar> clara = base + 100, contraste = base * 2;
  std::vector<cv::KeyPoint> kps;
  for (int y = 30; y < 130; y += 30)
    for (int x = 30; x < 130; x += 30) kps.emplace_back(cv::Point2f(x, y), 24.0f);
  for (bool ruhog : {false, true})
    for (bool bcinv : {false, true}) {
      SCOPED_TRACE(std::string(ruhog ? "ruhog" : "rihog") + (bcinv ? " bcinv" : ""));
      const auto h = cria(ruhog, {5, 40, 20, 5, bcinv});
      cv::Mat d, dClara, dContraste;
      h->compute(base, kps, d);
      h->compute(clara, kps, dClara);
      h->compute(contraste, kps, dContraste);
      EXPECT_EQ(cv::norm(d, dClara, cv::NORM_INF), 0.0);
      const double fator = bcinv ? 0.5 : 2.0;
      for (int i = 0; i < d.rows; ++i) {
        if (bcinv) {
          EXPECT_NEAR(cv::mean(d.row(i))[0], 0.0, 1e-5) << i;
        } else {
          EXPECT_TRUE(cv::checkRange(d.row(i), true, nullptr, 0.0) && cv::countNonZero(d.row(i)) > 0) << i;
        }
        // Smoothing rounds to whole grey levels and a gradient near a bin
        // edge may change bins: the scale holds for the row's length.
        EXPECT_NEAR(cv::norm(dContraste.row(i)) / cv::norm(d.row(i)), fator, 0.05 * fator) << i;
      }
    }
}

using Complexo = std::complex<float>;

// Kernel value at (x right, y up) from the centre of plane s.
Complexo valor(const Forapro& f, int s, int x, int y) {
  const cv::Mat_<Complexo> p(slice(f.kernels(), s));
  return p((p.rows - 1) / 2 - y, (p.cols - 1) / 2 + x);
}

TEST(ForaproTamanho, LinhaComOsGruposLigados) {
  struct Caso {
    int nrad, ncir, raio;
    bool radang, radmag, cirvet;
    int comprimento;
  };
  const Caso casos[] = {{4, 4, 40, true, true, true, 15}, {4, 4, 40, false, false, false, 0},
                        {1, 4, 12, true, true, true, 9},  {6, 2, 15, true, false, false, 5},
                        {2, 2, 0, true, true, true, 7}};
  for (const Caso& c : casos) {
    const Forapro f(c.nrad, c.ncir, c.raio, c.radang, c.radmag, c.cirvet);
    EXPECT_EQ(f.descriptorSize(), c.comprimento) << c.nrad << " " << c.comprimento;
    EXPECT_EQ(f.kernels().size[0], c.nrad + c.ncir);
    EXPECT_EQ(f.kernels().size[1], 2 * c.raio + 1);
  }
}

class ForaproKernels : public testing::TestWithParam<int> {};  // raio

TEST_P(ForaproKernels, FaseRadialSegueAOrdemComYParaCimaESomaZero) {
  const Forapro f(2, 1, GetParam(), true, true, true);
  for (int s = 0; s < 2; ++s)  // so radial responses ignore a grey offset
    EXPECT_LT(cv::norm(cv::sum(slice(f.kernels(), s))), 1e-5) << "plano " << s;
  const int r = GetParam() / 2;
  // Order 1: phase 0 to the right, 90 degrees above the centre; order 2: 180 there.
  EXPECT_NEAR(std::arg(valor(f, 0, r, 0)), 0.0, 1e-6);
  EXPECT_NEAR(std::arg(valor(f, 0, 0, r)), CV_PI / 2, 1e-6);
  EXPECT_NEAR(std::abs(std::arg(valor(f, 1, 0, r))), CV_PI, 1e-6);
  // The centre and its four neighbours (r <= 1) carry no weight; the
  // diagonal neighbours do.
  for (const cv::Point& p : std::vector<cv::Point>{{0, 0}, {1, 0}, {0, 1}, {-1, 0}, {0, -1}})
    EXPECT_EQ(valor(f, 0, p.x, p.y), Complexo(0.0f, 0.0f));
  EXPECT_NE(valor(f, 0, 1, 1), Complexo(0.0f, 0.0f));
  // The circular kernel's centre is real and positive; nothing beyond raio.
  EXPECT_GT(valor(f, 2, 0, 0).real(), 0.0f);
  EXPECT_EQ(valor(f, 2, 0, 0).imag(), 0.0f);
  EXPECT_EQ(valor(f, 2, GetParam(), GetParam()), Complexo(0.0f, 0.0f));
}

INSTANTIATE_TEST_SUITE_P(Raios, ForaproKernels, testing::Values(8, 40));

TEST(ForaproKernel, RaioZeroSoDeixaOCentroCircular) {
  const Forapro f(2, 2, 0, true, true, true);
  for (int s = 0; s < 4; ++s) EXPECT_EQ(valor(f, s, 0, 0), Complexo(s < 2 ? 0.0f : 1.0f, 0.0f)) << s;
}

TEST(ForaproConvqux, IgualASomaSimplesEmCadaPlano) {
  for (int nrad : {1, 3, 4, 6}) {  // 1 to 3 planes after each group of 4
    const Forapro f(nrad, 2, 7, true, true, true);
    const cv::Mat_<uchar> patch = teste::textura(f.lado(), f.lado(), 9);
    cv::Mat resp;
    convqux(patch, f.kernels(), resp);
    ASSERT_EQ(resp.dims, 3);
    ASSERT_EQ(resp.size[0], nrad + 2);
    EXPECT_EQ(resp.size[1] * resp.size[2], 1);
    // Plane by plane, pixel by pixel, in single precision.
    for (int j = 0; j < nrad + 2; ++j) {
      const cv::Mat_<Complexo> k(slice(f.kernels(), j));
      Complexo soma(0.0f, 0.0f);
      for (int l = 0; l < patch.rows; ++l)
        for (int c = 0; c < patch.cols; ++c) soma += Complexo(patch(l, c), 0.0f) * k(l, c);
      EXPECT_EQ(resp.ptr<Complexo>()[j], soma) << nrad << " plano " << j;
    }
  }
}

TEST(ForaproConvqux, UsoErradoPara) {
  const Forapro f(2, 2, 5, true, true, true);
  cv::Mat resp;
  EXPECT_EQ(teste::mensagemDe([&] { slice(cv::Mat(4, 5, CV_32FC2), 0); }), "Erro slice: dimensao deve ser 3");
  EXPECT_EQ(teste::mensagemDe([&] { slice(f.kernels(), -1); }), "Erro slice: indice invalido");
  EXPECT_EQ(teste::mensagemDe([&] { slice(f.kernels(), 4); }), "Erro slice: indice invalido");
  for (const cv::Size& s : {cv::Size(10, 10), cv::Size(11, 12), cv::Size(12, 12)})
    EXPECT_EQ(teste::mensagemDe([&] { convqux(cv::Mat_<uchar>(s, uchar(3)), f.kernels(), resp); }),
              "Erro convqux: Dimensoes invalidas")
        << s;
  float saida[20];
  const int dims[3] = {3, 1, 1};
  const cv::Mat curto(3, dims, CV_32FC2, cv::Scalar::all(1));
  EXPECT_EQ(teste::mensagemDe([&] { f.grupos(curto, saida); }), "Erro inesperado");
}

TEST(ForaproLinhas, GruposNoIntervaloENormalizados) {
  cv::Mat d;
  Forapro().compute(teste::textura(160, 160, 12),
                    {cv::KeyPoint(80, 80, 40), cv::KeyPoint(50, 100, 24), cv::KeyPoint(110, 40, 70)}, d);
  for (int i = 0; i < d.rows; ++i) {
    EXPECT_TRUE(cv::checkRange(d.row(i).colRange(0, 3), true, nullptr, 0.0, 2 * CV_PI + 1e-6)) << i;  // phases
    EXPECT_TRUE(cv::checkRange(d.row(i).colRange(3, 7), true, nullptr, 0.0, 1.0 + 1e-6)) << i;  // magnitudes
    EXPECT_NEAR(cv::norm(d.row(i).colRange(3, 7), cv::NORM_L1), 1.0, 1e-5) << i;
    EXPECT_NEAR(cv::norm(d.row(i).colRange(7, 15), cv::NORM_L1), 1.0, 1e-5) << i;
  }
}

TEST(ForaproLinhas, PatchPretoDaGruposZero) {
  cv::Mat d;
  Forapro().compute(teste::uniforme(90, 90, 0), {cv::KeyPoint(45, 45, 30), cv::KeyPoint(3, 3, 80)}, d);
  EXPECT_EQ(cv::countNonZero(d), 0);
}

// The count behind the warning on stores whose rows cannot tell keypoints apart.
TEST(LinhasRepetidas, ContaAsLinhasIguaisAOutra) {
  const struct {
    std::vector<std::vector<float>> linhas;
    size_t repetidas;
  } casos[] = {
      {{}, 0},
      {{{1, 2}, {3, 4}, {2, 1}}, 0},
      {{{1, 2}, {3, 4}, {1, 2}}, 2},
      {{{5, 5}, {5, 5}, {5, 5}, {5, 5}}, 4},
      {{{1, 2}, {1, 2}, {7, 8}, {7, 8}, {7, 9}}, 4},
  };
  for (const auto& c : casos) {
    cv::Mat_<float> d(static_cast<int>(c.linhas.size()), 3, 9.0f);  // a third column outside the view
    for (int r = 0; r < d.rows; ++r)
      for (int k = 0; k < 2; ++k) d(r, k) = c.linhas[r][k];
    EXPECT_EQ(linhasRepetidas(d.colRange(0, 2)), c.repetidas) << c.linhas.size();
  }
}

}  // namespace
