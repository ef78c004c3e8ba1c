// Angle conventions: the conversion itself, and the table of which tool
// writes and reads which direction, proven on rotations of a real image.
#include "algoritmos/tabela.hpp"
#include "descriptors/forapro.hpp"
#include "descriptors/riff.hpp"
#include "descriptors/rihog.hpp"
#include "descriptors/ruhog.hpp"
#include "descriptors/simple.hpp"
#include "features/sift.hpp"
#include "features/surf.hpp"
#include "keypoints/convencao.hpp"
#include "keypoints/key_detect.hpp"
#include "keypoints/key_rand.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/features2d.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using keypoints::Convencao;

struct CasoAngulo {
  float angulo;
  Convencao de, para;
  float esperado;
};

TEST(ConverteAngulo, EspelhaEntreConvencoesELevaA0a360) {
  const Convencao h = Convencao::horario, a = Convencao::antiHorario, n = Convencao::nenhuma;
  const std::vector<CasoAngulo> casos = {
      {30, a, h, 330},   {330, h, a, 30},   {0, a, h, 0},       {180, h, a, 180},  {-90, a, a, 270},
      {-90, a, h, 90},   {-160, a, h, 160}, {360, h, h, 0},     {725, h, h, 5},    {-1, n, h, 359},
      {-1, h, n, 359},   {45, n, a, 45},    {359.5f, a, h, 0.5f}, {-1e-6f, h, h, 0}, {-720, h, a, 0},
  };
  for (const CasoAngulo& c : casos) {
    const float r = keypoints::converteAngulo(c.angulo, c.de, c.para);
    EXPECT_NEAR(r, c.esperado, 1e-4) << c.angulo << " de " << keypoints::nomeConvencao(c.de) << " para "
                                     << keypoints::nomeConvencao(c.para);
    EXPECT_TRUE(r >= 0.0f && r < 360.0f) << c.angulo << " -> " << r;
  }
  EXPECT_TRUE(std::isnan(keypoints::converteAngulo(std::numeric_limits<float>::quiet_NaN(), a, h)));
}

TEST(ConverteAngulo, SoOAnguloMudaEAContagemEDosQueMudaram) {
  std::vector<cv::KeyPoint> k = {cv::KeyPoint(1, 2, 3, 180, 4, 5, 6), cv::KeyPoint(7, 8, 9, 90, 1, 2, 3),
                                 cv::KeyPoint(1, 1, 1, 0, 0, 0, -1)};
  EXPECT_EQ(keypoints::converteAngulos(k, Convencao::antiHorario, Convencao::horario), 1u);
  EXPECT_EQ(k[0].angle, 180.0f);
  EXPECT_EQ(k[1].angle, 270.0f);
  EXPECT_EQ(k[2].angle, 0.0f);
  EXPECT_EQ(k[1].pt, cv::Point2f(7, 8));
  EXPECT_EQ(k[1].size, 9.0f);
  EXPECT_EQ(k[1].response, 1.0f);
  EXPECT_EQ(k[1].octave, 2);
  EXPECT_EQ(k[1].class_id, 3);
}

TEST(AchaConvencao, NomesDeConvencaoEDeFerramentaEmQualquerCaixa) {
  struct Caso {
    const char* nome;
    bool escrita;
    bool achou;
    Convencao c;
  };
  const std::vector<Caso> casos = {
      {"opencv", true, true, Convencao::horario},    {"CCW", false, true, Convencao::antiHorario},
      {"keyrand", true, true, Convencao::antiHorario}, {"KeySift", true, true, Convencao::horario},
      {"DesSimp", false, true, Convencao::antiHorario}, {"dessift", false, true, Convencao::horario},
      {"DesRihog", false, true, Convencao::nenhuma},  {"KeyFast", true, true, Convencao::nenhuma},
      {"KeyGrande", true, false, Convencao::nenhuma}, {"horario", true, false, Convencao::nenhuma},
      {"", false, false, Convencao::nenhuma},
  };
  for (const Caso& c : casos) {
    Convencao r = Convencao::nenhuma;
    EXPECT_EQ(algoritmos::achaConvencao(c.nome, c.escrita, r), c.achou) << c.nome;
    if (c.achou) {
      EXPECT_EQ(r, c.c) << c.nome;
    }
  }
}

// ---- The table proven: each tool on a real image turned by a known angle.

// The middle of the first graf view, so that a turn about its centre keeps
// most of it inside.
cv::Mat_<uchar> cena() {
  const cv::Mat img = teste::leCinzaDeDados("img1.png");
  return img(cv::Rect((img.cols - 360) / 2, (img.rows - 360) / 2, 360, 360)).clone();
}

// Keypoints as the tool writes them, in the order given; descriptor rows in
// the order of the keypoints kept (SURF drops some).
using Descreve = std::function<void(const cv::Mat_<uchar>&, std::vector<cv::KeyPoint>&, cv::Mat&)>;

template <class D, class... A>
Descreve proprio(A... a) {
  return [=](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) { D(a...).compute(img, k, d); };
}

Descreve daTabela(const char* nome) {
  tvm::ISTR nenhuma(0, nullptr);
  return algoritmos::criaDescritor(nome, nenhuma).calcula;
}

struct Descritor {
  const char* ferramenta;
  Descreve descreve;
  // Share of the unturned figure that any turn keeps, measured with margin:
  // SURF's box filters fit the pixel grid only at quarter turns.
  double guarda;
  // RIFF quantises directions into octants and its derivative along x is the
  // legacy kernel [1, 0, side/2]: it survives quarter turns only.
  bool soQuartos;
};

std::vector<Descritor> descritores() {
  return {
      {"DesSift",
       [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
         cv::SIFT::create(0, 3, 0.04, 10.0, 1.6)->compute(img, k, d);
       },
       0.9, false},
      {"DesSurf",
       [](const cv::Mat_<uchar>& img, std::vector<cv::KeyPoint>& k, cv::Mat& d) {
         features::SURF().compute(img, k, d);
       },
       0.6, false},
      {"DesSimp", proprio<SIMPLE>('c', 6, 11), 0.9, false},
      {"DesRiff", proprio<RIFF>(4, 10), 0.8, true},
      {"DesRihog", proprio<RIHOG>(5, 40, 20, 37, true), 0.9, false},
      {"DesRUHOG", proprio<RUHOG>(5, 40, 20, 37, true), 0.9, false},
      {"DesForapro", proprio<Forapro>(4, 4, 40, true, true, true), 0.9, false},
      // Table rows as a sweep builds them. ORB and BRISK describe KeyRand's
      // keypoints (octave 0) at full resolution.
      {"DesOrb", daTabela("orb"), 0.9, false},
      {"DesBrisk", daTabela("brisk"), 0.8, false},
      {"DesRootSift", daTabela("rootsift"), 0.9, false},
  };
}

void PrintTo(const Descritor& d, std::ostream* os) { *os << d.ferramenta; }

// Share of the keypoints of `a` whose nearest row in `b` is their own
// partner. class_id carries the pair's index through a descriptor that drops
// keypoints.
double acertos1NN(const std::vector<cv::KeyPoint>& a, const cv::Mat& da, const std::vector<cv::KeyPoint>& b,
                  const cv::Mat& db) {
  std::vector<cv::DMatch> m;
  cv::BFMatcher(da.type() == CV_8U ? cv::NORM_HAMMING : cv::NORM_L2).match(da, db, m);
  int certos = 0;
  for (const cv::DMatch& x : m) certos += a[x.queryIdx].class_id == b[x.trainIdx].class_id;
  return a.empty() ? 0.0 : static_cast<double>(certos) / static_cast<double>(a.size());
}

struct Giro {
  std::vector<cv::KeyPoint> a, b;  // in KeyRand's convention, b[i] the partner of a[i]
  cv::Mat_<uchar> imgA, imgB;
};

// KeyRand's pairs on the scene and on the scene turned `graus`
// counter-clockwise; regions of 40 to 60 pixels, wide enough for the own
// descriptors.
Giro giro(double graus) {
  Giro g;
  g.imgA = cena();
  const cv::Matx33d H = teste::gira(g.imgA, graus, g.imgB);
  keypoints::ParamRand p;
  p.seed = 11;
  p.diamMin = 40;
  p.diamMax = 60;
  keypoints::geraPares(g.imgA.size(), H, 150, p, g.a, g.b);
  for (size_t i = 0; i < g.a.size(); ++i) g.a[i].class_id = g.b[i].class_id = static_cast<int>(i);
  return g;
}

// 1-NN share with both stores' angles converted from KeyRand's to `para`.
double acertos(const Descritor& d, const Giro& g, Convencao para) {
  std::vector<cv::KeyPoint> a = g.a, b = g.b;
  keypoints::converteAngulos(a, Convencao::antiHorario, para);
  keypoints::converteAngulos(b, Convencao::antiHorario, para);
  cv::Mat da, db;
  d.descreve(g.imgA, a, da);
  d.descreve(g.imgB, b, db);
  return acertos1NN(a, da, b, db);
}

class ConvencaoDoDescritor : public testing::TestWithParam<Descritor> {};

// Turns that leave no symmetry to hide behind: at 180 degrees a mirrored
// angle errs by the same amount on both views and would still match.
TEST_P(ConvencaoDoDescritor, CasaNoGiroComOsAngulosNaSuaConvencaoEPiorNaOutra) {
  const Descritor& d = GetParam();
  Convencao le = Convencao::nenhuma;
  ASSERT_TRUE(algoritmos::achaConvencao(d.ferramenta, false, le));
  const double parado = acertos(d, giro(0), Convencao::horario);
  EXPECT_GT(parado, 0.9);
  for (double graus : {30.0, 90.0, 135.0, 250.0}) {
    const bool quarto = std::fmod(graus, 90.0) == 0.0;
    const Giro g = giro(graus);
    const double horario = acertos(d, g, Convencao::horario);
    const double antiHorario = acertos(d, g, Convencao::antiHorario);
    SCOPED_TRACE(std::string(d.ferramenta) + " girado " + std::to_string(graus) + ": horario " +
                 std::to_string(horario) + ", anti-horario " + std::to_string(antiHorario) + ", parado " +
                 std::to_string(parado));
    const double certa = le == Convencao::antiHorario ? antiHorario : horario;
    const double errada = le == Convencao::antiHorario ? horario : antiHorario;
    if (quarto || !d.soQuartos) {
      EXPECT_GT(certa, d.guarda * parado);
    }
    if (le == Convencao::nenhuma)
      EXPECT_EQ(errada, certa);
    else
      EXPECT_LT(errada, 0.2 * certa);
  }
}

INSTANTIATE_TEST_SUITE_P(Todos, ConvencaoDoDescritor, testing::ValuesIn(descritores()),
                         [](const testing::TestParamInfo<Descritor>& i) { return i.param.ferramenta; });

// Angle differences in (-180, 180].
double diferenca(double a, double b) {
  double d = std::fmod(a - b, 360.0);
  if (d > 180) d -= 360;
  if (d <= -180) d += 360;
  return d;
}

// The detectors' direction: the same scene point found on both views must
// have turned by the view's turn, measured in the convention the table gives.
TEST(ConvencaoDoDetector, OAnguloGiraComACenaNoSentidoDaTabela) {
  struct Detector {
    const char* ferramenta;
    std::function<std::vector<cv::KeyPoint>(const cv::Mat_<uchar>&)> detecta;
  };
  std::vector<Detector> detectores = {
      {"KeySift", [](const cv::Mat_<uchar>& i) { return features::detectaSift(i); }},
      {"KeySurf",
       [](const cv::Mat_<uchar>& i) {
         std::vector<cv::KeyPoint> k;
         keypoints::surfDoKeySurf(std::nullopt).detect(i, k);
         return k;
       }},
  };
  // Every oriented detector of the table, as a sweep builds it.
  for (const algoritmos::LinhaDetector& l : algoritmos::detectores()) {
    if (l.propria != nullptr || l.escreve == Convencao::nenhuma) continue;
    tvm::ISTR nenhuma(0, nullptr);
    detectores.push_back({l.ferramenta, algoritmos::criaDetector(l.nome, nenhuma).detecta});
  }
  constexpr double graus = 50.0;
  const cv::Mat_<uchar> img = cena();
  cv::Mat_<uchar> girada;
  const cv::Matx33d H = teste::gira(img, graus, girada);
  for (const Detector& det : detectores) {
    Convencao escreve = Convencao::nenhuma;
    ASSERT_TRUE(algoritmos::achaConvencao(det.ferramenta, true, escreve));
    ASSERT_EQ(escreve, Convencao::horario) << det.ferramenta;
    const std::vector<cv::KeyPoint> k1 = det.detecta(img), k2 = det.detecta(girada);
    int pares = 0, comOGiro = 0;
    for (const cv::KeyPoint& p : k1) {
      const cv::Vec3d m = H * cv::Vec3d(p.pt.x, p.pt.y, 1.0);
      for (const cv::KeyPoint& q : k2) {
        if (std::hypot(q.pt.x - m[0], q.pt.y - m[1]) > 1.0 || std::fabs(q.size - p.size) > 0.1 * p.size) continue;
        ++pares;
        // Counter-clockwise on screen is clockwise read backwards.
        comOGiro += std::fabs(diferenca(q.angle, p.angle) + graus) < 10.0;
        break;
      }
    }
    ASSERT_GT(pares, 50) << det.ferramenta;
    EXPECT_GT(comOGiro, 0.6 * pares) << det.ferramenta << ": " << comOGiro << " de " << pares;
  }
}

// KeyRand's partners turn with the view counter-clockwise.
TEST(ConvencaoDoDetector, KeyRandEscreveAntiHorario) {
  Convencao escreve = Convencao::nenhuma;
  ASSERT_TRUE(algoritmos::achaConvencao("KeyRand", true, escreve));
  ASSERT_EQ(escreve, Convencao::antiHorario);
  const Giro g = giro(70);
  ASSERT_EQ(g.a.size(), 150u);
  for (size_t i = 0; i < g.a.size(); ++i) EXPECT_NEAR(diferenca(g.b[i].angle, g.a[i].angle), 70.0, 1e-3) << i;
}

}  // namespace

namespace {

// AKAZE's and KAZE's descriptors describe only their detector's keypoints,
// whose class_id is the scale level: the pairs are the detector's keypoints
// on the scene and their images under the turn, identified by index (these
// descriptors keep every keypoint), with angles as KeyRand would give them.
double acertosDoProprioDetector(const char* nome, double graus, Convencao para) {
  const cv::Mat_<uchar> imgA = cena();
  cv::Mat_<uchar> imgB;
  const cv::Matx33d H = teste::gira(imgA, graus, imgB);
  tvm::ISTR nenhuma(0, nullptr);
  std::vector<cv::KeyPoint> a, b;
  for (const cv::KeyPoint& k : algoritmos::criaDetector(nome, nenhuma).detecta(imgA)) {
    const cv::Vec3d m = H * cv::Vec3d(k.pt.x, k.pt.y, 1.0);
    const float margem = 6 * k.size;
    if (m[0] < margem || m[1] < margem || m[0] > imgB.cols - margem || m[1] > imgB.rows - margem) continue;
    cv::KeyPoint ka = k, kb = k;
    ka.angle = static_cast<float>((a.size() * 37) % 360);
    kb.pt = cv::Point2f(static_cast<float>(m[0]), static_cast<float>(m[1]));
    kb.angle = static_cast<float>(ka.angle + graus);
    a.push_back(ka);
    b.push_back(kb);
  }
  keypoints::converteAngulos(a, Convencao::antiHorario, para);
  keypoints::converteAngulos(b, Convencao::antiHorario, para);
  cv::Mat da, db;
  const algoritmos::Descritor d = algoritmos::criaDescritor(nome, nenhuma);
  const size_t n = a.size();
  d.calcula(imgA, a, da);
  d.calcula(imgB, b, db);
  EXPECT_EQ(a.size(), n);
  EXPECT_EQ(b.size(), n);
  std::vector<cv::DMatch> m;
  cv::BFMatcher(da.type() == CV_8U ? cv::NORM_HAMMING : cv::NORM_L2).match(da, db, m);
  int certos = 0;
  for (const cv::DMatch& x : m) certos += x.queryIdx == x.trainIdx;
  return n == 0 ? 0.0 : static_cast<double>(certos) / static_cast<double>(n);
}

}  // namespace

TEST(ConvencaoDoDescritor, AkazeEKazeNosKeypointsDoSeuDetector) {
  for (const char* nome : {"akaze", "kaze"}) {
    const algoritmos::LinhaDescritor& l = *algoritmos::descritor(nome);
    const double horario = acertosDoProprioDetector(nome, 90, Convencao::horario);
    const double antiHorario = acertosDoProprioDetector(nome, 90, Convencao::antiHorario);
    SCOPED_TRACE(std::string(nome) + ": horario " + std::to_string(horario) + ", anti-horario " +
                 std::to_string(antiHorario));
    if (l.le == Convencao::nenhuma) {
      EXPECT_EQ(horario, antiHorario);
      EXPECT_GT(horario, 0.5);
    } else {
      const double certa = l.le == Convencao::horario ? horario : antiHorario;
      const double errada = l.le == Convencao::horario ? antiHorario : horario;
      EXPECT_GT(certa, 0.5);
      EXPECT_LT(errada, 0.2 * certa);
    }
  }
}
