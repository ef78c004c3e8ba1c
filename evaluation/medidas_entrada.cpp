#include "evaluation/medidas_entrada.hpp"

#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "formats/transform.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>

namespace evaluation {

measures::Verdade leTransformacao(const std::string& mat33) {
  cv::Mat M, Minv;
  formats::leMat33(M, mat33);
  // Singular values spread by twelve orders of magnitude: the plane is
  // crushed to a line at double precision.
  cv::Mat w;
  cv::SVD::compute(M, w, cv::SVD::NO_UV);
  if (!(w.at<double>(2) > 1e-12 * w.at<double>(0)) || !cv::invert(M, Minv, cv::DECOMP_LU))
    tvm::erro("Erro: transformacao singular em ", mat33);
  if (!cv::checkRange(Minv)) tvm::erro("Erro: transformacao singular em ", mat33);
  measures::Verdade v;
  v.H = cv::Matx33d(M);
  v.Hinv = cv::Matx33d(Minv);
  return v;
}

Geometria leGeometria(const std::string& img1, const std::string& img2, const std::string& mat33) {
  Geometria g;
  g.img1 = tvm::tamanho(img1);
  g.img2 = tvm::tamanho(img2);
  g.verdade = leTransformacao(mat33);
  return g;
}

void confereKeyPoints(const std::vector<cv::KeyPoint>& k, cv::Size img, const std::string& arquivo,
                      const std::string& imagem) {
  for (const cv::KeyPoint& p : k) {
    if (!(p.size > 0) || !std::isfinite(p.size)) tvm::erro("Erro: keypoint de tamanho invalido em ", arquivo);
    if (!(p.pt.x >= -0.5f && p.pt.x <= img.width - 0.5f && p.pt.y >= -0.5f && p.pt.y <= img.height - 0.5f))
      tvm::erro("Erro: keypoint fora da imagem ", imagem, " em " + arquivo);
  }
}

ParMedido leParMedido(char** argv, int mat33) {
  const char *img1 = argv[1], *img2 = argv[2], *key1 = argv[3], *key2 = argv[4];
  ParMedido p{leGeometria(img1, img2, argv[mat33]), formats::leKeyPoints(key1), formats::leKeyPoints(key2)};
  confereKeyPoints(p.k1, p.img1, key1, img1);
  confereKeyPoints(p.k2, p.img2, key2, img2);
  return p;
}

void restauraDaStore(const std::vector<cv::KeyPoint>& store, std::vector<cv::KeyPoint>& lidos) {
  // Keys by bits: NaN angles or responses still order and compare.
  using Chave = std::array<uint32_t, 7>;
  const auto chave = [](const cv::KeyPoint& k) {
    Chave c{};
    const float campos[5] = {k.pt.x, k.pt.y, k.size, k.angle, k.response};
    std::memcpy(c.data(), campos, sizeof campos);
    c[5] = static_cast<uint32_t>(k.octave);
    c[6] = static_cast<uint32_t>(k.class_id);
    return c;
  };
  // Text -> the one store keypoint it stands for, or none when two differ.
  std::map<Chave, std::optional<cv::KeyPoint>> porTexto;
  for (const cv::KeyPoint& k : store) {
    const auto [lugar, novo] = porTexto.try_emplace(chave(formats::comoNoArquivo(k)), k);
    if (!novo && lugar->second && chave(*lugar->second) != chave(k)) lugar->second.reset();
  }
  for (cv::KeyPoint& k : lidos) {
    const auto lugar = porTexto.find(chave(k));
    if (lugar != porTexto.end() && lugar->second) k = *lugar->second;
  }
}

void leOpcoesMedida(tvm::ISTR& opcoes, OpcoesMedida& op) {
  tvm::seekArg(opcoes, "erro", op.erro);
  if (!(op.erro > 0 && op.erro < 100)) tvm::erro("Erro: erro fora do intervalo (0 a 100)");
  std::string comum = "ambas";
  tvm::seekArg(opcoes, "comum", comum);
  if (comum == "ambas")
    op.comum = measures::ParteComum::ambas;
  else if (comum == "opencv")
    op.comum = measures::ParteComum::opencv;
  else
    tvm::erro("Erro: comum deve ser ambas ou opencv: ", comum);
  tvm::seekArg(opcoes, "csv", op.csv);
}

std::string texto(const measures::Medida& m) {
  if (!m) return "NA";
  char s[64];
  std::snprintf(s, sizeof s, "%.6f", *m);
  return s;
}

}  // namespace evaluation
