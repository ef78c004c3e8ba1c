#include "datasets/sintetica.hpp"

#include "formats/csv.hpp"
#include "support/arquivos.hpp"
#include "support/decodifica.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <opencv2/imgproc.hpp>

#include <jpeglib.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <memory>
#include <vector>

namespace datasets {

namespace {

constexpr double kPi = 3.14159265358979323846;

cv::Matx33d emTornoDoCentro(const cv::Matx33d& m, cv::Point2d c) {
  const cv::Matx33d ida(1, 0, -c.x, 0, 1, -c.y, 0, 0, 1), volta(1, 0, c.x, 0, 1, c.y, 0, 0, 1);
  return volta * m * ida;
}

// A standard normal from the shared generator (Box-Muller), so that the
// noise depends on the seed alone.
double normal() {
  const double u1 = (tvm::myrandom.rand() + 1.0) / 2147483649.0;
  const double u2 = tvm::myrandom.rand() / 2147483648.0;
  return std::sqrt(-2 * std::log(u1)) * std::cos(2 * kPi * u2);
}

struct ErroJpeg {
  jpeg_error_mgr base;  // first, so libjpeg's pointer to it is a pointer to us
  std::jmp_buf salto;
};

[[noreturn]] void falhaJpeg(j_common_ptr info) { std::longjmp(reinterpret_cast<ErroJpeg*>(info->err)->salto, 1); }

// The image after a JPEG round trip at `qualidade`, through libjpeg in memory.
// No C++ object with a destructor lives between setjmp and the calls that
// may jump back.
bool idaEVoltaJpeg(cv::Mat_<uchar>& img, int qualidade) {
  ErroJpeg erro;
  jpeg_compress_struct c;
  jpeg_decompress_struct d;
  unsigned char* buffer = nullptr;
  unsigned long tamanho = 0;
  c.err = jpeg_std_error(&erro.base);
  d.err = &erro.base;
  erro.base.error_exit = falhaJpeg;
  bool criouC = false, criouD = false;
  if (setjmp(erro.salto)) {
    if (criouC) jpeg_destroy_compress(&c);
    if (criouD) jpeg_destroy_decompress(&d);
    std::free(buffer);
    return false;
  }
  jpeg_create_compress(&c);
  criouC = true;
  jpeg_mem_dest(&c, &buffer, &tamanho);
  c.image_width = img.cols;
  c.image_height = img.rows;
  c.input_components = 1;
  c.in_color_space = JCS_GRAYSCALE;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, qualidade, TRUE);
  jpeg_start_compress(&c, TRUE);
  while (c.next_scanline < c.image_height) {
    JSAMPROW linha = img.ptr(c.next_scanline);
    jpeg_write_scanlines(&c, &linha, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  criouC = false;

  jpeg_create_decompress(&d);
  criouD = true;
  jpeg_mem_src(&d, buffer, tamanho);
  jpeg_read_header(&d, TRUE);
  d.out_color_space = JCS_GRAYSCALE;
  jpeg_start_decompress(&d);
  while (d.output_scanline < d.output_height) {
    JSAMPROW linha = img.ptr(d.output_scanline);
    jpeg_read_scanlines(&d, &linha, 1);
  }
  jpeg_finish_decompress(&d);
  jpeg_destroy_decompress(&d);
  std::free(buffer);
  return true;
}

}  // namespace

void ParamSint::confere() const {
  if (vistas < 2 || vistas > 100) tvm::erro("Erro: n fora do intervalo (2 a 100)");
  if (!(escala > 0)) tvm::erro("Erro: escala deve ser positiva");
  if (!(std::fabs(vista) < 80)) tvm::erro("Erro: vista fora do intervalo (-80 a 80 graus)");
  if (!(contraste > 0)) tvm::erro("Erro: contraste deve ser positivo");
  if (!(gama > 0)) tvm::erro("Erro: gama deve ser positivo");
  if (!(blur >= 0 && blur <= 100)) tvm::erro("Erro: blur fora do intervalo (0 a 100)");
  if (!(ruido >= 0 && ruido <= 1000)) tvm::erro("Erro: ruido fora do intervalo (0 a 1000)");
  if (jpeg < 1 || jpeg > 100) tvm::erro("Erro: jpeg fora do intervalo (1 a 100)");
  for (double v : {rotacao, brilho})
    if (!std::isfinite(v)) tvm::erro("Erro: parametro nao finito");
}

cv::Matx33d transformacaoSint(cv::Size tamanho, const ParamSint& p, double t) {
  const cv::Point2d c((tamanho.width - 1) / 2.0, (tamanho.height - 1) / 2.0);
  // Counter-clockwise on screen is a negative angle with y down.
  const double a = -p.rotacao * t * kPi / 180;
  const cv::Matx33d rot(std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1);
  const double s = std::pow(p.escala, t);
  const cv::Matx33d esc(s, 0, 0, 0, s, 0, 0, 0, 1);
  // A camera turned by b about its vertical axis sees K R K^-1; moving the
  // image centre back to the centre keeps the view on the scene.
  const double b = p.vista * t * kPi / 180, f = std::max(tamanho.width, tamanho.height);
  const cv::Matx33d giro(std::cos(b), 0, std::sin(b) * f, 0, 1, 0, -std::sin(b) / f, 0, std::cos(b));
  const cv::Vec3d centro = giro * cv::Vec3d(0, 0, 1);
  const cv::Matx33d recentra(1, 0, -centro[0] / centro[2], 0, 1, -centro[1] / centro[2], 0, 0, 1);
  cv::Matx33d H = emTornoDoCentro(recentra * giro * esc * rot, c);
  return H * (1 / H(2, 2));
}

cv::Mat_<uchar> vistaSint(const cv::Mat_<uchar>& fonte, const ParamSint& p, double t) {
  cv::Mat_<float> v;
  if (t == 0) {
    fonte.convertTo(v, CV_32F);
  } else {
    cv::Mat_<uchar> torta;
    cv::warpPerspective(fonte, torta, cv::Mat(transformacaoSint(fonte.size(), p, t)), fonte.size(), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, 0);
    torta.convertTo(v, CV_32F);
  }
  if (p.blur > 0 && t > 0) cv::GaussianBlur(v, v, cv::Size(), p.blur * t);
  const double contraste = std::pow(p.contraste, t), gama = std::pow(p.gama, t);
  const bool comRuido = p.ruido > 0 && t > 0;
  for (int y = 0; y < v.rows; ++y)
    for (int x = 0; x < v.cols; ++x) {
      double g = std::min(255.0, std::max(0.0, contraste * v(y, x) + p.brilho * t));
      if (gama != 1) g = 255 * std::pow(g / 255, gama);
      if (comRuido) g += normal() * p.ruido * t;
      v(y, x) = static_cast<float>(g);
    }
  cv::Mat_<uchar> saida;
  v.convertTo(saida, CV_8U);
  const int qualidade = static_cast<int>(std::lround(100 - t * (100 - p.jpeg)));
  if (qualidade < 100 && !idaEVoltaJpeg(saida, qualidade)) tvm::erro("Erro: falha na compressao JPEG");
  return saida;
}

void escreveSequencia(const cv::Mat_<uchar>& fonte, const std::string& pasta, const ParamSint& p) {
  p.confere();
  tvm::criaPastas(pasta);
  tvm::myrandom.srand(p.seed);
  // Every file is confirmed only once all are written: a failure leaves
  // none of the new ones.
  std::vector<std::unique_ptr<tvm::SaidaSegura>> saidas;
  for (int k = 1; k <= p.vistas; ++k) {
    const double t = (k - 1.0) / (p.vistas - 1);
    const std::string imagem = pasta + "/img" + std::to_string(k) + ".png";
    saidas.push_back(std::make_unique<tvm::SaidaSegura>(imagem));
    std::vector<uchar> png;
    if (!tvm::codificaPng(vistaSint(fonte, p, t), png)) tvm::erro("Erro: nao foi possivel gravar ", imagem);
    saidas.back()->escreve(png.data(), png.size());
    if (k == 1) continue;
    const cv::Matx33d H = transformacaoSint(fonte.size(), p, t);
    std::string texto;
    for (int i = 0; i < 3; ++i) {
      char linha[128];
      std::snprintf(linha, sizeof linha, "%.17g %.17g %.17g\n", H(i, 0), H(i, 1), H(i, 2));
      texto += linha;
    }
    saidas.push_back(std::make_unique<tvm::SaidaSegura>(pasta + "/H1to" + std::to_string(k) + "p"));
    formats::escreveTexto(*saidas.back(), texto);
  }
  for (auto& s : saidas) s->confirma();
}

}  // namespace datasets
