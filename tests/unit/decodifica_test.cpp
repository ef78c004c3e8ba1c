// Direct PNG/JPEG/PGM/PPM decoding: for every file it accepts it must give
// exactly imread's pixels, and every file it refuses must still reach imread
// through tvm::le.
#include "support/decodifica.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <png.h>

#include <functional>
#include <string>
#include <vector>

namespace {

const int kLinhas = 23, kColunas = 41;  // odd sizes: row padding shows

cv::Mat cinza8() { return teste::textura(kLinhas, kColunas, 1); }

cv::Mat bgr8() {
  cv::Mat bgr;
  cv::merge(std::vector<cv::Mat>{teste::textura(kLinhas, kColunas, 2), teste::discos(kLinhas, kColunas, 3),
                                 teste::textura(kLinhas, kColunas, 4)},
            bgr);
  return bgr;
}

// Random 16-bit samples: the low byte must not leak into the 8-bit result.
cv::Mat aleatoria16(int canais) {
  cv::Mat m(kLinhas, kColunas, CV_16UC(canais));
  cv::RNG(5).fill(m, cv::RNG::UNIFORM, 0, 65536);
  return m;
}

cv::Mat bgra8() {
  cv::Mat bgra;
  cv::cvtColor(bgr8(), bgra, cv::COLOR_BGR2BGRA);
  std::vector<cv::Mat> canais;
  cv::split(bgra, canais);
  canais[3] = teste::discos(kLinhas, kColunas, 6);
  cv::merge(canais, bgra);
  return bgra;
}

std::string bytes(std::initializer_list<int> b) { return std::string(b.begin(), b.end()); }

// A TIFF block saying "turn 90 degrees" (orientation 6), as carried by Exif.
std::string tiffOrientacao6() {
  return bytes({'I', 'I', 0x2A, 0, 8, 0, 0, 0, 1, 0, 0x12, 0x01, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0});
}

// A JPEG with an Exif APP1 segment right after the start marker.
void jpegComExif(const std::string& arquivo) {
  std::vector<uchar> jpeg;
  cv::imencode(".jpg", bgr8(), jpeg);
  const std::string dados = std::string("Exif\0\0", 6) + tiffOrientacao6();
  const int tamanho = static_cast<int>(dados.size()) + 2;
  const std::string app1 = bytes({0xFF, 0xE1, tamanho >> 8, tamanho & 0xFF}) + dados;
  const std::string original(jpeg.begin(), jpeg.end());
  teste::escreveTexto(arquivo, original.substr(0, 2) + app1 + original.substr(2));
}

// The PNG forms imwrite cannot make, written with libpng: random samples of
// any colour type and depth, palettes with transparency, interlacing, a gAMA
// chunk (which changes libpng's colour-to-grey arithmetic) and eXIf.
struct FormaPng {
  int tipo;
  int bits;
  bool entrelacada = false;
  bool gama = false;
  bool exif = false;
};

void escrevePng(const std::string& arquivo, const FormaPng& forma) {
  FILE* f = std::fopen(arquivo.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  png_set_IHDR(png, info, kColunas, kLinhas, forma.bits, forma.tipo,
               forma.entrelacada ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  cv::RNG rng(7);
  if (forma.tipo == PNG_COLOR_TYPE_PALETTE) {
    std::vector<png_color> paleta(1 << forma.bits);
    for (png_color& c : paleta) c = {uchar(rng.uniform(0, 256)), uchar(rng.uniform(0, 256)), uchar(rng.uniform(0, 256))};
    png_set_PLTE(png, info, paleta.data(), static_cast<int>(paleta.size()));
    std::vector<png_byte> alfa(paleta.size() / 2, 100);
    png_set_tRNS(png, info, alfa.data(), static_cast<int>(alfa.size()), nullptr);
  }
  if (forma.gama) png_set_gAMA(png, info, 1 / 2.2);
  const std::string tiff = tiffOrientacao6();
  if (forma.exif) png_set_eXIf_1(png, info, static_cast<png_uint_32>(tiff.size()), (png_bytep)tiff.data());
  png_write_info(png, info);
  const int canais = png_get_channels(png, info);
  cv::Mat linhas(kLinhas, (kColunas * canais * forma.bits + 7) / 8, CV_8U);
  rng.fill(linhas, cv::RNG::UNIFORM, 0, 256);
  std::vector<png_bytep> ponteiros;
  for (int y = 0; y < kLinhas; ++y) ponteiros.push_back(linhas.ptr(y));
  png_set_interlace_handling(png);
  png_write_image(png, ponteiros.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  std::fclose(f);
}

struct Caso {
  const char* nome;
  const char* extensao;
  std::function<void(const std::string&)> escreve;
  bool direto;  // the direct path must take it (else it must refuse it)
};

void PrintTo(const Caso& caso, std::ostream* os) { *os << caso.nome; }

std::function<void(const std::string&)> imwrite(std::function<cv::Mat()> imagem, std::vector<int> parametros = {}) {
  return [=](const std::string& arquivo) { ASSERT_TRUE(cv::imwrite(arquivo, imagem(), parametros)); };
}

std::function<void(const std::string&)> texto(std::string conteudo) {
  return [=](const std::string& arquivo) { teste::escreveTexto(arquivo, conteudo); };
}

std::function<void(const std::string&)> png(FormaPng forma) {
  return [=](const std::string& arquivo) { escrevePng(arquivo, forma); };
}

// The first half of what `escreve` writes.
std::function<void(const std::string&)> truncado(std::function<void(const std::string&)> escreve) {
  return [=](const std::string& arquivo) {
    escreve(arquivo);
    const std::string inteiro = teste::leTexto(arquivo);
    teste::escreveTexto(arquivo, inteiro.substr(0, inteiro.size() / 2));
  };
}

std::function<void(const std::string&)> pxmBinario(const char* cabecalho, std::initializer_list<int> amostras) {
  return texto(cabecalho + bytes(amostras));
}

const Caso kCasos[] = {
    {"png_cinza8", ".png", imwrite(cinza8), true},
    {"png_cinza16", ".png", imwrite([] { return aleatoria16(1); }), true},
    {"png_bgr8", ".png", imwrite(bgr8), true},
    {"png_bgr16", ".png", imwrite([] { return aleatoria16(3); }), true},
    {"png_bgra8", ".png", imwrite(bgra8), true},
    {"png_bgra16", ".png", imwrite([] { return aleatoria16(4); }), true},
    {"png_bilevel", ".png", imwrite([] { return teste::xadrez(kLinhas, kColunas, 3); }, {cv::IMWRITE_PNG_BILEVEL, 1}),
     true},
    {"png_cinza2", ".png", png({PNG_COLOR_TYPE_GRAY, 2}), true},
    {"png_cinza4_entrelacada", ".png", png({PNG_COLOR_TYPE_GRAY, 4, true}), true},
    {"png_cinza_alfa", ".png", png({PNG_COLOR_TYPE_GRAY_ALPHA, 8}), true},
    {"png_paleta8", ".png", png({PNG_COLOR_TYPE_PALETTE, 8}), true},
    {"png_paleta4_entrelacada", ".png", png({PNG_COLOR_TYPE_PALETTE, 4, true}), true},
    {"png_rgb_entrelacada", ".png", png({PNG_COLOR_TYPE_RGB, 8, true}), true},
    {"png_rgb_gama", ".png", png({PNG_COLOR_TYPE_RGB, 8, false, true}), true},
    {"png_rgba16_gama", ".png", png({PNG_COLOR_TYPE_RGB_ALPHA, 16, false, true}), true},
    {"png_exif", ".png", png({PNG_COLOR_TYPE_RGB, 8, false, false, true}), false},
    {"png_truncada", ".png", truncado(imwrite(bgr8)), false},
    {"jpeg_cinza", ".jpg", imwrite(cinza8), true},
    {"jpeg_cor", ".jpg", imwrite(bgr8), true},
    {"jpeg_progressivo", ".jpg", imwrite(bgr8, {cv::IMWRITE_JPEG_PROGRESSIVE, 1}), true},
    {"jpeg_reinicios_otimizado", ".jpg",
     imwrite(bgr8, {cv::IMWRITE_JPEG_QUALITY, 20, cv::IMWRITE_JPEG_RST_INTERVAL, 2, cv::IMWRITE_JPEG_OPTIMIZE, 1}), true},
    {"jpeg_exif", ".jpg", jpegComExif, false},
    {"jpeg_truncado", ".jpg", truncado(imwrite(bgr8)), false},
    {"pgm_p5", ".pgm", imwrite(cinza8), true},
    {"pgm_p2", ".pgm", imwrite(cinza8, {cv::IMWRITE_PXM_BINARY, 0}), true},
    {"ppm_p6", ".ppm", imwrite(bgr8), true},
    {"ppm_p3", ".ppm", imwrite(bgr8, {cv::IMWRITE_PXM_BINARY, 0}), true},
    {"pgm_p5_16", ".pgm", imwrite([] { return aleatoria16(1); }), true},
    {"pgm_p2_16", ".pgm", imwrite([] { return aleatoria16(1); }, {cv::IMWRITE_PXM_BINARY, 0}), true},
    {"ppm_p6_16", ".ppm", imwrite([] { return aleatoria16(3); }), true},
    // Text samples are stretched by maxval and clamped to it; binary ones are
    // taken as they are; comments may sit between any two numbers.
    {"pgm_p2_max100", ".pgm", texto("P2 # c\n3 2\n100\n0 50 100\n# meio\n7 99 250\n"), true},
    {"ppm_p3_max1000", ".ppm", texto("P3\n2 1 1000\n0 255 256 999 1000 4000\n"), true},
    {"pgm_p5_max100", ".pgm", pxmBinario("P5\n2 2\n100\n", {0, 50, 100, 200}), true},
    {"ppm_p6_max100", ".ppm", pxmBinario("P6 1 2 100\t", {10, 20, 30, 200, 150, 100}), true},
    // imread fails at the end of the file even right after the last digit.
    {"pgm_p2_sem_fim_de_linha", ".pgm", texto("P2\n2 1\n255\n1 2"), false},
    {"pgm_p5_curto", ".pgm", pxmBinario("P5\n2 2\n255\n", {1, 2, 3}), false},
    {"pgm_p2_letra", ".pgm", texto("P2\n2 1\n255\n1 x\n"), false},
    {"pgm_maxval_zero", ".pgm", texto("P2\n1 1\n0\n0\n"), false},
    {"pgm_gigante", ".pgm", texto("P5\n100000 100000\n255\n"), false},
    {"pbm_p4", ".pbm", pxmBinario("P4\n8 1\n", {0x5A}), false},
    {"bmp", ".bmp", imwrite(bgr8), false},
    {"texto", ".png", texto("nao sou imagem\n"), false},
    {"vazio", ".jpg", texto(""), false},
};

// imread's answer, empty where it gives none: it throws on absurd sizes.
cv::Mat imreadOuVazia(const std::string& arquivo, int modo) {
  try {
    return cv::imread(arquivo, modo);
  } catch (const cv::Exception&) {
    return cv::Mat();
  }
}

class Decodifica : public testing::TestWithParam<Caso> {};

TEST_P(Decodifica, SamePixelsAsImreadOrRefused) {
  const Caso& caso = GetParam();
  teste::PastaTemp pasta;
  const std::string arquivo = pasta / (std::string("imagem") + caso.extensao);
  caso.escreve(arquivo);
  for (int modo : {cv::IMREAD_GRAYSCALE, cv::IMREAD_COLOR}) {
    SCOPED_TRACE(modo == cv::IMREAD_COLOR ? "cor" : "cinza");
    const cv::Mat esperada = imreadOuVazia(arquivo, modo);
    cv::Mat direta;
    ASSERT_EQ(tvm::decodificaDireto(arquivo, modo, direta), caso.direto);
    if (caso.direto) {
      ASSERT_FALSE(esperada.empty());
      ASSERT_EQ(direta.type(), esperada.type());
      ASSERT_EQ(direta.size(), esperada.size());
      EXPECT_EQ(cv::norm(direta, esperada, cv::NORM_INF), 0);
    } else {
      EXPECT_TRUE(direta.empty());  // a refusal leaves the output alone
    }
  }
  // Accepted or refused, tvm::le ends with imread's pixels or its error.
  cv::Mat_<uchar> cinza;
  cv::Mat_<cv::Vec3b> cor;
  const cv::Mat esperadaCinza = imreadOuVazia(arquivo, cv::IMREAD_GRAYSCALE);
  const cv::Mat esperadaCor = imreadOuVazia(arquivo, cv::IMREAD_COLOR);
  if (esperadaCinza.empty()) {
    EXPECT_THROW(tvm::le(cinza, arquivo), tvm::Erro);
  } else {
    tvm::le(cinza, arquivo);
    EXPECT_EQ(cv::norm(cinza, esperadaCinza, cv::NORM_INF), 0);
  }
  if (esperadaCor.empty()) {
    EXPECT_THROW(tvm::le(cor, arquivo), tvm::Erro);
  } else {
    tvm::le(cor, arquivo);
    EXPECT_EQ(cv::norm(cor, esperadaCor, cv::NORM_INF), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Formatos, Decodifica, testing::ValuesIn(kCasos),
                         [](const testing::TestParamInfo<Caso>& info) { return std::string(info.param.nome); });

TEST(Decodifica, BundledViewMatchesImread) {
  const std::string arquivo = std::string(QUIVELAR_DATA) + "/img1.png";
  for (int modo : {cv::IMREAD_GRAYSCALE, cv::IMREAD_COLOR}) {
    cv::Mat direta;
    ASSERT_TRUE(tvm::decodificaDireto(arquivo, modo, direta));
    const cv::Mat esperada = cv::imread(arquivo, modo);
    ASSERT_EQ(direta.type(), esperada.type());
    EXPECT_EQ(cv::norm(direta, esperada, cv::NORM_INF), 0);
  }
}

TEST(Decodifica, OnlyGreyAndColourModes) {
  teste::PastaTemp pasta;
  teste::salva(cinza8(), pasta / "a.png");
  cv::Mat m;
  EXPECT_FALSE(tvm::decodificaDireto(pasta / "a.png", cv::IMREAD_UNCHANGED, m));
  EXPECT_FALSE(tvm::decodificaDireto(pasta / "falta.png", cv::IMREAD_GRAYSCALE, m));
}

// tvm::imp writes PNG itself with imwrite's settings: the bytes, not only the
// pixels, stay what they were, so earlier outputs remain comparable.
TEST(CodificaPng, SameBytesAsImwrite) {
  teste::PastaTemp pasta;
  const cv::Mat_<cv::Vec3b> cor = bgr8();
  tvm::imp(cor, pasta / "imp.png");
  tvm::imp(cor, pasta / "imp.PNG");
  ASSERT_TRUE(cv::imwrite(pasta / "imwrite.png", cor));
  EXPECT_EQ(teste::leTexto(pasta / "imp.png"), teste::leTexto(pasta / "imwrite.png"));
  EXPECT_EQ(teste::leTexto(pasta / "imp.PNG"), teste::leTexto(pasta / "imwrite.png"));
  EXPECT_EQ(cv::norm(cv::imread(pasta / "imp.png", cv::IMREAD_COLOR), cor, cv::NORM_INF), 0);

  const cv::Mat cinza = cinza8();
  ASSERT_TRUE(tvm::codificaPng(cinza, pasta / "cinza.png"));
  ASSERT_TRUE(cv::imwrite(pasta / "cinza_imwrite.png", cinza));
  EXPECT_EQ(teste::leTexto(pasta / "cinza.png"), teste::leTexto(pasta / "cinza_imwrite.png"));
}

TEST(CodificaPng, RefusesWhatItCannotWrite) {
  teste::PastaTemp pasta;
  EXPECT_FALSE(tvm::codificaPng(aleatoria16(1), pasta / "a.png"));
  EXPECT_FALSE(tvm::codificaPng(bgra8(), pasta / "b.png"));
  EXPECT_FALSE(tvm::codificaPng(bgr8(), pasta / "nao/existe.png"));
  EXPECT_TRUE(pasta.conteudo().empty());
  const cv::Mat_<cv::Vec3b> cor = bgr8();
  EXPECT_THROW(tvm::imp(cor, pasta / "nao/existe.png"), tvm::Erro);
}

}  // namespace
