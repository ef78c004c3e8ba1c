#include "datasets/sintetica3d.hpp"

#include "formats/csv.hpp"
#include "formats/profundidade.hpp"
#include "support/arquivos.hpp"
#include "support/decodifica.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <opencv2/calib3d.hpp>
#include <opencv2/core/utility.hpp>

#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

namespace datasets {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kPasso = 0.002;  // march step, world units

struct Forma {
  const char* nome;
  double hMin, hMax;  // the slab z = 1 + h the surface fills
};
const Forma kFormas[] = {{"ondas", -0.04, 0.04}, {"degrau", 0, 0.25}, {"calombo", -0.25, 0}, {"diedro", -0.5, 0}};

double altura(Superficie s, double x, double y) {
  switch (s) {
    case Superficie::ondas:
      return 0.04 * std::sin(2 * kPi * x / 0.3) * std::sin(2 * kPi * y / 0.3);
    case Superficie::degrau:
      return x > 0 ? 0.25 : 0;
    case Superficie::calombo:
      return -0.25 * std::exp(-(x * x + y * y) / (2 * 0.15 * 0.15));
    default:
      return -0.5 * std::min(std::fabs(x), 1.0);
  }
}

// A texture coordinate folded into [0, n - 1] as a mirror repeats it.
double espelha(double u, int n) {
  const double periodo = 2.0 * (n - 1);
  u = std::fmod(u, periodo);
  if (u < 0) u += periodo;
  return u > n - 1 ? periodo - u : u;
}

double bilinear(const cv::Mat_<uchar>& t, double u, double v) {
  u = espelha(u, t.cols);
  v = espelha(v, t.rows);
  const int x = std::min(static_cast<int>(u), t.cols - 2), y = std::min(static_cast<int>(v), t.rows - 2);
  const double a = u - x, b = v - y;
  return (1 - b) * ((1 - a) * t(y, x) + a * t(y, x + 1)) + b * ((1 - a) * t(y + 1, x) + a * t(y + 1, x + 1));
}

}  // namespace

bool superficieDeNome(const std::string& nome, Superficie& s) {
  for (int k = 0; k < 4; ++k)
    if (nome == kFormas[k].nome) {
      s = static_cast<Superficie>(k);
      return true;
    }
  return false;
}

Vista3d::Vista3d(Superficie s, const cv::Matx33d& K, const cv::Matx33d& R, const cv::Vec3d& t)
    : superficie_(s), Kinv_(K.inv()), Rt_(R.t()), centro_(-(R.t() * t)) {}

double Vista3d::profundidade(cv::Point2d p, cv::Vec3d* X) const {
  // Along c + s d, with d's z in the camera's frame 1, the depth is s.
  const cv::Vec3d c = centro_, d = Rt_ * (Kinv_ * cv::Vec3d(p.x, p.y, 1));
  const Forma& f = kFormas[static_cast<int>(superficie_)];
  if (!(d[2] > 0)) return 0;
  const auto g = [&](double s) { return c[2] + s * d[2] - 1 - altura(superficie_, c[0] + s * d[0], c[1] + s * d[1]); };
  double s = std::max(0.0, (1 + f.hMin - c[2]) / d[2]);
  const double fim = (1 + f.hMax - c[2]) / d[2], passo = kPasso / cv::norm(d);
  if (fim <= 0) return 0;
  double depois = s;
  if (g(s) < 0) {
    // At fim the ray is past the whole slab, so some step crosses.
    do {
      s = depois;
      depois = std::min(s + passo, fim);
    } while (g(depois) < 0 && depois < fim);
    for (int k = 0; k < 60 && depois - s > 0; ++k) {
      const double meio = 0.5 * (s + depois);
      if (meio <= s || meio >= depois) break;
      (g(meio) < 0 ? s : depois) = meio;
    }
  }
  if (X) *X = c + depois * d;
  return depois;
}

void renderiza(const cv::Mat_<uchar>& textura, const Vista3d& vista, cv::Mat_<uchar>& imagem,
               cv::Mat_<float>& profundidade) {
  const cv::Matx33d K = kSint3d(textura.size());
  imagem.create(textura.size());
  profundidade.create(textura.size());
  // Each row on its own: the result does not depend on the thread count.
  cv::parallel_for_(cv::Range(0, textura.rows), [&](const cv::Range& linhas) {
    for (int y = linhas.start; y < linhas.end; ++y)
      for (int x = 0; x < textura.cols; ++x) {
        cv::Vec3d X;
        const double z = vista.profundidade(cv::Point2d(x, y), &X);
        profundidade(y, x) = static_cast<float>(z);
        imagem(y, x) = z > 0 ? cv::saturate_cast<uchar>(
                                   bilinear(textura, K(0, 2) + K(0, 0) * X[0], K(1, 2) + K(1, 1) * X[1]))
                             : 0;
      }
  });
}

void ParamSint3d::confere() const {
  if (vistas < 2 || vistas > 100) tvm::erro("Erro: n fora do intervalo (2 a 100)");
  if (!(std::fabs(giro) <= 60)) tvm::erro("Erro: giro fora do intervalo (-60 a 60 graus)");
  if (!(std::fabs(desloc) <= 1)) tvm::erro("Erro: desloc fora do intervalo (-1 a 1)");
}

cv::Matx33d kSint3d(cv::Size tamanho) {
  const double f = std::max(tamanho.width, tamanho.height);
  return cv::Matx33d(f, 0, (tamanho.width - 1) / 2.0, 0, f, (tamanho.height - 1) / 2.0, 0, 0, 1);
}

void poseSint3d(const ParamSint3d& p, int k, cv::Matx33d& R, cv::Vec3d& t) {
  tvm::myrandom.srand(p.seed);
  double phi = 0;
  for (int i = 0; i < k; ++i) phi = 2 * kPi * (tvm::myrandom.rand() / 2147483648.0);
  const double s = static_cast<double>(k) / (p.vistas - 1);
  const cv::Vec3d eixo(std::cos(phi), std::sin(phi), 0), meio(0, 0, 1);
  cv::Matx33d giro;
  cv::Rodrigues(eixo * (s * p.giro * kPi / 180), giro);
  // The camera turns with the orbit: its axes are giro's columns.
  const cv::Vec3d centro = meio - giro * meio + s * p.desloc * eixo;
  R = giro.t();
  t = cv::Vec3d() - R * centro;  // +0, not -0, in view 0's file
}

ParSint3d parSint3d(const cv::Mat_<uchar>& textura, const ParamSint3d& p, int k) {
  if (textura.rows < 16 || textura.cols < 16) tvm::erro("Erro: textura menor que 16x16");
  ParSint3d par;
  measures::Cameras& c = par.cameras;
  c.K0 = c.K1 = kSint3d(textura.size());
  poseSint3d(p, k, c.R, c.t);
  renderiza(textura, Vista3d(p.superficie, c.K0, cv::Matx33d::eye(), cv::Vec3d()), par.imagem0, c.profundidade0);
  renderiza(textura, Vista3d(p.superficie, c.K1, c.R, c.t), par.imagem1, c.profundidade1);
  return par;
}

void escreveSint3d(const cv::Mat_<uchar>& textura, const std::string& pasta, const ParamSint3d& p) {
  p.confere();
  if (textura.rows < 16 || textura.cols < 16) tvm::erro("Erro: textura menor que 16x16");
  for (const char* sub : {"/images", "/depths"}) tvm::criaPastas(pasta + sub);
  const cv::Matx33d K = kSint3d(textura.size());
  // Every file is confirmed only once all are written: a failure leaves
  // none of the new ones.
  std::vector<std::unique_ptr<tvm::SaidaSegura>> saidas;
  const auto saida = [&](const std::string& nome) {
    saidas.push_back(std::make_unique<tvm::SaidaSegura>(pasta + "/" + nome));
    return saidas.back().get();
  };
  std::string vistas, pares;
  for (int k = 0; k < p.vistas; ++k) {
    const std::string nome = "v" + std::to_string(k);
    cv::Matx33d R;
    cv::Vec3d t;
    poseSint3d(p, k, R, t);
    cv::Mat_<uchar> img;
    cv::Mat_<float> profundidade;
    renderiza(textura, Vista3d(p.superficie, K, R, t), img, profundidade);
    tvm::SaidaSegura* s = saida("images/" + nome + ".png");
    std::vector<uchar> png;
    if (!tvm::codificaPng(img, png)) tvm::erro("Erro: nao foi possivel gravar ", s->destino());
    s->escreve(png.data(), png.size());
    formats::escreveProfundidade(profundidade, *saida("depths/" + nome + ".h5"));
    char linha[1024];
    // COLMAP's principal point: the top-left pixel's centre at (0.5, 0.5).
    std::snprintf(linha, sizeof linha,
                  "%s.png %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g PINHOLE %d %d "
                  "%.17g %.17g %.17g %.17g\n",
                  nome.c_str(), R(0, 0), R(0, 1), R(0, 2), R(1, 0), R(1, 1), R(1, 2), R(2, 0), R(2, 1), R(2, 2),
                  t[0], t[1], t[2], img.cols, img.rows, K(0, 0), K(1, 1), K(0, 2) + 0.5, K(1, 2) + 0.5);
    vistas += linha;
    if (k) pares += "v0.png " + nome + ".png\n";
  }
  formats::escreveTexto(*saida("views.txt"), vistas);
  formats::escreveTexto(*saida("pairs.txt"), pares);
  for (auto& s : saidas) s->confirma();
}

}  // namespace datasets
