#include "formats/leitura_rapida.hpp"

#include "support/arquivos.hpp"

#include <sys/stat.h>
#include <zlib.h>

#include <charconv>
#include <cfloat>
#include <cstdint>
#include <cstring>
#include <memory>

namespace formats {

namespace {

// Far beyond any store or match file; larger ones go the ordinary way.
constexpr int64_t kMaiorArquivo = int64_t(1) << 30;
constexpr int kCampos = 7;

bool leArquivo(const std::string& file, std::string& texto) {
  tvm::Arquivo arquivo(file, "rb");
  if (!arquivo) return false;
  struct stat info {};
  if (::fstat(::fileno(arquivo.get()), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaiorArquivo)
    return false;
  texto.resize(static_cast<size_t>(info.st_size));
  if (std::fread(texto.data(), 1, texto.size(), arquivo.get()) != texto.size()) return false;
  return std::fgetc(arquivo.get()) == EOF;  // the file did not grow meanwhile
}

// A ".gz" store inflated whole, as OpenCV inflates it while reading (zlib
// also passes text that is not gzip through unchanged); the same bound holds
// for the inflated text as for a plain file.
bool inflaArquivo(const std::string& file, std::string& texto) {
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> gz(::gzopen(file.c_str(), "rb"), ::gzclose);
  if (!gz) return false;
  constexpr size_t kBloco = size_t(1) << 20;
  texto.clear();
  for (;;) {
    const size_t lido = texto.size();
    if (lido > static_cast<size_t>(kMaiorArquivo)) return false;
    texto.resize(lido + kBloco);
    const int n = ::gzread(gz.get(), texto.data() + lido, static_cast<unsigned>(kBloco));
    if (n < 0) return false;
    texto.resize(lido + static_cast<size_t>(n));
    if (n == 0) return true;
  }
}

bool terminaEm(const std::string& s, const char* sufixo) {
  const size_t n = std::strlen(sufixo);
  return s.size() >= n && s.compare(s.size() - n, n, sufixo) == 0;
}

bool digito(char c) { return c >= '0' && c <= '9'; }

// A number as OpenCV's XML and YAML parsers take it.
struct Numero {
  bool real = false;
  int inteiro = 0;
  double valor = 0;
};

// The text being parsed; every test stays inside [p, fim).
struct Cursor {
  const char* p;
  const char* fim;

  bool acabou() const { return p == fim; }
  char atual() const { return p < fim ? *p : '\0'; }

  bool literal(const char* s) {
    const size_t n = std::strlen(s);
    if (static_cast<size_t>(fim - p) < n || std::memcmp(p, s, n) != 0) return false;
    p += n;
    return true;
  }

  // OpenCV reads digits followed by "." or "e" with strtod, other digits with
  // strtol in base 0. Only the shapes where that equals plain decimal
  // conversion are taken: no sign but "-", no leading zeros in integers
  // (octal), no "E", no hex, integers within int.
  bool numero(Numero& n) {
    const char* q = p;
    const bool negativo = q < fim && *q == '-';
    if (negativo) ++q;
    const char* digitos = q;
    while (q < fim && digito(*q)) ++q;
    const ptrdiff_t nd = q - digitos;
    // A point and a digit open a real too (".5").
    if (nd == 0 && !(fim - q >= 2 && q[0] == '.' && digito(q[1]))) return false;
    if (q < fim && (*q == '.' || *q == 'e')) {
      bool semFracao = true;
      if (*q == '.') {
        ++q;
        while (q < fim && digito(*q)) {
          ++q;
          semFracao = false;
        }
      }
      if (q < fim && *q == 'e') {
        semFracao = false;
        ++q;
        if (q < fim && (*q == '+' || *q == '-')) ++q;
        const char* expoente = q;
        while (q < fim && digito(*q)) ++q;
        if (q == expoente) return false;
      }
      if (semFracao && nd <= 15) {
        // "123." is an integer well within the exact range of a double.
        uint64_t v = 0;
        for (const char* d = digitos; d < digitos + nd; ++d) v = v * 10 + static_cast<uint64_t>(*d - '0');
        n.valor = negativo ? -static_cast<double>(v) : static_cast<double>(v);
      } else {
        const std::from_chars_result r = std::from_chars(p, q, n.valor);
        if (r.ec != std::errc() || r.ptr != q) return false;
      }
      n.real = true;
      p = q;
      return true;
    }
    if (nd > 10 || (nd > 1 && *digitos == '0')) return false;
    int64_t v = 0;
    for (const char* d = digitos; d < q; ++d) v = v * 10 + (*d - '0');
    if (negativo) v = -v;
    if (v < INT32_MIN || v > INT32_MAX) return false;
    n.real = false;
    n.inteiro = static_cast<int>(v);
    n.valor = static_cast<double>(v);
    p = q;
    return true;
  }
};

// Collects the seven numbers of each keypoint, in one of the two layouts
// the ordinary reader takes, never both in one store: flat (numbers straight
// in the sequence) or nested (each keypoint a sequence of its own, opened by
// abreItem and closed by fechaItem).
class ColetorKeyPoints {
 public:
  bool adiciona(const Numero& n) {
    if (forma_ == Forma::indefinida) forma_ = Forma::plana;
    if ((forma_ == Forma::aninhada) != dentro_ || !campoRepresentavel(k_, n.valor)) return false;
    campos_[k_++] = n.valor;
    if (k_ == kCampos) {
      keypoints_.push_back(keyPointDeCampos(campos_));
      k_ = 0;
    }
    return true;
  }
  bool abreItem() {
    if (forma_ == Forma::plana || dentro_) return false;
    forma_ = Forma::aninhada;
    dentro_ = true;
    return true;
  }
  // Exactly seven numbers since abreItem.
  bool fechaItem() {
    if (!dentro_ || k_ != 0 || keypoints_.size() != ++fechados_) return false;
    dentro_ = false;
    return true;
  }
  bool completo() const { return k_ == 0 && !dentro_; }
  std::vector<cv::KeyPoint>& keypoints() { return keypoints_; }

 private:
  enum class Forma { indefinida, plana, aninhada };
  std::vector<cv::KeyPoint> keypoints_;
  double campos_[kCampos] = {};
  int k_ = 0;
  Forma forma_ = Forma::indefinida;
  bool dentro_ = false;
  size_t fechados_ = 0;
};

// The descriptor matrix, filled in order once its header is known.
class ColetorMatriz {
 public:
  // False for a header the reader does not take, or one asking for more
  // numbers than `bytes` of text can hold.
  bool cabecalho(int rows, int cols, char dt, size_t bytes) {
    if (rows < 0 || cols < 0 || (dt != 'f' && dt != 'u')) return false;
    const int64_t total = static_cast<int64_t>(rows) * cols;
    if (total > static_cast<int64_t>(bytes / 2)) return false;
    tipo_ = dt == 'f' ? CV_32F : CV_8U;
    rows_ = rows;
    cols_ = cols;
    dados_.create(rows, cols, tipo_);
    total_ = static_cast<size_t>(total);
    return true;
  }
  bool adiciona(const Numero& n) {
    if (lidos_ == total_) return false;
    if (tipo_ == CV_32F) {
      if (n.valor > FLT_MAX || n.valor < -FLT_MAX) return false;
      dados_.ptr<float>()[lidos_++] = n.real ? static_cast<float>(n.valor) : static_cast<float>(n.inteiro);
    } else {
      if (n.real || n.inteiro < 0 || n.inteiro > 255) return false;
      dados_.ptr<uchar>()[lidos_++] = static_cast<uchar>(n.inteiro);
    }
    return true;
  }
  bool completo() const { return lidos_ == total_; }
  size_t lidos() const { return lidos_; }
  // As cv::read fills its output: create, then the values.
  void entrega(cv::Mat& m) const {
    m.create(rows_, cols_, tipo_);
    if (total_ > 0) std::memcpy(m.data, dados_.data, total_ * dados_.elemSize());
  }

 private:
  cv::Mat dados_;
  int rows_ = 0, cols_ = 0, tipo_ = CV_8U;
  size_t total_ = 0, lidos_ = 0;
};

// What a store holds; each node is read at most once, in either order.
struct Nos {
  ColetorKeyPoints keypoints;
  ColetorMatriz matriz;
  bool temKeyPoints = false, temMatriz = false;

  // The node that starts at `c`: opened by `abreKeyPoints` or `abreMatriz`
  // in the format at hand, then read by that format's reader.
  bool proximo(Cursor& c, const char* abreKeyPoints, bool (*leKeyPoints)(Cursor&, ColetorKeyPoints&),
               const char* abreMatriz, bool (*leMatriz)(Cursor&, ColetorMatriz&)) {
    if (!temKeyPoints && c.literal(abreKeyPoints)) {
      temKeyPoints = true;
      return leKeyPoints(c, keypoints);
    }
    if (!temMatriz && c.literal(abreMatriz)) {
      temMatriz = true;
      return leMatriz(c, matriz);
    }
    return false;
  }
};

// ---------------------------------------------------------------- XML

void brancosXml(Cursor& c) {
  while (!c.acabou() && (*c.p == ' ' || *c.p == '\n')) ++c.p;
}

// Blank-separated numbers up to the next tag.
template <typename Coletor>
bool numerosXml(Cursor& c, Coletor& coletor) {
  for (;;) {
    brancosXml(c);
    if (c.atual() == '<') return true;
    Numero n;
    if (!c.numero(n) || !coletor.adiciona(n)) return false;
    const char d = c.atual();
    if (d != ' ' && d != '\n' && d != '<') return false;
  }
}

// After "<keypoints>": numbers, or one "<_>" element of numbers per keypoint.
bool keypointsXml(Cursor& c, ColetorKeyPoints& kps) {
  for (;;) {
    if (!numerosXml(c, kps)) return false;
    if (c.literal("</keypoints>")) return kps.completo();
    if (!c.literal("<_>") || !kps.abreItem() || !numerosXml(c, kps) || !c.literal("</_>") || !kps.fechaItem())
      return false;
  }
}

bool inteiroXml(Cursor& c, const char* abre, const char* fecha, int& valor) {
  brancosXml(c);
  Numero n;
  if (!c.literal(abre) || !c.numero(n) || n.real || !c.literal(fecha)) return false;
  valor = n.inteiro;
  return true;
}

// After "<descriptors type_id="opencv-matrix">".
bool matrizXml(Cursor& c, ColetorMatriz& matriz) {
  int rows = 0, cols = 0;
  if (!inteiroXml(c, "<rows>", "</rows>", rows) || !inteiroXml(c, "<cols>", "</cols>", cols)) return false;
  brancosXml(c);
  if (!c.literal("<dt>") || c.fim - c.p < 1) return false;
  const char dt = *c.p++;
  if (!c.literal("</dt>")) return false;
  brancosXml(c);
  if (!c.literal("<data>") || !matriz.cabecalho(rows, cols, dt, static_cast<size_t>(c.fim - c.p)) ||
      !numerosXml(c, matriz) || !matriz.completo() || matriz.lidos() == 1 || !c.literal("</data>"))
    return false;
  brancosXml(c);
  return c.literal("</descriptors>");
}

// The two nodes, nothing else.
bool storeXml(Cursor& c, Nos& nos) {
  if (!c.literal("<?xml version=\"1.0\"?>")) return false;
  brancosXml(c);
  if (!c.literal("<opencv_storage>")) return false;
  for (;;) {
    brancosXml(c);
    if (c.literal("</opencv_storage>")) break;
    if (!nos.proximo(c, "<keypoints>", keypointsXml, "<descriptors type_id=\"opencv-matrix\">", matrizXml))
      return false;
  }
  brancosXml(c);
  return c.acabou() && (nos.temKeyPoints || nos.temMatriz);
}

// ---------------------------------------------------------------- YAML

// Spaces, and line breaks followed by at least `recuo` spaces and text: no
// blank lines, no tabs, no comments.
bool brancosYaml(Cursor& c, int recuo) {
  for (;;) {
    while (!c.acabou() && *c.p == ' ') ++c.p;
    if (c.atual() != '\n') return true;
    ++c.p;
    int espacos = 0;
    while (!c.acabou() && *c.p == ' ') {
      ++c.p;
      ++espacos;
    }
    if (espacos < recuo || c.acabou() || *c.p == '\n') return false;
  }
}

// A flow sequence "[ e, e, ... ]", each element read by `elemento`,
// continuation lines indented by at least `recuo`.
template <typename Elemento>
bool fluxoYaml(Cursor& c, int recuo, Elemento elemento) {
  if (!c.literal("[") || !brancosYaml(c, recuo)) return false;
  if (c.literal("]")) return true;
  for (;;) {
    if (!elemento()) return false;
    while (c.atual() == ' ') ++c.p;
    if (c.literal("]")) return true;
    if (!c.literal(",")) return false;
    if (c.atual() != ' ' && c.atual() != '\n') return false;
    if (!brancosYaml(c, recuo)) return false;
  }
}

template <typename Coletor>
bool numeroPara(Cursor& c, Coletor& coletor) {
  Numero n;
  return c.numero(n) && coletor.adiciona(n);
}

template <typename Coletor>
bool numerosYaml(Cursor& c, int recuo, Coletor& coletor) {
  return fluxoYaml(c, recuo, [&] { return numeroPara(c, coletor); });
}

// One keypoint's own flow sequence.
bool itemFluxoYaml(Cursor& c, int recuo, ColetorKeyPoints& kps) {
  return kps.abreItem() && numerosYaml(c, recuo, kps) && kps.fechaItem();
}

// A number alone on the rest of its line.
bool numeroEmLinha(Cursor& c, ColetorKeyPoints& kps) { return numeroPara(c, kps) && c.literal("\n"); }

// After "keypoints:", up to and with the end of its last line. OpenCV writes
// the sequence in flow ("[ ... ]", flat or of flow items) or in block, one
// "   - " line per element: a number, a keypoint's flow sequence, or a bare
// "-" with the keypoint's seven "      - " lines below it.
bool keypointsYaml(Cursor& c, ColetorKeyPoints& kps) {
  // Continuation lines as OpenCV's writer indents them: deeper than its
  // reader needs.
  constexpr int kRecuoFluxo = 4, kRecuoItem = 7;
  if (c.literal(" "))
    return fluxoYaml(c, kRecuoFluxo,
                     [&] { return c.atual() == '[' ? itemFluxoYaml(c, kRecuoFluxo, kps) : numeroPara(c, kps); }) &&
           kps.completo() && c.literal("\n");
  if (!c.literal("\n")) return false;
  if (c.literal("   []\n")) return true;
  if (!c.literal("   -")) return false;  // a key with no value is no sequence
  do {
    if (c.literal("\n")) {
      if (!kps.abreItem()) return false;
      while (c.literal("      - "))
        if (!numeroEmLinha(c, kps)) return false;
      if (!kps.fechaItem()) return false;
    } else if (!c.literal(" ") ||
               !(c.atual() == '[' ? itemFluxoYaml(c, kRecuoItem, kps) && c.literal("\n") : numeroEmLinha(c, kps))) {
      return false;
    }
  } while (c.literal("   -"));
  return kps.completo();
}

bool inteiroYaml(Cursor& c, const char* chave, int& valor) {
  Numero n;
  if (!c.literal(chave) || !c.numero(n) || n.real || !c.literal("\n")) return false;
  valor = n.inteiro;
  return true;
}

// After "descriptors: !!opencv-matrix\n".
bool matrizYaml(Cursor& c, ColetorMatriz& matriz) {
  constexpr int kRecuoDados = 7;
  int rows = 0, cols = 0;
  if (!inteiroYaml(c, "   rows: ", rows) || !inteiroYaml(c, "   cols: ", cols) || !c.literal("   dt: ") ||
      c.fim - c.p < 1)
    return false;
  const char dt = *c.p++;
  return c.literal("\n") && c.literal("   data: ") &&
         matriz.cabecalho(rows, cols, dt, static_cast<size_t>(c.fim - c.p)) && numerosYaml(c, kRecuoDados, matriz) &&
         matriz.completo() && c.literal("\n");
}

// The two nodes, nothing else.
bool storeYaml(Cursor& c, Nos& nos) {
  if (!c.literal("%YAML:1.0\n")) return false;
  c.literal("---\n");  // OpenCV 2.4 wrote none
  do {
    if (!nos.proximo(c, "keypoints:", keypointsYaml, "descriptors: !!opencv-matrix\n", matrizYaml)) return false;
  } while (!c.acabou());
  return true;
}

// ---------------------------------------------------------------- match file

bool brancoC(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// The words of the file as tvm::leNum cuts them: blank-separated, a word
// starting with "//" begins a comment up to the end of its line, and no word
// is longer than 64 characters.
class Palavras {
 public:
  Palavras(const char* p, const char* fim) : p_(p), fim_(fim) {}

  bool proxima(const char*& inicio, const char*& fim) {
    for (;;) {
      while (p_ < fim_ && brancoC(*p_)) ++p_;
      if (fim_ - p_ < 2 || p_[0] != '/' || p_[1] != '/') break;
      while (p_ < fim_ && *p_ != '\n') ++p_;
    }
    inicio = p_;
    while (p_ < fim_ && !brancoC(*p_)) ++p_;
    fim = p_;
    return fim > inicio && fim - inicio <= 64;
  }

  // strtol and strtod take one sign, "+" too; from_chars only "-".
  static bool sinal(const char*& a, const char* b) {
    if (*a != '+') return true;
    ++a;
    return a < b && *a != '-';
  }

  bool inteiro(int& valor) {
    const char *a = nullptr, *b = nullptr;
    if (!proxima(a, b) || !sinal(a, b)) return false;
    long long v = 0;
    const std::from_chars_result r = std::from_chars(a, b, v);
    if (r.ec != std::errc() || r.ptr != b || v < INT32_MIN || v > INT32_MAX) return false;
    valor = static_cast<int>(v);
    return true;
  }

  // Plain decimal notation only; strtod's other forms (hex, inf, nan) are
  // left to the ordinary reader.
  bool real(float& valor) {
    const char *a = nullptr, *b = nullptr;
    if (!proxima(a, b) || !sinal(a, b)) return false;
    const char* q = *a == '-' ? a + 1 : a;
    const char* d = q;
    while (q < b && digito(*q)) ++q;
    bool temDigitos = q > d;
    if (q < b && *q == '.') {
      d = ++q;
      while (q < b && digito(*q)) ++q;
      temDigitos = temDigitos || q > d;
    }
    if (!temDigitos) return false;
    if (q < b && (*q == 'e' || *q == 'E')) {
      ++q;
      if (q < b && (*q == '+' || *q == '-')) ++q;
      d = q;
      while (q < b && digito(*q)) ++q;
      if (q == d) return false;
    }
    if (q != b) return false;
    double v = 0;
    const std::from_chars_result r = std::from_chars(a, b, v);
    if (r.ec != std::errc() || r.ptr != b || v > FLT_MAX || v < -FLT_MAX) return false;
    valor = static_cast<float>(v);
    return true;
  }

  bool keyPoint(cv::KeyPoint& k) {
    return real(k.pt.x) && real(k.pt.y) && real(k.size) && real(k.angle) && real(k.response) && inteiro(k.octave) &&
           inteiro(k.class_id);
  }

 private:
  const char* p_;
  const char* fim_;
};

}  // namespace

bool campoRepresentavel(int campo, double v) {
  // Five floats, then octave and class_id, which truncate towards zero.
  return campo < 5 ? (v <= FLT_MAX && v >= -FLT_MAX) : (v > -2147483649.0 && v < 2147483648.0);
}

cv::KeyPoint keyPointDeCampos(const double campos[kCampos]) {
  return cv::KeyPoint(static_cast<float>(campos[0]), static_cast<float>(campos[1]), static_cast<float>(campos[2]),
                      static_cast<float>(campos[3]), static_cast<float>(campos[4]), static_cast<int>(campos[5]),
                      static_cast<int>(campos[6]));
}

bool leStoreRapido(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat* descriptors) {
  std::string texto;
  if (!(terminaEm(file, ".gz") ? inflaArquivo(file, texto) : leArquivo(file, texto))) return false;
  return leStoreTexto(texto, keypoints, descriptors);
}

bool leStoreTexto(const std::string& texto, std::vector<cv::KeyPoint>& keypoints, cv::Mat* descriptors) {
  Cursor c{texto.data(), texto.data() + texto.size()};
  Nos nos;
  // The text's start chooses the syntax, as it does for FileStorage.
  if (!(c.atual() == '<' ? storeXml(c, nos) : storeYaml(c, nos))) return false;
  keypoints = std::move(nos.keypoints.keypoints());
  if (descriptors) {
    if (nos.temMatriz)
      nos.matriz.entrega(*descriptors);
    else
      cv::Mat().copyTo(*descriptors);  // what cv::read does for a missing node
  }
  return true;
}

bool leMatchRapido(const std::string& file, std::vector<cv::DMatch>& matches, std::vector<cv::KeyPoint>& keypoints1,
                   std::vector<cv::KeyPoint>& keypoints2) {
  std::string texto;
  if (!leArquivo(file, texto)) return false;
  Palavras palavras(texto.data(), texto.data() + texto.size());
  int n = 0, colunas = 0;
  if (!palavras.inteiro(n) || !palavras.inteiro(colunas) || colunas != 15 || n < 0) return false;
  // Each line takes at least 30 bytes, so the count cannot ask for more.
  if (static_cast<size_t>(n) > texto.size() / 30 + 1) return false;
  return leLinhasDeCasamento(
      n, static_cast<size_t>(n),
      [&](float& distancia, cv::KeyPoint& a, cv::KeyPoint& b) {
        return palavras.real(distancia) && palavras.keyPoint(a) && palavras.keyPoint(b);
      },
      matches, keypoints1, keypoints2);
}

}  // namespace formats
