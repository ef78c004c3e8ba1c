#include "formats/npz.hpp"

#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/limites.hpp"

#include <sys/mman.h>
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the readers take NumPy's '<' arrays as they are in memory");

namespace formats {

namespace {

// NumPy itself refuses headers past 10000 bytes unless told otherwise; a
// rank-2 header takes under 128.
constexpr uint32_t kMaxCabecalho = 1 << 16;

// Up to n bytes at p; 0 only at the end of the source.
using Leitor = std::function<size_t(void* p, size_t n)>;

struct Cabecalho {
  InfoArranjo info;
  bool fortran = false;
  int64_t tamanho = 0;  // bytes before the data: magic, version, length, dict
};

// As Python writes a tuple: "()", "(5,)", "(3, 4)".
std::string formaEmTexto(const InfoArranjo& info) {
  std::string s;
  for (int64_t d : info.forma) s += (s.empty() ? "" : ", ") + std::to_string(d);
  return "(" + s + (info.forma.size() == 1 ? ",)" : ")");
}

// The header's dict literal, as np.save writes it (repr of a dict: quoted
// keys, a quoted dtype, True/False, a tuple of whole numbers).
class Dicionario {
 public:
  Dicionario(const std::string& texto, const std::string& onde) : s_(texto), onde_(onde) {}

  Cabecalho le() {
    Cabecalho c;
    bool descr = false, ordem = false, forma = false;
    exige('{');
    while (!aceita('}')) {
      const std::string chave = texto();
      exige(':');
      if (chave == "descr" && !descr) {
        c.info.tipo = texto();
        descr = true;
      } else if (chave == "fortran_order" && !ordem) {
        c.fortran = palavra();
        ordem = true;
      } else if (chave == "shape" && !forma) {
        exige('(');
        while (!aceita(')')) {
          c.info.forma.push_back(inteiro());
          if (!aceita(',')) {
            exige(')');
            break;
          }
        }
        forma = true;
      } else {
        falha();
      }
      if (!aceita(',')) {
        exige('}');
        break;
      }
    }
    espacos();
    if (i_ != s_.size() || !descr || !ordem || !forma) falha();
    return c;
  }

 private:
  [[noreturn]] void falha() const { tvm::erro("Erro: cabecalho .npy invalido em ", onde_); }
  void espacos() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\n')) ++i_;
  }
  bool aceita(char c) {
    espacos();
    if (i_ >= s_.size() || s_[i_] != c) return false;
    ++i_;
    return true;
  }
  void exige(char c) {
    if (!aceita(c)) falha();
  }
  std::string texto() {
    espacos();
    if (i_ >= s_.size() || (s_[i_] != '\'' && s_[i_] != '"')) falha();
    const size_t fim = s_.find(s_[i_], i_ + 1);
    if (fim == std::string::npos) falha();
    std::string r = s_.substr(i_ + 1, fim - i_ - 1);
    i_ = fim + 1;
    return r;
  }
  bool palavra() {
    espacos();
    for (const bool v : {true, false}) {
      const char* p = v ? "True" : "False";
      if (s_.compare(i_, std::strlen(p), p) == 0) {
        i_ += std::strlen(p);
        return v;
      }
    }
    falha();
  }
  int64_t inteiro() {
    espacos();
    int64_t v = 0;
    const size_t inicio = i_;
    for (; i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9'; ++i_) {
      if (v > (INT64_MAX - 9) / 10) tvm::erro("Erro: forma grande demais em ", onde_);
      v = v * 10 + (s_[i_] - '0');
    }
    if (i_ == inicio) falha();
    return v;
  }

  const std::string& s_;
  const std::string& onde_;
  size_t i_ = 0;
};

// Fills p with n bytes, fewer only when the source ends first.
size_t leAte(const Leitor& le, void* p, size_t n) {
  size_t feito = 0;
  while (feito < n) {
    const size_t r = le(static_cast<char*>(p) + feito, n - feito);
    if (r == 0) break;
    feito += r;
  }
  return feito;
}

Cabecalho leCabecalho(const Leitor& le, const std::string& onde) {
  unsigned char inicio[12];
  if (leAte(le, inicio, 10) != 10 || std::memcmp(inicio, "\x93NUMPY", 6) != 0 || inicio[6] < 1 || inicio[6] > 3 ||
      inicio[7] != 0)
    tvm::erro("Erro: ", onde, " nao e um arranjo .npy");
  uint32_t n = inicio[8] | inicio[9] << 8;
  int64_t tamanho = 10;
  if (inicio[6] > 1) {
    if (leAte(le, inicio + 10, 2) != 2) tvm::erro("Erro: ", onde, " nao e um arranjo .npy");
    n |= static_cast<uint32_t>(inicio[10]) << 16 | static_cast<uint32_t>(inicio[11]) << 24;
    tamanho = 12;
  }
  if (n > kMaxCabecalho) tvm::erro("Erro: cabecalho .npy invalido em ", onde);
  std::string texto(n, '\0');
  if (leAte(le, texto.data(), n) != n) tvm::erro("Erro: cabecalho .npy invalido em ", onde);
  Cabecalho c = Dicionario(texto, onde).le();
  c.tamanho = tamanho + n;
  if (c.info.tipo == "|O") tvm::erro("Erro: ", onde, " guarda objetos Python (pickle), que nao sao lidos");
  if (bytesDe(InfoArranjo{{}, c.info.tipo}) < 0)
    tvm::erro("Erro: tipo '" + c.info.tipo + "' de ", onde, " nao e lido (so <f4 <f8 <f2 |u1 <i4 <i8)");
  if (c.info.forma.size() > 2)
    tvm::erro("Erro: ", onde, " tem " + std::to_string(c.info.forma.size()) + " dimensoes; so ate 2 sao lidas");
  if (bytesDe(c.info) < 0) tvm::erro("Erro: forma grande demais em ", onde);
  c.fortran = c.fortran && c.info.forma.size() == 2;
  return c;
}

// The depth that holds a dtype's bits as they are, when it is a type the
// readers return: no conversion is needed then.
int natural(const std::string& tipo) {
  if (tipo == "<f4") return CV_32F;
  if (tipo == "<f8") return CV_64F;
  if (tipo == "|u1") return CV_8U;
  if (tipo == "<i4") return CV_32S;
  return -1;
}

// A fresh buffer faults in 4 KiB at a time on first touch, which costs
// more than copying the array from the page cache: for a copy, huge pages
// (as NumPy asks for its arrays) read 512 MB in 120 ms instead of 280. Not
// for inflating, where the faults are a tenth of the time: there huge pages
// measured slower and less steady (1.6 to 2.8 s against 1.8 s for 512 MB).
void paginasGrandes(void* p, size_t n) {
  constexpr uintptr_t kHuge = uintptr_t(2) << 20;
  const uintptr_t inicio = (reinterpret_cast<uintptr_t>(p) + kHuge - 1) & ~(kHuge - 1);
  const uintptr_t fim = (reinterpret_cast<uintptr_t>(p) + n) & ~(kHuge - 1);
  if (fim > inicio) ::madvise(reinterpret_cast<void*>(inicio), fim - inicio, MADV_HUGEPAGE);
}

// `tem` bytes of data where the header asks for another count.
[[noreturn]] void tamanhoErrado(const std::string& onde, const Cabecalho& c, int64_t tem) {
  const int64_t pede = bytesDe(c.info);
  tvm::erro("Erro: dados de ", onde,
            std::string(tem < pede ? " acabam antes" : " passam") + " dos " + std::to_string(pede) +
                " bytes que a forma " + formaEmTexto(c.info) + " de " + c.info.tipo + " pede");
}

// The data after the header, read straight into the matrix returned when
// the dtype is already `tipo` and the order C; otherwise into a buffer that
// comoMatriz converts. Reads exactly the array's bytes, then checks that the
// source ends there.
cv::Mat leDados(const Leitor& le, const Cabecalho& c, int tipo, const std::string& onde, bool copia) {
  // comoMatriz's checks on an empty array of this dtype: a refused type or
  // conversion stops before anything is allocated or read.
  comoMatriz(nullptr, InfoArranjo{{0}, c.info.tipo}, tipo, onde);
  const int64_t bytes = bytesDe(c.info);
  const int64_t linhas = c.info.forma.empty() ? 1 : c.info.forma[0];
  const int64_t colunas = c.info.forma.size() == 2 ? c.info.forma[1] : 1;
  const int64_t limite = tvm::limiteStoreBytes();
  if (bytes > limite || (linhas > 0 && colunas > limite / CV_ELEM_SIZE(tipo) / linhas))
    tvm::erro("Erro: arranjo ", onde,
              " passa do limite de " + std::to_string(limite / 1000000) + " MB (QUIVELAR_MAX_STORE_MB muda o limite)");
  InfoArranjo disco = c.info;  // the shape as the bytes lie: a Fortran n x d is a C d x n
  if (c.fortran) std::swap(disco.forma[0], disco.forma[1]);
  if (linhas > INT_MAX || colunas > INT_MAX) tvm::erro("Erro: forma de ", onde, " grande demais para uma matriz");
  const bool direto = natural(c.info.tipo) == tipo;
  cv::Mat m;
  std::vector<unsigned char> buffer;
  if (direto)
    m.create(static_cast<int>(c.fortran ? colunas : linhas), static_cast<int>(c.fortran ? linhas : colunas), tipo);
  else
    buffer.resize(static_cast<size_t>(bytes));
  void* destino = direto ? static_cast<void*>(m.data) : buffer.data();
  if (copia) paginasGrandes(destino, static_cast<size_t>(bytes));
  const int64_t lido = static_cast<int64_t>(leAte(le, destino, static_cast<size_t>(bytes)));
  char sobra;
  if (lido < bytes || le(&sobra, 1) != 0) tamanhoErrado(onde, c, lido < bytes ? lido : bytes + 1);
  if (!direto) m = comoMatriz(destino, disco, tipo, onde);
  return c.fortran ? cv::Mat(m.t()) : m;
}

// A .npy file, its size checked against its header.
class ArquivoNpy {
 public:
  explicit ArquivoNpy(const std::string& arquivo) : f_(arquivo, "rb"), onde_(arquivo) {
    if (!f_) tvm::erro("Erro abertura arquivo ", arquivo);
    cabecalho_ = leCabecalho(leitor(), onde_);
    struct stat st {};
    if (::fstat(::fileno(f_.get()), &st) != 0) tvm::erro("Erro leitura ", arquivo);
    if (st.st_size - cabecalho_.tamanho != bytesDe(cabecalho_.info))
      tamanhoErrado(onde_, cabecalho_, st.st_size - cabecalho_.tamanho);
  }
  Leitor leitor() {
    return [this](void* p, size_t n) {
      const size_t r = std::fread(p, 1, n, f_.get());
      if (r == 0 && std::ferror(f_.get())) tvm::erro("Erro leitura ", onde_);
      return r;
    };
  }
  const Cabecalho& cabecalho() const { return cabecalho_; }

 private:
  tvm::Arquivo f_;
  std::string onde_;
  Cabecalho cabecalho_;
};

// One member of an open archive, from its start.
class Membro {
 public:
  Membro(zip_t* z, const std::string& arquivo, const std::string& nome) : onde_(arquivo + " (" + nome + ")") {
    const zip_int64_t i = zip_name_locate(z, (nome + ".npy").c_str(), 0);
    if (i < 0) tvm::erro("Erro: arranjo " + nome + " ausente em ", arquivo);
    zip_stat_t st;
    if (zip_stat_index(z, static_cast<zip_uint64_t>(i), 0, &st) != 0) tvm::erro("Erro leitura ", onde_);
    if ((st.valid & ZIP_STAT_ENCRYPTION_METHOD) && st.encryption_method != ZIP_EM_NONE)
      tvm::erro("Erro: ", onde_, " esta cifrado");
    if ((st.valid & ZIP_STAT_COMP_METHOD) && st.comp_method != ZIP_CM_STORE && st.comp_method != ZIP_CM_DEFLATE)
      tvm::erro("Erro: ", onde_,
                " usa o metodo de compressao " + std::to_string(st.comp_method) + " (so store e deflate)");
    inflado_ = st.comp_method == ZIP_CM_DEFLATE;
    f_.reset(zip_fopen_index(z, static_cast<zip_uint64_t>(i), 0));
    if (!f_) tvm::erro("Erro leitura ", onde_, std::string(": ") + zip_error_strerror(zip_get_error(z)));
    cabecalho_ = leCabecalho(leitor(), onde_);
    // The declared size alone proves nothing (the reads stop at the shape's
    // count anyway), but a difference is reported before any inflating.
    const int64_t declarado = std::min<zip_uint64_t>(st.size, INT64_MAX);
    if ((st.valid & ZIP_STAT_SIZE) && declarado - cabecalho_.tamanho != bytesDe(cabecalho_.info))
      tamanhoErrado(onde_, cabecalho_, declarado - cabecalho_.tamanho);
  }
  Leitor leitor() {
    return [this](void* p, size_t n) {
      const zip_int64_t r = zip_fread(f_.get(), p, n);
      if (r < 0) tvm::erro("Erro leitura ", onde_, std::string(": ") + zip_file_strerror(f_.get()));
      return static_cast<size_t>(r);
    };
  }
  const Cabecalho& cabecalho() const { return cabecalho_; }
  const std::string& onde() const { return onde_; }
  bool inflado() const { return inflado_; }

 private:
  std::string onde_;
  bool inflado_ = false;
  std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> f_{nullptr, zip_fclose};
  Cabecalho cabecalho_;
};

}  // namespace

Npz::Npz(const std::string& arquivo) : arquivo_(arquivo) {
  int codigo = 0;
  zip_ = zip_open(arquivo.c_str(), ZIP_RDONLY, &codigo);
  if (zip_ == nullptr) tvm::erro("Erro abertura arquivo ", arquivo);
}

Npz::~Npz() { zip_discard(zip_); }

bool Npz::tem(const std::string& nome) const { return zip_name_locate(zip_, (nome + ".npy").c_str(), 0) >= 0; }

std::vector<std::string> Npz::nomes() const {
  std::vector<std::string> r;
  const zip_int64_t n = zip_get_num_entries(zip_, 0);
  for (zip_int64_t i = 0; i < n; ++i) {
    const char* nome = zip_get_name(zip_, static_cast<zip_uint64_t>(i), 0);
    if (nome == nullptr) tvm::erro("Erro leitura ", arquivo_);
    const size_t t = std::strlen(nome);
    if (t > 4 && std::strcmp(nome + t - 4, ".npy") == 0) r.emplace_back(nome, t - 4);
  }
  return r;
}

InfoArranjo Npz::info(const std::string& nome) const { return Membro(zip_, arquivo_, nome).cabecalho().info; }

cv::Mat Npz::le(const std::string& nome, int tipo) const {
  Membro m(zip_, arquivo_, nome);
  return leDados(m.leitor(), m.cabecalho(), tipo, m.onde(), !m.inflado());
}

InfoArranjo infoNpy(const std::string& arquivo) { return ArquivoNpy(arquivo).cabecalho().info; }

cv::Mat leNpy(const std::string& arquivo, int tipo) {
  ArquivoNpy a(arquivo);
  return leDados(a.leitor(), a.cabecalho(), tipo, arquivo, true);
}

}  // namespace formats
