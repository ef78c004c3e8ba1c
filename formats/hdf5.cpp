#include "formats/hdf5.hpp"

#include "support/erro.hpp"
#include "support/limites.hpp"

#include <hdf5.h>
#include <zlib.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <type_traits>
#include <utility>

namespace formats {

static_assert(std::is_same_v<hid_t, int64_t>, "H5 keeps the file's hid_t as an int64_t");

namespace {

// One HDF5 handle, released when it goes out of scope (also when tvm::erro
// throws past it): a handle left open keeps the whole file open.
class Id {
 public:
  explicit Id(hid_t id = H5I_INVALID_HID) : id_(id) {}
  ~Id() {
    if (id_ >= 0) H5Idec_ref(id_);
  }
  Id(Id&& o) noexcept : id_(o.id_) { o.id_ = H5I_INVALID_HID; }
  Id(const Id&) = delete;
  Id& operator=(const Id&) = delete;
  Id& operator=(Id&& o) noexcept {
    std::swap(id_, o.id_);  // o releases what this held
    return *this;
  }
  hid_t get() const { return id_; }
  bool valido() const { return id_ >= 0; }

 private:
  hid_t id_;
};

// HDF5 prints nothing. A thread-safe HDF5 (Debian's) keeps an error stack
// per thread, so every thread that reaches a file silences its own.
bool silencioso() {
  thread_local const bool feito = H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr) >= 0;
  return feito;
}

// "/a//b/" → "a/b": the form every walk starts from.
std::vector<std::string> partes(const std::string& caminho) {
  std::vector<std::string> p;
  for (size_t i = 0; i <= caminho.size();) {
    const size_t fim = std::min(caminho.find('/', i), caminho.size());
    if (fim > i) p.push_back(caminho.substr(i, fim - i));
    i = fim + 1;
  }
  return p;
}

// The object at `caminho`, reached through hard links only, checked one by
// one so that a missing name is an answer rather than an HDF5 error; invalid
// when there is none.
Id abre(hid_t arquivo, const std::string& caminho) {
  silencioso();
  std::string prefixo = "/";
  for (const std::string& nome : partes(caminho)) {
    prefixo += (prefixo.size() > 1 ? "/" : "") + nome;
    H5L_info_t link;
    if (H5Lexists(arquivo, prefixo.c_str(), H5P_DEFAULT) <= 0 ||
        H5Lget_info(arquivo, prefixo.c_str(), &link, H5P_DEFAULT) < 0 || link.type != H5L_TYPE_HARD)
      return Id();
  }
  return Id(H5Oopen(arquivo, prefixo.c_str(), H5P_DEFAULT));
}

bool eh(hid_t arquivo, const std::string& caminho, H5I_type_t tipo) {
  const Id o = abre(arquivo, caminho);
  return o.valido() && H5Iget_type(o.get()) == tipo;
}

std::string ondeDe(const std::string& arquivo, const std::string& caminho) {
  return arquivo + " (" + (caminho.empty() ? "/" : caminho) + ")";
}

// A dataset opened and described: its shape and its element type, checked
// against what the reader handles.
struct Dataset {
  Id ds, tipo;
  InfoArranjo info;
  bool real = false;  // IEEE float; otherwise an integer
  bool comSinal = false;
  size_t bytes = 0;  // per element, in the file
};

// A float whose bit fields are IEEE's half, single or double: HDF5 accepts
// any layout, and its generic converter is not where a crafted one should go.
bool ieee(hid_t t, size_t bytes) {
  size_t spos, epos, esize, mpos, msize;
  if (H5Tget_fields(t, &spos, &epos, &esize, &mpos, &msize) < 0) return false;
  const size_t e = bytes == 2 ? 5 : bytes == 4 ? 8 : 11;
  return (bytes == 2 || bytes == 4 || bytes == 8) && spos == 8 * bytes - 1 && esize == e && epos == spos - e &&
         mpos == 0 && msize == epos && H5Tget_ebias(t) == (size_t(1) << (e - 1)) - 1 &&
         H5Tget_norm(t) == H5T_NORM_IMPLIED;
}

Dataset abreDataset(hid_t arquivo, const std::string& caminho, const std::string& onde) {
  Dataset d;
  Id o = abre(arquivo, caminho);
  if (!o.valido()) tvm::erro("Erro: dataset ausente em ", onde);
  if (H5Iget_type(o.get()) != H5I_DATASET) tvm::erro("Erro: objeto nao e dataset em ", onde);
  d.ds = std::move(o);
  d.tipo = Id(H5Dget_type(d.ds.get()));
  const hid_t t = d.tipo.get();
  const H5T_class_t classe = d.tipo.valido() ? H5Tget_class(t) : H5T_NO_CLASS;
  d.real = classe == H5T_FLOAT;
  d.bytes = H5Tget_size(t);
  const H5T_order_t ordem = H5Tget_order(t);
  const H5T_sign_t sinal = d.real ? H5T_SGN_2 : H5Tget_sign(t);
  d.comSinal = sinal == H5T_SGN_2;
  const bool numero = (classe == H5T_INTEGER || classe == H5T_FLOAT) && H5Tget_offset(t) == 0 &&
                      H5Tget_precision(t) == 8 * d.bytes && sinal != H5T_SGN_ERROR &&
                      (ordem == H5T_ORDER_LE || ordem == H5T_ORDER_BE || (d.bytes == 1 && ordem == H5T_ORDER_NONE));
  const bool tamanho = d.real ? ieee(t, d.bytes) : d.bytes == 1 || d.bytes == 2 || d.bytes == 4 || d.bytes == 8;
  if (!numero || !tamanho) tvm::erro("Erro: tipo de dataset nao suportado em ", onde);
  d.info.tipo = std::string(1, d.bytes == 1 ? '|' : ordem == H5T_ORDER_BE ? '>' : '<') +
                (d.real ? 'f' : d.comSinal ? 'i' : 'u') + std::to_string(d.bytes);

  const Id espaco(H5Dget_space(d.ds.get()));
  const H5S_class_t forma = espaco.valido() ? H5Sget_simple_extent_type(espaco.get()) : H5S_NO_CLASS;
  const int rank = forma == H5S_SIMPLE ? H5Sget_simple_extent_ndims(espaco.get()) : forma == H5S_SCALAR ? 0 : -1;
  if (rank < 0 || rank > 2) tvm::erro("Erro: forma nao suportada em ", onde);
  hsize_t dims[2] = {};
  if ((rank > 0 && H5Sget_simple_extent_dims(espaco.get(), dims, nullptr) != rank) || dims[0] > INT64_MAX ||
      dims[1] > INT64_MAX)
    tvm::erro("Erro: forma nao suportada em ", onde);
  d.info.forma.assign(dims, dims + rank);
  return d;
}

// Elements times `bytes`, or past any limit when that overflows.
int64_t bytesDe(const std::vector<hsize_t>& dims, size_t bytes) {
  int64_t n = static_cast<int64_t>(bytes);
  for (const hsize_t d : dims) {
    if (d > 0 && (d > uint64_t(INT64_MAX) || n > INT64_MAX / static_cast<int64_t>(d))) return INT64_MAX;
    n *= static_cast<int64_t>(d);
  }
  return n;
}

// `oque` is "dataset" or "grupo".
[[noreturn]] void grandeDemais(const std::string& onde, int64_t limite, const char* oque = "dataset") {
  tvm::erro(std::string("Erro: ") + oque + " ", onde,
            " passa do limite de " + std::to_string(limite / 1000000) + " MB (QUIVELAR_MAX_STORE_MB muda o limite)");
}

// Whether the zlib stream at the start of `dados` ends within `maximo`
// inflated bytes, counted in a scratch buffer.
bool inflaAte(std::vector<Bytef>& dados, uint64_t maximo) {
  z_stream z{};
  if (dados.size() > UINT_MAX || inflateInit(&z) != Z_OK) return false;
  z.next_in = dados.data();
  z.avail_in = static_cast<uInt>(dados.size());
  Bytef rascunho[1 << 16];
  int r = Z_OK;
  while (r == Z_OK && z.total_out <= maximo) {
    z.next_out = rascunho;
    z.avail_out = sizeof rascunho;
    r = inflate(&z, Z_NO_FLUSH);
  }
  inflateEnd(&z);
  return r == Z_STREAM_END && z.total_out <= maximo;
}

// HDF5 1.10's inflater doubles its buffer for as long as a stream goes on, so
// a crafted chunk of a few KB could ask for gigabytes, and a predefined filter
// cannot be replaced. Each stored chunk of a gzip dataset is inflated here
// first, counting, and one that passes its chunk size (plus a fletcher32
// sum) stops the tool: gzip data is inflated twice. Sound only when nothing
// but fletcher32 comes after gzip in the pipeline, which the caller checks.
void verificaInflacao(const Dataset& d, const std::vector<hsize_t>& chunk, unsigned gzip, int64_t limite,
                      const std::string& onde) {
  const std::vector<int64_t>& dims = d.info.forma;
  if (std::find(dims.begin(), dims.end(), 0) != dims.end()) return;
  const uint64_t maximo = static_cast<uint64_t>(bytesDe(chunk, d.bytes)) + 4;
  std::vector<hsize_t> canto(dims.size(), 0);
  std::vector<Bytef> dados;
  for (size_t eixo = dims.size(); eixo > 0;) {
    hsize_t guardados = 0;
    uint32_t pulados = 0;  // filters not applied to this chunk
    if (H5Dget_chunk_storage_size(d.ds.get(), canto.data(), &guardados) < 0)
      tvm::erro("Erro: leitura falhou em ", onde);
    if (guardados > static_cast<uint64_t>(limite)) grandeDemais(onde, limite);
    if (guardados > 0) {
      dados.resize(guardados);
      if (H5Dread_chunk(d.ds.get(), H5P_DEFAULT, canto.data(), &pulados, dados.data()) < 0 ||
          (!(pulados & (1u << gzip)) && !inflaAte(dados, maximo)))
        tvm::erro("Erro: leitura falhou em ", onde);
    }
    // The next chunk's corner, last axis fastest.
    for (eixo = dims.size(); eixo > 0; --eixo) {
      canto[eixo - 1] += chunk[eixo - 1];
      if (canto[eixo - 1] < static_cast<hsize_t>(dims[eixo - 1])) break;
      canto[eixo - 1] = 0;
    }
  }
}

// What reading takes beyond the element buffer: HDF5 allocates a whole chunk
// at a time, so a chunk counts like a dataset. Also the storage: filters we
// trust, in the order h5py writes them (shuffle, gzip, fletcher32), and data
// inside this file.
void verificaArmazenamento(const Dataset& d, int64_t limite, const std::string& onde) {
  const Id dcpl(H5Dget_create_plist(d.ds.get()));
  const H5D_layout_t layout = dcpl.valido() ? H5Pget_layout(dcpl.get()) : H5D_LAYOUT_ERROR;
  const int externos = dcpl.valido() ? H5Pget_external_count(dcpl.get()) : -1;
  if (layout == H5D_VIRTUAL || externos > 0) tvm::erro("Erro: dados fora do arquivo em ", onde);
  if (layout < 0 || externos < 0) tvm::erro("Erro: leitura falhou em ", onde);
  if (layout != H5D_CHUNKED) return;
  hsize_t chunk[H5S_MAX_RANK];
  const int rank = H5Pget_chunk(dcpl.get(), H5S_MAX_RANK, chunk);
  if (rank != static_cast<int>(d.info.forma.size()) || std::find(chunk, chunk + rank, 0) != chunk + rank)
    tvm::erro("Erro: leitura falhou em ", onde);
  const std::vector<hsize_t> dimsChunk(chunk, chunk + rank);
  if (bytesDe(dimsChunk, d.bytes) > limite) grandeDemais(onde, limite);
  const int nfiltros = H5Pget_nfilters(dcpl.get());
  if (nfiltros < 0 || nfiltros > 32) tvm::erro("Erro: leitura falhou em ", onde);
  int gzip = -1;
  for (int i = 0; i < nfiltros; ++i) {
    unsigned flags = 0, configuracao = 0;
    size_t ncd = 0;
    const H5Z_filter_t f = H5Pget_filter2(dcpl.get(), static_cast<unsigned>(i), &flags, &ncd, nullptr, 0, nullptr,
                                          &configuracao);
    if (f != H5Z_FILTER_FLETCHER32 && (gzip >= 0 || (f != H5Z_FILTER_DEFLATE && f != H5Z_FILTER_SHUFFLE)))
      tvm::erro("Erro: filtro nao suportado em ", onde);
    if (f == H5Z_FILTER_DEFLATE) gzip = i;
  }
  if (gzip >= 0) verificaInflacao(d, dimsChunk, static_cast<unsigned>(gzip), limite, onde);
}

const char* nomeCv(int tipo) {
  return tipo == CV_8U ? "uint8" : tipo == CV_32S ? "int32" : tipo == CV_32F ? "float32" : "float64";
}

// Whether every value of the source type is exact in `tipo`, so that HDF5's
// own conversion can be trusted with it.
bool exatoPeloTipo(const Dataset& d, int tipo) {
  const size_t b = d.bytes;
  switch (tipo) {
    case CV_8U: return !d.real && !d.comSinal && b == 1;
    case CV_32S: return !d.real && (b < 4 || (b == 4 && d.comSinal));
    case CV_32F: return b <= 2 || (d.real && b == 4);
    default: return d.real || b <= 4;
  }
}

// Whether `v`, a value of the dataset read as float64, reaches `tipo`
// unchanged. HDF5 reads integers into float64 exactly below 2^53 and rounds
// above, so larger ones go no further than an integer type would take them.
bool chega(double v, int tipo, bool real) {
  constexpr double k2a53 = 9007199254740992.0;
  switch (tipo) {
    case CV_8U: return v >= 0 && v <= UCHAR_MAX;
    case CV_32S: return v >= INT_MIN && v <= INT_MAX;
    case CV_32F:
      return real ? !std::isfinite(v) || std::fabs(v) <= FLT_MAX
                  : std::fabs(v) < k2a53 && static_cast<double>(static_cast<float>(v)) == v;
    default: return std::fabs(v) < k2a53;
  }
}

}  // namespace

H5::H5(const std::string& arquivo) : arquivo_(arquivo), id_(H5I_INVALID_HID) {
  // No filter plugin is ever loaded, whatever a file asks for.
  static const bool semPlugins = H5PLset_loading_state(0) >= 0;
  if (!semPlugins || !silencioso()) tvm::erro("Erro: biblioteca HDF5 nao configurada ao abrir ", arquivo);
  if (H5Fis_hdf5(arquivo.c_str()) <= 0) tvm::erro("Erro abertura arquivo ", arquivo);
  id_ = H5Fopen(arquivo.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  if (id_ < 0) tvm::erro("Erro abertura arquivo ", arquivo);
}

H5::~H5() { H5Fclose(id_); }

bool H5::tem(const std::string& caminho) const { return eh(id_, caminho, H5I_DATASET); }

bool H5::temGrupo(const std::string& caminho) const { return eh(id_, caminho, H5I_GROUP); }

std::vector<std::string> H5::filhos(const std::string& grupo) const {
  const std::string onde = ondeDe(arquivo_, grupo);
  const Id g = abre(id_, grupo);
  if (!g.valido() || H5Iget_type(g.get()) != H5I_GROUP) tvm::erro("Erro: grupo ausente em ", onde);
  struct Coleta {
    std::vector<std::string> nomes;
    int64_t bytes, limite;
  } c{{}, 0, tvm::limiteStoreBytes()};
  // A crafted index may list names without end: they count like data.
  const H5L_iterate_t junta = [](hid_t, const char* nome, const H5L_info_t* link, void* dados) -> herr_t {
    auto& c = *static_cast<Coleta*>(dados);
    if (link->type != H5L_TYPE_HARD) return 0;
    try {
      c.nomes.emplace_back(nome);
    } catch (...) {
      return -1;
    }
    c.bytes += static_cast<int64_t>(c.nomes.back().size() + sizeof(std::string));
    return c.bytes > c.limite ? -1 : 0;
  };
  hsize_t i = 0;
  if (H5Literate(g.get(), H5_INDEX_NAME, H5_ITER_INC, &i, junta, &c) < 0) {
    if (c.bytes > c.limite) grandeDemais(onde, c.limite, "grupo");
    tvm::erro("Erro: leitura falhou em ", onde);
  }
  return c.nomes;
}

InfoArranjo H5::info(const std::string& caminho) const {
  return abreDataset(id_, caminho, ondeDe(arquivo_, caminho)).info;
}

cv::Mat H5::le(const std::string& caminho, int tipo) const {
  const std::string onde = ondeDe(arquivo_, caminho);
  if (tipo != CV_32F && tipo != CV_64F && tipo != CV_32S && tipo != CV_8U)
    tvm::erro("Erro: tipo de matriz pedido invalido para ", onde);
  const Dataset d = abreDataset(id_, caminho, onde);
  // Floats never become integers. Any other conversion that may change a
  // value reads into float64 first, to be checked value by value.
  const bool exato = exatoPeloTipo(d, tipo);
  const auto perda = [&] { tvm::erro(std::string("Erro: conversao com perda para ") + nomeCv(tipo) + " em ", onde); };
  if (d.real && (tipo == CV_8U || tipo == CV_32S)) perda();
  const int64_t limite = tvm::limiteStoreBytes();
  std::vector<hsize_t> dims(d.info.forma.begin(), d.info.forma.end());
  if (bytesDe(dims, std::max({d.bytes, size_t(CV_ELEM_SIZE(tipo)), exato ? 0 : sizeof(double)})) > limite ||
      std::any_of(dims.begin(), dims.end(), [](hsize_t n) { return n > INT_MAX; }))
    grandeDemais(onde, limite);
  verificaArmazenamento(d, limite, onde);
  cv::Mat m(dims.empty() ? 1 : static_cast<int>(dims[0]), dims.size() < 2 ? 1 : static_cast<int>(dims[1]), tipo);
  if (m.total() == 0) return m;
  cv::Mat lida = exato ? m : cv::Mat(m.rows, m.cols, CV_64F);
  const int t = lida.type();
  const hid_t memoria = t == CV_8U    ? H5T_NATIVE_UCHAR
                        : t == CV_32S ? H5T_NATIVE_INT
                        : t == CV_32F ? H5T_NATIVE_FLOAT
                                      : H5T_NATIVE_DOUBLE;
  if (H5Dread(d.ds.get(), memoria, H5S_ALL, H5S_ALL, H5P_DEFAULT, lida.data) < 0)
    tvm::erro("Erro: leitura falhou em ", onde);
  if (!exato) {
    if (!std::all_of(lida.begin<double>(), lida.end<double>(), [&](double v) { return chega(v, tipo, d.real); }))
      perda();
    lida.convertTo(m, tipo);
  }
  return m;
}

}  // namespace formats
