#include "descriptors/rihog.hpp"

#include "descriptors/paralelo.hpp"
#include "descriptors/patch.hpp"
#include "support/clones.hpp"
#include "support/erro.hpp"
#include "support/img.hpp"
#include "support/numeros.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

const NomesHog nomesRihog = {
    "Erro RIHOG:quantiza-1 fora de 0 a 360",
    "Erro RIHOG:quantiza-2 fora de 0 a 360",
    "Erro RIHOG::quantiza inesperado",
    "Erro rihog: tamanho imagem",
};

// cv::fastAtan2(dy, dx) for every pair of 3-tap differences of 8-bit pixels,
// dx and dy in -255..255: the same values the library returns, looked up
// instead of recomputed for every ring pixel of every keypoint.
constexpr int maxDiferenca = 255;
constexpr int ladoAtan = 2 * maxDiferenca + 1;

const std::vector<float>& tabelaAtan() {
  static const std::vector<float> tabela = [] {
    std::vector<float> t(static_cast<size_t>(ladoAtan) * ladoAtan);
    for (int dy = -maxDiferenca; dy <= maxDiferenca; ++dy)
      for (int dx = -maxDiferenca; dx <= maxDiferenca; ++dx)
        t[static_cast<size_t>(dy + maxDiferenca) * ladoAtan + (dx + maxDiferenca)] =
            cv::fastAtan2(static_cast<float>(dy), static_cast<float>(dx));
    return t;
  }();
  return tabela;
}

// Out of line, so that the checks cost the histogram pass only a branch.
[[noreturn]] __attribute__((noinline, cold)) void falha(const char* mensagem) { tvm::erro(mensagem); }

// An angle in [0, 360) moved on by half a bin, so that bin 0 is centred on 0
// degrees: bin b covers [b - 1/2, b + 1/2) bins modulo 360.
inline double centraNoBin(double a, double passo) {
  const double b = a + passo * 0.5;
  return b >= 360.0 ? b - 360.0 : b;
}

// For every ring pixel, from its differences: the orientation bin of its
// gradient direction relative to its polar angle (HogAneis::quantiza without
// its range checks, which hold by construction: both angles lie in
// [0, 360)), and the gradient magnitude. The same operations as quantiza, in
// the same order; apart from the table lookup they run on whole vectors of
// pixels, which AVX2 does four at a time.
QUIVELAR_CLONES("avx2", "default") void binsEMagnitudes(int n, const int* __restrict dx, const int* __restrict dy,
                                                        const float* __restrict angulo, const float* __restrict atan,
                                                        double passo, int* __restrict bin, double* __restrict mag) {
  for (int i = 0; i < n; ++i) {
    double rel = static_cast<double>(atan[dy[i] * ladoAtan + dx[i]] - angulo[i]);
    rel = rel < 0.0 ? rel + 360.0 : rel;
    bin[i] = static_cast<int>(centraNoBin(rel, passo) / passo);
    mag[i] = std::sqrt(static_cast<double>(dx[i] * dx[i] + dy[i] * dy[i]));
  }
}

}  // namespace

void HogAneis::validaOpcoes(int naneis, int raio, int nbins, int ngauss) {
  if (naneis < 1) tvm::erro("Erro: naneis deve ser positivo: ", std::to_string(naneis));
  if (raio < 1) tvm::erro("Erro: raio deve ser positivo: ", std::to_string(raio));
  if (nbins < 1) tvm::erro("Erro: nbins deve ser positivo: ", std::to_string(nbins));
  // An even side has no centre pixel; OpenCV's Gaussian filter rejects it.
  if (ngauss < 1 || ngauss % 2 == 0) tvm::erro("Erro: ngauss deve ser impar e positivo: ", std::to_string(ngauss));
  const int64_t lado = 2 * int64_t(raio) + 1 + (ngauss / 2) * int64_t(2);
  if (lado > maxLadoPatch)
    tvm::erro("Erro: raio e ngauss grandes demais: ", std::to_string(raio) + " " + std::to_string(ngauss),
              " (lado do patch > " + std::to_string(maxLadoPatch) + ")");
  if (int64_t(naneis) * nbins > maxDescritor)
    tvm::erro("Erro: naneis x nbins grande demais: ", std::to_string(naneis) + " x " + std::to_string(nbins));
}

HogAneis::HogAneis(const NomesHog& nomes, int naneis, int raioPix, int nbins, int ngauss, bool bcinv)
    : nomes_(nomes), naneis_(naneis), raioPix_(raioPix), nbins_(nbins), bcinv_(bcinv),
      descriptorSize_(nbins * naneis), ladoNucleo_(2 * raioPix + 1), ladoPatch_(ladoNucleo_ + (ngauss / 2) * 2),
      fracNucleo_(static_cast<double>(ladoNucleo_) / static_cast<double>(ladoPatch_)), passo_(360.0 / nbins),
      gauss_(ngauss) {
  tabela_.create(ladoPatch_, ladoPatch_);
}

void HogAneis::fechaTabela() {
  contagem_.assign(naneis_, 0);
  pontos_ = PontosAnel();
  regiaoLida_ = cv::Rect();
  const tvm::IMG_<cv::Vec2f> t(tabela_);
  auto indice = [&](int l, int c) { return std::clamp(l, 0, t.nl - 1) * t.nc + std::clamp(c, 0, t.nc - 1); };
  for (int l = 0; l < t.nl; ++l)
    for (int c = 0; c < t.nc; ++c) {
      const cv::Vec2f e = t(l, c);
      if (e[1] == -1.0f) continue;
      // The table never changes, so its consistency is checked here once
      // rather than for every pixel of every keypoint.
      if (!(e[0] >= 0.0f && e[0] < 360.0f)) tvm::erro("Erro k[0]=angulo fora da faixa");
      if (!(e[1] >= 0.0f && e[1] < static_cast<float>(naneis_))) tvm::erro("Erro k[1]=aneis fora da faixa");
      const int anel = cvRound(e[1]);
      ++contagem_[anel];
      pontos_.esquerda.push_back(indice(l, c - 1));
      pontos_.direita.push_back(indice(l, c + 1));
      pontos_.acima.push_back(indice(l - 1, c));
      pontos_.abaixo.push_back(indice(l + 1, c));
      pontos_.inicioAnel.push_back(anel * nbins_);
      pontos_.angulo.push_back(e[0]);
      regiaoLida_ |= cv::Rect(c - 1, l - 1, 3, 3);
    }
  // An empty ring would divide by zero and fill its bins with NaN.
  for (int k = 0; k < naneis_; ++k)
    if (contagem_[k] == 0)
      tvm::erro("Erro: anel sem pixels: ", std::to_string(k), " (naneis grande demais para o raio)");
  regiaoLida_ &= cv::Rect(0, 0, t.nc, t.nl);
}

int HogAneis::quantiza(double a) const {
  if (!(a >= 0.0 && a < 360.0)) falha(nomes_.quantiza1);
  const double b = centraNoBin(a, passo_);
  if (!(b >= 0.0 && b < 360.0)) falha(nomes_.quantiza2);
  const int bin = static_cast<int>(b / passo_);
  if (bin < 0 || bin >= nbins_) falha(nomes_.quantizaInesperado);
  return bin;
}

void HogAneis::histograma(const cv::Mat_<uchar>& patch, cv::Mat_<float>& hist, Rascunho& r) const {
  if (patch.rows != tabela_.rows || patch.cols != tabela_.cols) tvm::erro(nomes_.tamanho);
  CV_Assert(patch.isContinuous());
  hist.create(naneis_, nbins_);
  hist = 0.0f;
  CV_Assert(hist.isContinuous());
  const uchar* px = patch[0];
  const int n = static_cast<int>(pontos_.angulo.size());
  r.dx.resize(n);
  r.dy.resize(n);
  r.bin.resize(n);
  r.mag.resize(n);
  // gx = I(x+1) - I(x-1), gy = I(y-1) - I(y+1): y up, as in the table.
  for (int i = 0; i < n; ++i) {
    r.dx[i] = px[pontos_.direita[i]] - px[pontos_.esquerda[i]];
    r.dy[i] = px[pontos_.acima[i]] - px[pontos_.abaixo[i]];
  }
  const float* atan = tabelaAtan().data() + maxDiferenca * ladoAtan + maxDiferenca;
  binsEMagnitudes(n, r.dx.data(), r.dy.data(), pontos_.angulo.data(), atan, passo_, r.bin.data(), r.mag.data());
  // In table order, so that every bin sums in the same order as always.
  float* h = hist[0];
  for (int i = 0; i < n; ++i) {
    if (static_cast<unsigned>(r.bin[i]) >= static_cast<unsigned>(nbins_)) falha(nomes_.quantizaInesperado);
    float& bin = h[pontos_.inicioAnel[i] + r.bin[i]];
    bin = static_cast<float>(bin + r.mag[i]);
  }
  for (int anel = 0; anel < naneis_; ++anel) {
    const float c = static_cast<float>(contagem_[anel]);
    float* linha = hist[anel];
    for (int b = 0; b < nbins_; ++b) linha[b] = linha[b] / c;
  }
}

void HogAneis::rihog(const cv::Mat_<uchar>& patch, cv::Mat_<float>& hist) const {
  Rascunho r;
  histograma(patch.isContinuous() ? patch : cv::Mat_<uchar>(patch.clone()), hist, r);
}

void HogAneis::linha(const cv::Mat_<uchar>& image, const cv::KeyPoint& k, float* saida, Rascunho& r) const {
  // The keypoint's diameter spans ladoNucleo pixels.
  const double escala = ladoPatch_ / (k.size * (1.0 / fracNucleo_));
  extraiPatch(image, mapaPatch(k.pt, escala, 0.0, ladoPatch_ / 2), escala, ladoPatch_, r.bruto);
  // Only the ring pixels and their neighbours are smoothed: the rest of the
  // patch is never read.
  gauss_.suaviza(r.bruto, regiaoLida_, r.patch, r.gauss);
  histograma(r.patch, r.hist, r);

  const int n = descriptorSize_;
  const float* h = r.hist[0];
  std::copy(h, h + n, saida);
  if (!bcinv_) return;
  double soma = 0.0;
  for (int i = 0; i < n; ++i) soma += saida[i];
  const double media = soma / n;
  for (int i = 0; i < n; ++i) saida[i] = static_cast<float>(saida[i] - media);
  double quadrados = 0.0;
  for (int i = 0; i < n; ++i) quadrados += static_cast<double>(saida[i]) * saida[i];
  // Divided by the mean square, not by its root, on purpose: stores written
  // by earlier runs have this scale and must stay comparable.
  const double v = quadrados / n;
  if (v > tvm::epsilon)
    for (int i = 0; i < n; ++i) saida[i] = static_cast<float>(saida[i] / v);
  else
    std::fill(saida, saida + n, 0.0f);
}

void HogAneis::compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                       cv::Mat& descriptors) const {
  preparaLinhas(keypoints, descriptors);
  paraCadaLinha<Rascunho>(static_cast<int>(keypoints.size()), [&](int i, Rascunho& r) { linha(image, keypoints[i], descriptors.ptr<float>(i), r); });
}

int RIHOG::calculaRaioPix(int naneis, int raio, int nbins, int ngauss) {
  validaOpcoes(naneis, raio, nbins, ngauss);
  const double largura = static_cast<double>(raio) / static_cast<double>(naneis);
  return static_cast<int>(largura * naneis);
}

RIHOG::RIHOG(int naneis, int raio, int nbins, int ngauss, bool bcinv)
    : HogAneis(nomesRihog, naneis, calculaRaioPix(naneis, raio, nbins, ngauss), nbins, ngauss, bcinv) {
  const double largura = static_cast<double>(raio) / static_cast<double>(naneis);
  tabela_ = cv::Vec2f(0.0f, -1.0f);
  tvm::IMG_<cv::Vec2f> t(tabela_);
  // x right, y up; ring k holds k * largura < d <= (k + 1) * largura, and the
  // centre (d = 0) falls in no ring.
  for (int x = -t.cc; x <= t.nc - t.cc - 1; ++x)
    for (int y = -(t.nl - t.lc - 1); y <= t.lc; ++y) {
      const double d = std::sqrt(static_cast<double>(x * x + y * y));
      const int anel = static_cast<int>(std::ceil(d / largura)) - 1;
      if (0 <= anel && anel < naneis)
        t(t.lc - y, t.cc + x) = cv::Vec2f(cv::fastAtan2(static_cast<float>(y), static_cast<float>(x)),
                                          static_cast<float>(anel));
    }
  fechaTabela();
}
