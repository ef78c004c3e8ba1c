#include "support/decodifica.hpp"

#include "support/arquivos.hpp"
#include "support/formatos_diretos.hpp"
#include "support/limites.hpp"

#include <opencv2/imgcodecs.hpp>

#include <cctype>
#include <climits>
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

bool decodificaDireto(const std::string& file, int modo, cv::Mat& out) {
  if (modo != cv::IMREAD_GRAYSCALE && modo != cv::IMREAD_COLOR) return false;
  // Read here first, so that a bad value stops the tool outside the codec
  // libraries' setjmp frames, where tamanhoAceito reads it again.
  const int64_t limite = limitePixels();
  Arquivo f(file, "rb");
  if (!f) return false;
  unsigned char inicio[8] = {};
  const size_t lidos = std::fread(inicio, 1, sizeof inicio, f.get());
  if (std::fseek(f.get(), 0, SEEK_SET) != 0) return false;

  static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  const bool cor = modo == cv::IMREAD_COLOR;
  cv::Mat imagem;
  Dimensoes declaradas;
  bool ok = false;
  if (lidos == 8 && std::memcmp(inicio, png, 8) == 0)
    ok = lePng(f.get(), cor, imagem, declaradas);
  else if (lidos >= 3 && inicio[0] == 0xFF && inicio[1] == 0xD8 && inicio[2] == 0xFF)
    ok = leJpeg(f.get(), cor, imagem, declaradas);
  else if (lidos >= 3 && inicio[0] == 'P' && std::isspace(inicio[2]))
    ok = lePxm(f.get(), cor, imagem, declaradas);
  if (!ok && static_cast<int64_t>(declaradas.largura * declaradas.altura) > limite)
    verificaPixels(static_cast<int64_t>(declaradas.largura), static_cast<int64_t>(declaradas.altura), file);
  if (ok) out = imagem;
  return ok;
}

}  // namespace tvm
