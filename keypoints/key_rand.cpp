#include "keypoints/key_rand.hpp"

#include "formats/stores.hpp"
#include "formats/transform.hpp"
#include "keypoints/canvas.hpp"
#include "keypoints/tools.hpp"
#include "support/argumentos.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/numeros.hpp"

#include <cmath>
#include <string>

namespace keypoints {

namespace {

constexpr double kPi = 3.141592653589793;

// A whole number from -p to p. In 64 bits, so that no option value overflows.
long long perturbacao(int p) {
  const long long r = tvm::myrandom.rand();
  return r % (2LL * p + 1) - p;
}

cv::Vec2d mapeia(const cv::Matx33d& M, double x, double y) {
  const cv::Vec3d h = M * cv::Vec3d(x, y, 1.0);
  return cv::Vec2d(h[0] / h[2], h[1] / h[2]);
}

bool finito(const cv::KeyPoint& k) {
  return std::isfinite(k.pt.x) && std::isfinite(k.pt.y) && std::isfinite(k.size) && std::isfinite(k.angle);
}

}  // namespace

void geraPares(cv::Size tamanhoA, const cv::Matx33d& M, int n, const ParamRand& p, std::vector<cv::KeyPoint>& a,
               std::vector<cv::KeyPoint>& b) {
  const int W = tamanhoA.width, H = tamanhoA.height;
  if (W <= 0 || H <= 0) tvm::erro("Erro: imagem vazia");
  // A diameter is a length: a store of negative or zero sizes would pass
  // the fit test below (a negative radius fits anywhere) and break every
  // descriptor after it.
  if (p.diamMin < 1) tvm::erro("Erro: diamMin deve ser ao menos 1, diamMin=", std::to_string(p.diamMin));
  if (p.diamMax <= p.diamMin)
    tvm::erro("Erro: diamMax deve ser maior que diamMin, diamMin=", std::to_string(p.diamMin),
              " diamMax=" + std::to_string(p.diamMax));
  const long long faixaDiam = static_cast<long long>(p.diamMax) - p.diamMin;

  a.clear();
  b.clear();
  tvm::myrandom.srand(p.seed);
  long rejeicoes = 0;
  while (static_cast<int>(a.size()) < n) {
    if (rejeicoes >= kMaxRejeicoesSeguidas)
      tvm::erro("Erro: nenhum keypoint cabe na imagem apos ", std::to_string(kMaxRejeicoesSeguidas),
                " sorteios seguidos (diametros grandes demais ou transformacao leva tudo para fora)");
    ++rejeicoes;

    const float x = static_cast<float>(tvm::myrandom.rand() % W);
    const float y = static_cast<float>(tvm::myrandom.rand() % H);
    const float size = static_cast<float>(p.diamMin + tvm::myrandom.rand() % faixaDiam);
    const float angle = static_cast<float>(tvm::myrandom.rand() % 360);
    if (intersectaCanvas(x, y, size, W, H)) continue;

    // The point and the end of its radius in the keypoint's direction; y
    // grows downward, so a positive angle turns the radius upward.
    const double rad = 0.5f * size;
    const double theta = angle / 180.0 * kPi;
    const cv::Vec2d p2 = mapeia(M, x, y);
    const cv::Vec2d q2 = mapeia(M, x + rad * std::cos(theta), y - rad * std::sin(theta));

    cv::KeyPoint k2;
    k2.pt.x = static_cast<float>(p2[0]);
    k2.pt.y = static_cast<float>(p2[1]);
    const double dx = p2[0] - q2[0], dy = p2[1] - q2[1];
    k2.size = static_cast<float>(2.0 * std::sqrt(dx * dx + dy * dy));
    k2.angle = static_cast<float>(std::atan2(p2[1] - q2[1], q2[0] - p2[0]) * 180.0 / kPi);
    k2.response = 0;
    k2.octave = 0;
    k2.class_id = -1;
    if (p.pertPt > 0) {
      k2.pt.x += static_cast<float>(perturbacao(p.pertPt));
      k2.pt.y += static_cast<float>(perturbacao(p.pertPt));
    }
    if (p.pertDiam > 0) k2.size += static_cast<float>(perturbacao(p.pertDiam));
    if (p.pertDeg > 0) k2.angle += static_cast<float>(perturbacao(p.pertDeg));
    // A perturbation may take the partner's diameter to zero or below: no
    // keypoint, so the pair is dropped like one that does not fit.
    if (!finito(k2) || !(k2.size > 0.0f) || intersectaCanvas(k2.pt.x, k2.pt.y, k2.size, W, H)) continue;

    a.emplace_back(x, y, size, angle, 0.0f, 0, -1);
    b.push_back(k2);
    rejeicoes = 0;
  }
}

size_t foraDaImagem(const std::vector<cv::KeyPoint>& keypoints, cv::Size tamanho) {
  size_t fora = 0;
  for (const cv::KeyPoint& k : keypoints) fora += intersectaCanvas(k.pt.x, k.pt.y, k.size, tamanho.width, tamanho.height);
  return fora;
}

}  // namespace keypoints

namespace keypoints {

void leParamRand(tvm::ISTR& opcoes, ParamRand& p) {
  tvm::seekArgs(opcoes, {{"seed", p.seed}, {"diammin", p.diamMin}, {"diammax", p.diamMax}, {"pertpt", p.pertPt},
                         {"pertdiam", p.pertDiam}, {"pertdeg", p.pertDeg}});
}

}  // namespace keypoints

void KeyRand(int argc, char** argv) {
  if (argc < 7)
    tvm::falhaUso({"KeyRand a.pgm b.pgm mat33.txt n keyA.xml keyB.xml",
                   "  [seed=7 diamMin=30 diamMax=40 pertPt=0 pertDiam=0 pertDeg=0]"});
  tvm::exigeSaidasDistintas({argv[5], argv[6]});
  cv::Mat_<uchar> imgA, imgB;
  tvm::le(imgA, argv[1]);
  tvm::le(imgB, argv[2]);  // its size only warns: the partners are fitted to image a
  cv::Mat M;
  formats::leMat33(M, argv[3]);
  int n = 0;
  tvm::convArg(n, argv[4]);
  // Each pair costs memory and store text; beyond this a typo would run for
  // hours and fill the disk.
  if (n > keypoints::kMaxPares) tvm::erro("Erro: n grande demais ", argv[4]);

  keypoints::ParamRand p;
  tvm::ISTR opcoes(argc - 7, argv + 7);
  keypoints::leParamRand(opcoes, p);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);

  std::vector<cv::KeyPoint> a, b;
  keypoints::geraPares(imgA.size(), cv::Matx33d(M), n, p, a, b);
  // Both stores replace their files, or neither does.
  tvm::SaidaSegura saidaA(argv[5]), saidaB(argv[6]);
  formats::impKeyPoints(saidaA, a);
  formats::impKeyPoints(saidaB, b);
  tvm::SaidaSegura::confirmaJuntas({&saidaA, &saidaB});
  tvm::avisaSeVazio(a.size(), argv[5]);
  tvm::avisaSeVazio(b.size(), argv[6]);
  const size_t fora = keypoints::foraDaImagem(b, imgB.size());
  if (fora > 0)
    tvm::aviso(std::to_string(fora) + " de " + std::to_string(b.size()) + " keypoints de " + argv[6] +
               " passam da borda de " + argv[2] + " (" + std::to_string(imgB.cols) + "x" +
               std::to_string(imgB.rows) + "): a matriz leva a imagem a para a b?");
}
