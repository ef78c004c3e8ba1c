// Direct PNG/JPEG/PGM/PPM decoding: for every file it accepts it must give
// exactly imread's pixels, and every file it refuses must still reach imread
// through tvm::le.
#include "support/decodifica.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/mesmos_bits.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <png.h>

#include <functional>

namespace {

const int kLinhas = 23, kColunas = 41;  // odd sizes: row padding shows

// 8 bits: smooth channels; 16 bits: random samples, so the low byte must not
// leak into the 8-bit result; no channel: a board of two levels.
cv::Mat amostra(int canais, int bits = 8) {
  if (canais == 0) return teste::xadrez(kLinhas, kColunas, 3);
  cv::Mat m;
  if (bits == 16) {
    m.create(kLinhas, kColunas, CV_16UC(canais));
    cv::RNG(5).fill(m, cv::RNG::UNIFORM, 0, 65536);
    return m;
  }
  std::vector<cv::Mat> c = {teste::textura(kLinhas, kColunas, 2), teste::discos(kLinhas, kColunas, 3),
                            teste::textura(kLinhas, kColunas, 4), teste::discos(kLinhas, kColunas, 6)};
  c.resize(canais);
  cv::merge(c, m);
  return m;
}

std::string bytes(std::initializer_list<int> b) { return std::string(b.begin(), b.end()); }

// A TIFF block saying "turn 90 degrees" (orientation 6), as carried by Exif.
const std::string kTiffOrientacao6 =
    bytes({'I', 'I', 0x2A, 0, 8, 0, 0, 0, 1, 0, 0x12, 0x01, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0});

using Escritor = std::function<void(const std::string&)>;

// A JPEG with an Exif APP1 segment right after the start marker.
void jpegComExif(const std::string& arquivo) {
  std::vector<uchar> jpeg;
  cv::imencode(".jpg", amostra(3), jpeg);
  const std::string dados = std::string("Exif\0\0", 6) + kTiffOrientacao6, original(jpeg.begin(), jpeg.end());
  const int tamanho = static_cast<int>(dados.size()) + 2;
  teste::escreveTexto(arquivo, original.substr(0, 2) + bytes({0xFF, 0xE1, tamanho >> 8, tamanho & 0xFF}) + dados +
                                   original.substr(2));
}

// The PNG forms imwrite cannot make, written with libpng: random samples of
// any colour type and depth, palettes with transparency, interlacing, a gAMA
// chunk (which changes libpng's colour-to-grey arithmetic) and eXIf.
struct FormaPng {
  int tipo, bits;
  bool entrelacada = false, gama = false, exif = false;
};

Escritor png(FormaPng forma) {
  return [=](const std::string& arquivo) {
    FILE* f = std::fopen(arquivo.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    const int entrelacamento = forma.entrelacada ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE;
    png_set_IHDR(png, info, kColunas, kLinhas, forma.bits, forma.tipo, entrelacamento, 0, 0);  // default methods
    cv::RNG rng(7);
    if (forma.tipo == PNG_COLOR_TYPE_PALETTE) {
      std::vector<png_color> paleta(1 << forma.bits);
      for (png_color& c : paleta) c = {uchar(rng.next()), uchar(rng.next()), uchar(rng.next())};
      png_set_PLTE(png, info, paleta.data(), static_cast<int>(paleta.size()));
      std::vector<png_byte> alfa(paleta.size() / 2, 100);
      png_set_tRNS(png, info, alfa.data(), static_cast<int>(alfa.size()), nullptr);
    }
    if (forma.gama) png_set_gAMA(png, info, 1 / 2.2);
    if (forma.exif)
      png_set_eXIf_1(png, info, static_cast<png_uint_32>(kTiffOrientacao6.size()), (png_bytep)kTiffOrientacao6.data());
    png_write_info(png, info);
    cv::Mat linhas(kLinhas, (kColunas * png_get_channels(png, info) * forma.bits + 7) / 8, CV_8U);
    rng.fill(linhas, cv::RNG::UNIFORM, 0, 256);
    std::vector<png_bytep> ponteiros;
    for (int y = 0; y < kLinhas; ++y) ponteiros.push_back(linhas.ptr(y));
    png_set_interlace_handling(png);
    png_write_image(png, ponteiros.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
  };
}

Escritor imwrite(int canais, int bits = 8, std::vector<int> parametros = {}) {
  return [=](const std::string& arquivo) { ASSERT_TRUE(cv::imwrite(arquivo, amostra(canais, bits), parametros)); };
}

Escritor texto(std::string conteudo) {
  return [=](const std::string& arquivo) { teste::escreveTexto(arquivo, conteudo); };
}

// The first half of what `escreve` writes.
Escritor truncado(Escritor escreve) {
  return [=](const std::string& arquivo) {
    escreve(arquivo);
    const std::string inteiro = teste::leTexto(arquivo);
    teste::escreveTexto(arquivo, inteiro.substr(0, inteiro.size() / 2));
  };
}

struct Caso {
  const char* nome;  // its first word gives the file's extension
  Escritor escreve;
  bool direto;  // the direct path must take it (else it must refuse it)
  // Its header declares more pixels than the program reads: the direct path
  // stops with the limit's message instead of leaving it to imread.
  bool acimaDoLimite = false;
};

const int kCinza = PNG_COLOR_TYPE_GRAY, kCinzaAlfa = PNG_COLOR_TYPE_GRAY_ALPHA, kPaleta = PNG_COLOR_TYPE_PALETTE,
          kRgb = PNG_COLOR_TYPE_RGB, kRgba = PNG_COLOR_TYPE_RGB_ALPHA;

const Caso kCasos[] = {
    {"png_cinza8", imwrite(1), true}, {"png_cinza16", imwrite(1, 16), true}, {"png_bgr8", imwrite(3), true},
    {"png_bgr16", imwrite(3, 16), true}, {"png_bgra8", imwrite(4), true}, {"png_bgra16", imwrite(4, 16), true},
    {"png_bilevel", imwrite(0, 8, {cv::IMWRITE_PNG_BILEVEL, 1}), true}, {"png_cinza2", png({kCinza, 2}), true},
    {"png_cinza4_entrelacada", png({kCinza, 4, true}), true}, {"png_cinza_alfa", png({kCinzaAlfa, 8}), true},
    {"png_paleta8", png({kPaleta, 8}), true}, {"png_paleta4_entrelacada", png({kPaleta, 4, true}), true},
    {"png_rgb_entrelacada", png({kRgb, 8, true}), true}, {"png_rgb_gama", png({kRgb, 8, false, true}), true},
    {"png_rgba16_gama", png({kRgba, 16, false, true}), true}, {"png_exif", png({kRgb, 8, false, false, true}), false},
    {"png_dados", texto(teste::leTexto(std::string(QUIVELAR_DATA) + "/img1.png")), true},
    {"png_truncada", truncado(imwrite(3)), false}, {"jpeg_cinza", imwrite(1), true}, {"jpeg_cor", imwrite(3), true},
    {"jpeg_progressivo", imwrite(3, 8, {cv::IMWRITE_JPEG_PROGRESSIVE, 1}), true},
    {"jpeg_reinicios_otimizado", imwrite(3, 8, {cv::IMWRITE_JPEG_QUALITY, 20, cv::IMWRITE_JPEG_RST_INTERVAL, 2,
                                                cv::IMWRITE_JPEG_OPTIMIZE, 1}), true},
    {"jpeg_exif", jpegComExif, false}, {"jpeg_truncado", truncado(imwrite(3)), false}, {"pgm_p5", imwrite(1), true},
    {"pgm_p2", imwrite(1, 8, {cv::IMWRITE_PXM_BINARY, 0}), true}, {"ppm_p6", imwrite(3), true},
    {"ppm_p3", imwrite(3, 8, {cv::IMWRITE_PXM_BINARY, 0}), true}, {"pgm_p5_16", imwrite(1, 16), true},
    {"pgm_p2_16", imwrite(1, 16, {cv::IMWRITE_PXM_BINARY, 0}), true}, {"ppm_p6_16", imwrite(3, 16), true},
    // Text samples are stretched by maxval and clamped to it; binary ones are
    // taken as they are; comments may sit between any two numbers.
    {"pgm_p2_max100", texto("P2 # c\n3 2\n100\n0 50 100\n# meio\n7 99 250\n"), true},
    {"ppm_p3_max1000", texto("P3\n2 1 1000\n0 255 256 999 1000 4000\n"), true},
    {"pgm_p5_max100", texto("P5\n2 2\n100\n" + bytes({0, 50, 100, 200})), true},
    {"ppm_p6_max100", texto("P6 1 2 100\t" + bytes({10, 20, 30, 200, 150, 100})), true},
    // imread fails at the end of the file even right after the last digit.
    {"pgm_p2_sem_fim_de_linha", texto("P2\n2 1\n255\n1 2"), false},
    {"pgm_p5_curto", texto("P5\n2 2\n255\n" + bytes({1, 2, 3})), false},
    {"pgm_p2_letra", texto("P2\n2 1\n255\n1 x\n"), false}, {"pgm_maxval_zero", texto("P2\n1 1\n0\n0\n"), false},
    {"pgm_gigante", texto("P5\n100000 100000\n255\n"), false, true}, {"pbm_p4", texto("P4\n8 1\n" + bytes({0x5A})), false},
    {"bmp", imwrite(3), false}, {"texto", texto("nao sou imagem\n"), false}, {"vazio", texto(""), false},
    {"falta", [](const std::string&) {}, false},
};

// imread's answer, empty where it gives none: it throws on absurd sizes.
cv::Mat imreadOuVazia(const std::string& arquivo, int modo) try {
  return cv::imread(arquivo, modo);
} catch (const cv::Exception&) {
  return cv::Mat();
}

class Decodifica : public testing::TestWithParam<Caso> {};

TEST_P(Decodifica, SamePixelsAsImreadOrRefused) {
  const Caso& caso = GetParam();
  teste::PastaTemp pasta;
  const std::string formato = std::string(caso.nome).substr(0, std::string(caso.nome).find('_'));
  const std::string arquivo = pasta / ("imagem." + (formato == "jpeg" ? "jpg" : formato));
  caso.escreve(arquivo);
  // Accepted or refused, tvm::le ends with imread's pixels or its error.
  const auto confere = [&](auto img, int modo) {
    SCOPED_TRACE(modo == cv::IMREAD_COLOR ? "cor" : "cinza");
    const cv::Mat esperada = imreadOuVazia(arquivo, modo);
    cv::Mat direta;
    if (caso.acimaDoLimite) {
      const std::string m = teste::mensagemDe([&] { tvm::decodificaDireto(arquivo, modo, direta); });
      EXPECT_EQ(m.rfind("Erro: imagem " + arquivo + " de ", 0), 0u) << m;
      EXPECT_TRUE(direta.empty() && esperada.empty());
      return;
    }
    ASSERT_EQ(tvm::decodificaDireto(arquivo, modo, direta), caso.direto);
    EXPECT_TRUE(caso.direto ? teste::mesmosBits(direta, esperada) && !esperada.empty() : direta.empty());
    if (esperada.empty()) {
      EXPECT_THROW(tvm::le(img, arquivo), tvm::Erro);
    } else {
      tvm::le(img, arquivo);
      EXPECT_TRUE(teste::mesmosBits(img, esperada));
    }
  };
  confere(cv::Mat_<uchar>(), cv::IMREAD_GRAYSCALE);
  confere(cv::Mat_<cv::Vec3b>(), cv::IMREAD_COLOR);

  // The size from the header is imread's, Exif turns included; a file broken
  // past its header still gives its declared size, one broken before has none.
  const cv::Mat inteira = imreadOuVazia(arquivo, cv::IMREAD_GRAYSCALE);
  cv::Size doCabecalho;
  const bool direto = tvm::tamanhoDireto(arquivo, doCabecalho);
  if (caso.direto) {
    EXPECT_TRUE(direto && doCabecalho == inteira.size());
  }
  if (std::string(caso.nome).find("trunca") != std::string::npos) {
    EXPECT_EQ(doCabecalho, cv::Size(kColunas, kLinhas));
  }
  if (!inteira.empty()) {
    EXPECT_EQ(tvm::tamanho(arquivo), inteira.size());
  } else if (direto) {
    EXPECT_EQ(tvm::tamanho(arquivo), doCabecalho);
  } else {
    EXPECT_THROW(tvm::tamanho(arquivo), tvm::Erro);
  }
  cv::Mat m;
  EXPECT_FALSE(tvm::decodificaDireto(arquivo, cv::IMREAD_UNCHANGED, m));  // only grey and colour
}

INSTANTIATE_TEST_SUITE_P(Formatos, Decodifica, testing::ValuesIn(kCasos),
                         [](const testing::TestParamInfo<Caso>& info) { return std::string(info.param.nome); });

// tvm::imp writes PNG itself with imwrite's settings: the bytes, not only the
// pixels, stay what they were, so earlier outputs remain comparable.
TEST(CodificaPng, SameBytesAsImwriteOrRefused) {
  teste::PastaTemp pasta;
  const cv::Mat_<cv::Vec3b> cor = amostra(3);
  tvm::imp(cor, pasta / "imp.png");
  tvm::imp(cor, pasta / "imp.PNG");
  std::vector<uchar> cinza;
  ASSERT_TRUE(tvm::codificaPng(amostra(1), cinza));
  teste::escreveTexto(pasta / "cinza.png", std::string(cinza.begin(), cinza.end()));
  for (const auto& [nome, img] : {std::pair("imp.png", cv::Mat(cor)), std::pair("imp.PNG", cv::Mat(cor)),
                                  std::pair("cinza.png", amostra(1))}) {
    ASSERT_TRUE(cv::imwrite(pasta / "imwrite.png", img));
    EXPECT_EQ(teste::leTexto(pasta / nome), teste::leTexto(pasta / "imwrite.png")) << nome;
  }

  for (const cv::Mat& recusada : {amostra(1, 16), amostra(4)}) {
    std::vector<uchar> bytes(3);
    EXPECT_FALSE(tvm::codificaPng(recusada, bytes));
    EXPECT_TRUE(bytes.empty());
  }
}

}  // namespace
