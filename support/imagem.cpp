#include "support/imagem.hpp"

#include "support/argumentos.hpp"
#include "support/arquivos.hpp"
#include "support/codecs_plugin.hpp"
#include "support/decodifica.hpp"
#include "support/erro.hpp"
#include "support/limites.hpp"
#include "support/plugin.hpp"

#include <opencv2/imgcodecs.hpp>

#include <cstdlib>
#include <string>

namespace tvm {

namespace {

cv::Mat leArquivo(const std::string& file, int modo) {
  cv::Mat lida;
  if (decodificaDireto(file, modo, lida)) return lida;
  // imread reads its pixel limit once, when the plug-in loads: ours then
  // holds for every format, checked on the header before decoding.
  static const LeImagem leImagem = [] {
    ::setenv("OPENCV_IO_MAX_IMAGE_PIXELS", std::to_string(limitePixels()).c_str(), 1);
    return funcaoPlugin<LeImagem>(kPluginCodecs, "quivelarLeImagem");
  }();
  if (!leImagem(file.c_str(), modo, &lida)) erro("Erro abertura arquivo ", file);
  return lida;
}

// imwrite chooses the format by the extension, in any case; "" when the
// name has none, which no encoder takes.
std::string extensao(const std::string& file) {
  const size_t ponto = file.find_last_of('.'), barra = file.find_last_of('/');
  if (ponto == std::string::npos || (barra != std::string::npos && ponto < barra)) return "";
  return file.substr(ponto);
}

}  // namespace

void le(cv::Mat_<uchar>& image, const std::string& file) { image = leArquivo(file, cv::IMREAD_GRAYSCALE); }

void le(cv::Mat_<cv::Vec3b>& image, const std::string& file) { image = leArquivo(file, cv::IMREAD_COLOR); }

cv::Size tamanho(const std::string& file) {
  cv::Size s;
  if (tamanhoDireto(file, s)) return s;
  return leArquivo(file, cv::IMREAD_GRAYSCALE).size();
}

void imp(const cv::Mat_<cv::Vec3b>& image, const std::string& file) {
  SaidaSegura saida(file);
  imp(image, saida);
  saida.confirma();
}

void imp(const cv::Mat_<cv::Vec3b>& image, SaidaSegura& saida) {
  const std::string& file = saida.destino();
  if (image.empty()) erro("Erro: imagem vazia para ", file);
  const cv::Mat imagem = image;
  const std::string ext = extensao(file);
  std::vector<uchar> bytes;
  bool codificada = false;
  if (minuscula(ext) == ".png") {
    codificada = codificaPng(imagem, bytes);
  } else {
    static const CodificaImagem codifica = funcaoPlugin<CodificaImagem>(kPluginCodecs, "quivelarCodificaImagem");
    codificada = codifica(ext.c_str(), &imagem, &bytes);
  }
  if (!codificada) erro("Erro abertura arquivo ", file);
  saida.escreve(bytes.data(), bytes.size());
}

void converte(const cv::Mat_<uchar>& in, cv::Mat_<cv::Vec3b>& out) {
  out.create(in.rows, in.cols);
  for (int r = 0; r < in.rows; ++r) {
    const uchar* origem = in[r];
    cv::Vec3b* destino = out[r];
    for (int c = 0; c < in.cols; ++c) destino[c] = cv::Vec3b(origem[c], origem[c], origem[c]);
  }
}

void converte(const cv::Mat_<uchar>& in, cv::Mat_<std::complex<float>>& out) {
  out.create(in.rows, in.cols);
  for (int r = 0; r < in.rows; ++r) {
    const uchar* origem = in[r];
    std::complex<float>* destino = out[r];
    for (int c = 0; c < in.cols; ++c) destino[c] = std::complex<float>(origem[c], 0.0f);
  }
}

cv::Mat_<uchar> grudaV(const cv::Mat_<uchar>& top, const cv::Mat_<uchar>& bottom, int gap, uchar fill) {
  if (gap < 0) erro("Erro grudaV: espacamento negativo");
  cv::Mat_<uchar> junta(top.rows + gap + bottom.rows, std::max(top.cols, bottom.cols), fill);
  top.copyTo(junta(cv::Rect(0, 0, top.cols, top.rows)));
  bottom.copyTo(junta(cv::Rect(0, top.rows + gap, bottom.cols, bottom.rows)));
  return junta;
}

}  // namespace tvm
