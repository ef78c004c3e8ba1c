// DesSift and DesSurf: descriptors by the library's SIFT and by our SURF, on
// the keypoints of a store or, without one, on keypoints the same algorithm
// detects.
#include "descriptors/des_sift.hpp"
#include "descriptors/frame.hpp"
#include "descriptors/patch.hpp"
#include "descriptors/tools.hpp"
#include "features/memoria.hpp"
#include "features/sift.hpp"
#include "features/surf.hpp"
#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/numeros.hpp"

#include <opencv2/features2d.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace {

// The count is that of the keypoints given or detected; compute may drop
// some, and the store keeps only those that remain.
void mostraContagem(const std::vector<cv::KeyPoint>& keypoints) {
  std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints.size()));
  for (size_t i = 0; i < keypoints.size(); ++i) validaKeyPoint(keypoints[i], i);
}

}  // namespace

namespace descriptors {

namespace {

// Past a hundred turns an angle is no direction anyone meant but a damaged
// store (1e10 reached OpenCV's histogram indices and crashed it); within
// them a float still resolves a hundredth of a degree.
constexpr float kMaiorAngulo = 36000.0f;

// The octave and the scale OpenCV's SIFT reads from a keypoint's packed octave.
struct OitavaSift {
  int oitava, camada;
  float escala;  // from image pixels to the pixels of the octave's level
};

OitavaSift oitavaSift(const cv::KeyPoint& k) {
  const int oitava = static_cast<signed char>(k.octave & 255);
  const float escala = oitava >= 0 ? 1.0f / static_cast<float>(1 << oitava) : static_cast<float>(1 << -oitava);
  return {oitava, (k.octave >> 8) & 255, escala};
}

// OpenCV's SIFT descriptor samples a window of radius round(5.3 x size) in
// its level's pixels, cut to the level's diagonal, and keeps its 128 raw
// bins in a buffer of (2r + 1)^2 floats: below r = 6 it writes past that
// buffer and corrupts the heap. Computed as OpenCV computes it.
constexpr int kMenorRaio = 6;

int raioSift(float size, float escala) {
  const float largura = 3.0f * (size * escala * 0.5f);
  return cvRound(largura * 1.4142135623730951f * 5 * 0.5f);
}

}  // namespace

// What OpenCV's SIFT needs of given keypoints and does not check itself: its
// window radius (above) at least 6 and an int; the octave packed in a
// keypoint picks a pyramid level, which must exist for this image (the levels
// SIFT's own detection would use); the angle within kMaiorAngulo.
void verificaParaSift(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                      const std::string& arquivoImagem, const std::string& arquivoKeys) {
  if (image.rows < 4 || image.cols < 4) tvm::erro("Erro: imagem pequena demais para SIFT ", arquivoImagem);
  constexpr float kMaiorTamanho = 1e8f;
  const int maiorOitava = cvRound(std::log2(std::min(image.rows, image.cols))) - 2;
  int primeira = 0;
  for (const cv::KeyPoint& k : keypoints) primeira = std::min(primeira, oitavaSift(k).oitava);
  const auto invalido = [&](size_t i, const std::string& o_que) {
    tvm::erro("Erro: keypoint ", std::to_string(i) + " de " + arquivoKeys, " " + o_que);
  };
  for (size_t i = 0; i < keypoints.size(); ++i) {
    const cv::KeyPoint& k = keypoints[i];
    const OitavaSift o = oitavaSift(k);
    if (k.size > kMaiorTamanho || o.oitava < -1 || o.oitava > maiorOitava || o.camada > 5)
      invalido(i, "com tamanho ou oitava invalida para SIFT");
    if (!(std::abs(k.angle) <= kMaiorAngulo))
      invalido(i, "com angulo " + tvm::textoDeNumero(k.angle) + " fora de -36000..36000 graus");
    // The level's sides: the image, doubled when some keypoint asks for
    // octave -1, then halved (rounding down) once per octave.
    int colunas = image.cols << -primeira, linhas = image.rows << -primeira;
    for (int n = primeira; n < o.oitava; ++n) colunas /= 2, linhas /= 2;
    const int diagonal = static_cast<int>(std::sqrt(double(colunas) * colunas + double(linhas) * linhas));
    if (diagonal < kMenorRaio)
      tvm::erro("Erro: imagem pequena demais para SIFT na oitava ", std::to_string(o.oitava) + " de " + arquivoImagem);
    // round(5.3 x size x escala) >= 6 from 5.5 / 5.3 up.
    if (raioSift(k.size, o.escala) < kMenorRaio)
      invalido(i, "com tamanho " + tvm::textoDeNumero(k.size) + " pequeno demais para SIFT (minimo " +
                      tvm::textoDeNumero(5.5 / (5.3033 * o.escala)) + " na oitava " + std::to_string(o.oitava) + ")");
  }
}

// OpenCV's SIFT turns a keypoint's direction into histogram bins with a
// single wrap, right only for angles in 0..360: the same direction written
// as -80 or 640 would describe differently from 280. The copy it is given
// holds every angle brought into [0, 360).
std::vector<cv::KeyPoint> angulosEm0a360(std::vector<cv::KeyPoint> keypoints) {
  for (cv::KeyPoint& k : keypoints) {
    float a = static_cast<float>(std::fmod(static_cast<double>(k.angle), 360.0));
    if (a < 0.0f) a += 360.0f;
    k.angle = a >= 360.0f ? 0.0f : a;  // a tiny negative angle plus 360 may round to 360
  }
  return keypoints;
}

}  // namespace descriptors

void DesSift(int argc, char** argv) {
  if (argc != 3 && argc != 4) tvm::falhaUso({"DesSift a.pgm DesA.xml [KeyA.xml]"});
  cv::Mat_<uchar> image;
  tvm::le(image, argv[1]);
  features::verificaMemoriaDetector(features::Detector::sift, image.size(), argv[1]);
  std::vector<cv::KeyPoint> keypoints = argc == 4 ? formats::leKeyPoints(argv[3]) : features::detectaSift(image);
  mostraContagem(keypoints);
  const size_t dados = keypoints.size();
  // With no keypoint OpenCV still sizes a pyramid from the image, and fails
  // on one of a few pixels; the store is the same without it.
  cv::Mat descriptors(0, features::criaSift()->descriptorSize(), CV_32F);
  if (!keypoints.empty()) {
    descriptors::verificaParaSift(image, keypoints, argv[1], argc == 4 ? argv[3] : argv[1]);
    // compute keeps every given keypoint (there is no mask), so row i still
    // describes keypoints[i], written with its angle as it was read.
    std::vector<cv::KeyPoint> usados = descriptors::angulosEm0a360(keypoints);
    features::criaSift()->compute(image, usados, descriptors);
  }
  formats::impDescritores(argv[2], keypoints, descriptors);
  avisaStore(argv[2], dados, descriptors);
}

void DesSurf(int argc, char** argv) {
  if (argc != 3 && argc != 4) tvm::falhaUso({"DesSurf a.pgm DesA.xml [KeyA.xml]"});
  cv::Mat_<uchar> image;
  tvm::le(image, argv[1]);
  std::vector<cv::KeyPoint> keypoints;
  if (argc == 4) {
    keypoints = formats::leKeyPoints(argv[3]);
  } else {
    features::verificaMemoriaDetector(features::Detector::surf, image.size(), argv[1]);
    features::SURF().detect(image, keypoints);
  }
  mostraContagem(keypoints);
  const size_t dados = keypoints.size();
  cv::Mat descriptors;
  features::SURF().compute(image, keypoints, descriptors);
  formats::impDescritores(argv[2], keypoints, descriptors);
  avisaStore(argv[2], dados, descriptors);
}
