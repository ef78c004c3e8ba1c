// JPEG through libjpeg. libjpeg reports fatal errors through error_exit,
// which must not return: it longjmps back, so the function that calls setjmp
// owns no object with a destructor.
#include "support/formatos_diretos.hpp"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jpeglib.h>

namespace tvm {

namespace {

struct ErroJpeg {
  jpeg_error_mgr base;  // first, so libjpeg's pointer to it is a pointer to us
  std::jmp_buf salto;
  bool aviso;
};

[[noreturn]] void falhaJpeg(j_common_ptr info) { std::longjmp(reinterpret_cast<ErroJpeg*>(info->err)->salto, 1); }

// Level -1 is a warning (corrupt or premature end of data): imread would
// still return an image, patched by libjpeg; let it do so itself. Higher
// levels are trace messages.
void mensagemJpeg(j_common_ptr info, int nivel) {
  if (nivel < 0) reinterpret_cast<ErroJpeg*>(info->err)->aviso = true;
}

constexpr int kApp1 = JPEG_APP0 + 1;

// libjpeg converts to grey or to BGR itself, as imread asks it to. imread
// also reads an Exif block (APP1) to turn the image, and converts CMYK by its
// own formula; those files are refused.
bool decodificaJpeg(jpeg_decompress_struct* info, FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas) {
  if (setjmp(reinterpret_cast<ErroJpeg*>(info->err)->salto)) return false;
  jpeg_create_decompress(info);
  jpeg_stdio_src(info, f);
  jpeg_save_markers(info, kApp1, 0xffff);
  jpeg_read_header(info, TRUE);
  if (info->num_components != 1 && info->num_components != 3) return false;
  for (jpeg_saved_marker_ptr m = info->marker_list; m; m = m->next)
    if (m->marker == kApp1) return false;
  // Motion-JPEG frames carry no Huffman tables; imread supplies its own.
  if (!info->ac_huff_tbl_ptrs[0] && !info->ac_huff_tbl_ptrs[1] && !info->dc_huff_tbl_ptrs[0] &&
      !info->dc_huff_tbl_ptrs[1])
    return false;

  info->out_color_space = cor ? JCS_EXT_BGR : JCS_GRAYSCALE;
  info->out_color_components = cor ? 3 : 1;
  jpeg_calc_output_dimensions(info);
  if (!tamanhoAceito(info->output_width, info->output_height, declaradas)) return false;

  jpeg_start_decompress(info);
  if (static_cast<int>(info->output_components) != (cor ? 3 : 1)) return false;
  out.create(static_cast<int>(info->output_height), static_cast<int>(info->output_width), cor ? CV_8UC3 : CV_8UC1);
  for (int y = 0; y < out.rows; ++y) {
    JSAMPROW linha = out.ptr<uchar>(y);
    if (jpeg_read_scanlines(info, &linha, 1) != 1) return false;
  }
  jpeg_finish_decompress(info);
  return true;
}

// Into memory libjpeg allocates; the caller frees it.
bool comprimeJpeg(jpeg_compress_struct* info, const cv::Mat& bgr, int qualidade, unsigned char** dados,
                  unsigned long* tamanho) {
  if (setjmp(reinterpret_cast<ErroJpeg*>(info->err)->salto)) return false;
  jpeg_create_compress(info);
  jpeg_mem_dest(info, dados, tamanho);
  info->image_width = static_cast<JDIMENSION>(bgr.cols);
  info->image_height = static_cast<JDIMENSION>(bgr.rows);
  info->input_components = 3;
  info->in_color_space = JCS_EXT_BGR;
  jpeg_set_defaults(info);
  jpeg_set_quality(info, qualidade, TRUE);
  jpeg_start_compress(info, TRUE);
  for (int y = 0; y < bgr.rows; ++y) {
    JSAMPROW linha = const_cast<uchar*>(bgr.ptr<uchar>(y));
    jpeg_write_scanlines(info, &linha, 1);
  }
  jpeg_finish_compress(info);
  return true;
}

}  // namespace

bool codificaJpeg(const cv::Mat& imagem, int qualidade, std::vector<uchar>& bytes) {
  bytes.clear();
  if (imagem.type() != CV_8UC3 || imagem.empty()) return false;
  jpeg_compress_struct info{};
  ErroJpeg erro{};
  info.err = jpeg_std_error(&erro.base);
  erro.base.error_exit = falhaJpeg;
  erro.base.emit_message = mensagemJpeg;
  unsigned char* dados = nullptr;
  unsigned long tamanho = 0;
  const bool ok = comprimeJpeg(&info, imagem, qualidade, &dados, &tamanho);
  jpeg_destroy_compress(&info);
  if (ok && dados) bytes.assign(dados, dados + tamanho);
  std::free(dados);
  return ok && !bytes.empty();
}

bool leJpeg(FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas) {
  jpeg_decompress_struct info{};
  ErroJpeg erro{};
  info.err = jpeg_std_error(&erro.base);
  erro.base.error_exit = falhaJpeg;
  erro.base.emit_message = mensagemJpeg;
  const bool ok = decodificaJpeg(&info, f, cor, out, declaradas) && !erro.aviso;
  jpeg_destroy_decompress(&info);
  return ok;
}

}  // namespace tvm
