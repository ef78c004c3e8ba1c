#include "support/decodifica.hpp"

#include "support/arquivos.hpp"
#include "support/formatos_diretos.hpp"
#include "support/limites.hpp"

#include <opencv2/imgcodecs.hpp>

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tvm {

namespace {

// Reads PGM/PPM numbers byte by byte as imread does: blanks and '#' comments
// (to the end of the line) may precede a number, and the byte that ends it is
// consumed. Any other byte, and the end of the file anywhere, is a failure:
// imread fails at the end of the file even right after the last digit.
class LeitorPxm {
 public:
  explicit LeitorPxm(FILE* f) : f_(f) {}

  bool numero(int& valor) {
    int c = std::getc(f_);
    while (!std::isdigit(c)) {
      if (c == '#') {
        do c = std::getc(f_);
        while (c != '\n' && c != '\r' && c != EOF);
        if (c == EOF) return false;
        c = std::getc(f_);
      } else if (c != EOF && std::isspace(c)) {
        while (c != EOF && std::isspace(c)) c = std::getc(f_);
      } else {
        return false;
      }
    }
    long long v = 0;
    for (; std::isdigit(c); c = std::getc(f_)) {
      v = v * 10 + (c - '0');
      if (v > INT_MAX) return false;
    }
    if (c == EOF) return false;
    valor = static_cast<int>(v);
    return true;
  }

  bool bytes(uchar* destino, size_t n) { return std::fread(destino, 1, n, f_) == n; }

 private:
  FILE* f_;
};

// One row of RGB triples to grey with imread's fixed-point weights
// (0.299, 0.587, 0.114 in units of 2^-14, rounded).
void rgbParaCinza(const uchar* rgb, uchar* cinza, int largura) {
  constexpr int escala = 14;
  constexpr int pesoR = static_cast<int>(0.299 * (1 << escala) + 0.5);
  constexpr int pesoG = static_cast<int>(0.587 * (1 << escala) + 0.5);
  constexpr int pesoB = (1 << escala) - pesoR - pesoG;
  for (int x = 0; x < largura; ++x, rgb += 3)
    cinza[x] = static_cast<uchar>((rgb[0] * pesoR + rgb[1] * pesoG + rgb[2] * pesoB + (1 << (escala - 1))) >> escala);
}

}  // namespace

bool tamanhoAceito(unsigned long largura, unsigned long altura, Dimensoes& declaradas) {
  declaradas = {largura, altura};
  constexpr unsigned long lado = 1ul << 20;
  return largura > 0 && altura > 0 && largura <= lado && altura <= lado && largura * altura <= (1ul << 30) &&
         static_cast<int64_t>(largura * altura) <= limitePixels();
}

// P2/P3 (text) and P5/P6 (binary), maxval 1..65535. Like imread: binary 8-bit
// samples are taken as they are whatever maxval says, text samples are
// clamped to maxval and, below 256, stretched to 0..255 by v*255/maxval
// (integer division); 16-bit samples (maxval over 255) keep their high byte.
bool lePxm(FILE* f, bool cor, cv::Mat& out, Dimensoes& declaradas) {
  char assinatura[2];
  if (std::fread(assinatura, 1, 2, f) != 2 || assinatura[0] != 'P') return false;
  const char tipo = assinatura[1];
  if (tipo != '2' && tipo != '3' && tipo != '5' && tipo != '6') return false;
  const bool binario = tipo >= '5';
  const int canais = (tipo == '3' || tipo == '6') ? 3 : 1;

  LeitorPxm leitor(f);
  int largura = 0, altura = 0, maximo = 0;
  if (!leitor.numero(largura) || !leitor.numero(altura) || !leitor.numero(maximo)) return false;
  if (maximo <= 0 || maximo > 65535 || !tamanhoAceito(largura, altura, declaradas)) return false;
  const bool dezesseis = maximo > 255;

  const int amostras = largura * canais;
  std::vector<uchar> bruto(dezesseis ? 2 * static_cast<size_t>(amostras) : 0);
  std::vector<uchar> linha(amostras);
  cv::Mat imagem(altura, largura, cor ? CV_8UC3 : CV_8UC1);
  for (int y = 0; y < altura; ++y) {
    if (binario && !dezesseis) {
      if (!leitor.bytes(linha.data(), linha.size())) return false;
    } else if (binario) {
      if (!leitor.bytes(bruto.data(), bruto.size())) return false;
      for (int x = 0; x < amostras; ++x) linha[x] = bruto[2 * x];  // big-endian: high byte first
    } else {
      for (int x = 0; x < amostras; ++x) {
        int v = 0;
        if (!leitor.numero(v)) return false;
        v = std::min(v, maximo);
        linha[x] = static_cast<uchar>(dezesseis ? v >> 8 : v * 255 / maximo);
      }
    }
    uchar* destino = imagem.ptr<uchar>(y);
    if (canais == 1 && !cor) {
      std::memcpy(destino, linha.data(), largura);
    } else if (canais == 1) {
      for (int x = 0; x < largura; ++x) destino[3 * x] = destino[3 * x + 1] = destino[3 * x + 2] = linha[x];
    } else if (cor) {
      for (int x = 0; x < largura; ++x) {
        destino[3 * x] = linha[3 * x + 2];
        destino[3 * x + 1] = linha[3 * x + 1];
        destino[3 * x + 2] = linha[3 * x];
      }
    } else {
      rgbParaCinza(linha.data(), destino, largura);
    }
  }
  out = imagem;
  return true;
}

namespace {

uint32_t be32(const unsigned char* b) { return uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3]; }

// IHDR comes first; the other chunks are skipped by their lengths, looking
// only for eXIf, which imread obeys wherever it sits.
bool tamanhoPng(FILE* f, Dimensoes& d) {
  unsigned char b[8 + 8 + 8];
  if (std::fread(b, 1, sizeof b, f) != sizeof b || be32(b + 8) != 13 || std::memcmp(b + 12, "IHDR", 4) != 0)
    return false;
  d = {be32(b + 16), be32(b + 20)};
  if (std::fseek(f, 13 - 8 + 4, SEEK_CUR) != 0) return false;  // the rest of IHDR and its CRC
  while (std::fread(b, 1, 8, f) == 8) {
    if (std::memcmp(b + 4, "eXIf", 4) == 0) return false;
    if (std::memcmp(b + 4, "IEND", 4) == 0) break;
    if (std::fseek(f, long(be32(b)) + 4, SEEK_CUR) != 0) break;
  }
  return true;
}

// The markers up to the scan: the frame header gives the size, an Exif APP1
// segment anywhere before the scan sends the file to imread. Anything
// unusual (a second frame, a height left to a DNL marker) does too.
bool tamanhoJpeg(FILE* f, Dimensoes& d) {
  unsigned char b[8];
  if (std::fread(b, 1, 2, f) != 2) return false;
  bool quadro = false;
  for (;;) {
    int c = std::getc(f);
    if (c != 0xFF) return quadro && c == EOF;
    while (c == 0xFF) c = std::getc(f);
    if (c == EOF) return quadro;
    if (c == 0xD8 || c == 0x00) return false;
    if (c == 0x01 || (c >= 0xD0 && c <= 0xD7)) continue;
    if (std::fread(b, 1, 2, f) != 2) return quadro;
    const long comprimento = long(b[0]) << 8 | b[1];
    if (comprimento < 2) return false;
    if (c == 0xDA) return quadro;
    long lido = 0;
    if (c == 0xE1) {
      lido = long(std::fread(b, 1, 6, f));
      if (lido == 6 && comprimento >= 8 && std::memcmp(b, "Exif\0\0", 6) == 0) return false;
    } else if (c >= 0xC0 && c <= 0xCF && c != 0xC4 && c != 0xC8 && c != 0xCC) {
      if (quadro || std::fread(b, 1, 5, f) != 5) return false;
      lido = 5;
      d = {static_cast<unsigned long>(b[3] << 8 | b[4]), static_cast<unsigned long>(b[1] << 8 | b[2])};
      if (d.altura == 0) return false;
      quadro = true;
    }
    if (std::fseek(f, comprimento - 2 - lido, SEEK_CUR) != 0) return quadro;
  }
}

// P2/P3/P5/P6: width, height and maxval, read as lePxm reads them.
bool tamanhoPxm(FILE* f, Dimensoes& d) {
  char assinatura[2];
  if (std::fread(assinatura, 1, 2, f) != 2 || assinatura[0] != 'P' || assinatura[1] == 0 ||
      !std::strchr("2356", assinatura[1]))
    return false;
  LeitorPxm leitor(f);
  int largura = 0, altura = 0, maximo = 0;
  if (!leitor.numero(largura) || !leitor.numero(altura) || !leitor.numero(maximo)) return false;
  d = {static_cast<unsigned long>(largura), static_cast<unsigned long>(altura)};
  return maximo > 0 && maximo <= 65535;
}

enum class Formato { outro, png, jpeg, pxm };

// The format by the file's first bytes, never by its name; the file is left
// at its start.
Formato formatoDe(FILE* f) {
  unsigned char inicio[8] = {};
  const size_t lidos = std::fread(inicio, 1, sizeof inicio, f);
  if (std::fseek(f, 0, SEEK_SET) != 0) return Formato::outro;
  static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  if (lidos == 8 && std::memcmp(inicio, png, 8) == 0) return Formato::png;
  if (lidos >= 3 && inicio[0] == 0xFF && inicio[1] == 0xD8 && inicio[2] == 0xFF) return Formato::jpeg;
  if (lidos >= 3 && inicio[0] == 'P' && std::isspace(inicio[2])) return Formato::pxm;
  return Formato::outro;
}

}  // namespace

bool tamanhoDireto(const std::string& file, cv::Size& tamanho) {
  Arquivo f(file, "rb");
  if (!f) return false;
  Dimensoes d, aceitas;
  bool ok = false;
  switch (formatoDe(f.get())) {
    case Formato::png: ok = tamanhoPng(f.get(), d); break;
    case Formato::jpeg: ok = tamanhoJpeg(f.get(), d); break;
    case Formato::pxm: ok = tamanhoPxm(f.get(), d); break;
    case Formato::outro: break;
  }
  if (!ok || !tamanhoAceito(d.largura, d.altura, aceitas)) return false;
  tamanho = cv::Size(static_cast<int>(d.largura), static_cast<int>(d.altura));
  return true;
}

bool decodificaDireto(const std::string& file, int modo, cv::Mat& out) {
  if (modo != cv::IMREAD_GRAYSCALE && modo != cv::IMREAD_COLOR) return false;
  // Read here first, so that a bad value stops the tool outside the codec
  // libraries' setjmp frames, where tamanhoAceito reads it again.
  const int64_t limite = limitePixels();
  Arquivo f(file, "rb");
  if (!f) return false;
  const bool cor = modo == cv::IMREAD_COLOR;
  cv::Mat imagem;
  Dimensoes declaradas;
  bool ok = false;
  switch (formatoDe(f.get())) {
    case Formato::png: ok = lePng(f.get(), cor, imagem, declaradas); break;
    case Formato::jpeg: ok = leJpeg(f.get(), cor, imagem, declaradas); break;
    case Formato::pxm: ok = lePxm(f.get(), cor, imagem, declaradas); break;
    case Formato::outro: break;
  }
  if (!ok && static_cast<int64_t>(declaradas.largura * declaradas.altura) > limite)
    verificaPixels(static_cast<int64_t>(declaradas.largura), static_cast<int64_t>(declaradas.altura), file);
  if (ok) out = imagem;
  return ok;
}

}  // namespace tvm
