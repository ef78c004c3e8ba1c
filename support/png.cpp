// PNG through libpng. libpng reports errors by longjmp: the functions that
// call setjmp own no object with a destructor, and no exception passes
// through libpng.
#include "support/arquivos.hpp"
#include "support/decodifica.hpp"
#include "support/formatos_diretos.hpp"

#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <vector>

namespace tvm {

namespace {

[[noreturn]] void falhaPng(png_structp png, png_const_charp) { png_longjmp(png, 1); }

// A warning (bad ancillary checksum, extra data) means imread may behave in
// ways we do not copy: refuse the file.
void avisoPng(png_structp png, png_const_charp) { *static_cast<bool*>(png_get_error_ptr(png)) = true; }

// The transformations imread asks for: 16 bits cut to 8, alpha dropped,
// palette and 1/2/4-bit grey expanded, then BGR order, grey to three
// channels, or colour to grey with libpng's weights 0.299 and 0.587 (its
// own rounding, and its gamma handling when the file has a gAMA chunk).
bool decodificaPng(png_structp png, png_infop info, png_infop fim, FILE* f, bool cor, cv::Mat& out,
                   Dimensoes& declaradas) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, f);
  png_read_info(png, info);
  png_uint_32 largura = 0, altura = 0;
  int bits = 0, tipo = 0;
  png_get_IHDR(png, info, &largura, &altura, &bits, &tipo, nullptr, nullptr, nullptr);
  if (!tamanhoAceito(largura, altura, declaradas)) return false;

  if (bits == 16) png_set_strip_16(png);
  png_set_strip_alpha(png);
  if (tipo == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if ((tipo & PNG_COLOR_MASK_COLOR) == 0 && bits < 8) png_set_expand_gray_1_2_4_to_8(png);
  if ((tipo & PNG_COLOR_MASK_COLOR) != 0 && cor)
    png_set_bgr(png);
  else if (cor)
    png_set_gray_to_rgb(png);
  else
    png_set_rgb_to_gray(png, PNG_ERROR_ACTION_NONE, 0.299, 0.587);
  const int passadas = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const int canais = cor ? 3 : 1;
  if (png_get_bit_depth(png, info) != 8 || png_get_channels(png, info) != canais) return false;

  out.create(static_cast<int>(altura), static_cast<int>(largura), CV_8UC(canais));
  for (int p = 0; p < passadas; ++p)
    for (int y = 0; y < out.rows; ++y) png_read_row(png, out.ptr<uchar>(y), nullptr);
  png_read_end(png, fim);
  // imread turns the image as an eXIf chunk says.
  return !png_get_valid(png, info, PNG_INFO_eXIf) && !png_get_valid(png, fim, PNG_INFO_eXIf);
}

// libpng hands the encoded bytes here; no exception may cross libpng.
void acrescenta(png_structp png, png_bytep dados, png_size_t n) {
  auto* bytes = static_cast<std::vector<uchar>*>(png_get_io_ptr(png));
  bool coube = true;
  try {
    bytes->insert(bytes->end(), dados, dados + n);
  } catch (...) {
    coube = false;
  }
  if (!coube) png_error(png, "memoria");
}

void nadaAEsvaziar(png_structp) {}

// imwrite's defaults: the Sub filter, zlib level 1 and the RLE strategy.
bool gravaPng(png_structp png, png_infop info, std::vector<uchar>* bytes, const cv::Mat& image) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_write_fn(png, bytes, acrescenta, nadaAEsvaziar);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
  png_set_compression_level(png, Z_BEST_SPEED);
  png_set_compression_strategy(png, Z_RLE);
  png_set_IHDR(png, info, image.cols, image.rows, 8, image.channels() == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_bgr(png);
  for (int y = 0; y < image.rows; ++y) png_write_row(png, image.ptr<uchar>(y));
  png_write_end(png, info);
  return true;
}

}  // namespace

bool lePng(FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas) {
  bool aviso = false;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &aviso, falhaPng, avisoPng);
  if (!png) return false;
  png_infop info = png_create_info_struct(png);
  png_infop fim = png_create_info_struct(png);
  const bool ok = info && fim && decodificaPng(png, info, fim, f, cor, out, declaradas) && !aviso;
  png_destroy_read_struct(&png, &info, &fim);
  return ok;
}

bool codificaPng(const cv::Mat& image, std::vector<uchar>& bytes) {
  bytes.clear();
  if (image.empty() || (image.type() != CV_8UC1 && image.type() != CV_8UC3)) return false;
  bool aviso = false;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &aviso, falhaPng, avisoPng);
  if (!png) return false;
  png_infop info = png_create_info_struct(png);
  const bool ok = info && gravaPng(png, info, &bytes, image);
  png_destroy_write_struct(&png, &info);
  return ok;
}

}  // namespace tvm
