#include "formats/stores.hpp"

#include "formats/externos.hpp"
#include "formats/forma_opencv.hpp"
#include "formats/leitura_rapida.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/limites.hpp"
#include "support/vigia.hpp"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <new>

namespace formats {

namespace {

constexpr int kCamposKeyPoint = 7;

double numero(const cv::FileNode& node, int campo, const std::string& file) {
  if (!node.isReal() && !node.isInt()) tvm::erro("Erro: keypoints malformados em ", file);
  const double v = node.real();
  if (!std::isfinite(v)) tvm::erro("Erro: valor nao finito nos keypoints de ", file);
  if (!campoRepresentavel(campo, v)) tvm::erro("Erro: keypoints malformados em ", file);
  return v;
}

std::vector<cv::KeyPoint> leNodeKeyPoints(const cv::FileNode& node, const std::string& file) {
  std::vector<cv::KeyPoint> keypoints;
  if (node.empty() || node.isNone()) return keypoints;
  if (!node.isSeq()) tvm::erro("Erro: keypoints malformados em ", file);
  const bool aninhado = node.size() > 0 && node[0].isSeq();
  double campos[kCamposKeyPoint];
  if (aninhado) {
    keypoints.reserve(node.size());
    for (const cv::FileNode& item : node) {
      if (!item.isSeq() || item.size() != kCamposKeyPoint) tvm::erro("Erro: keypoints malformados em ", file);
      for (int k = 0; k < kCamposKeyPoint; ++k) campos[k] = numero(item[k], k, file);
      keypoints.push_back(keyPointDeCampos(campos));
    }
    return keypoints;
  }
  if (node.size() % kCamposKeyPoint != 0) tvm::erro("Erro: keypoints malformados em ", file);
  keypoints.reserve(node.size() / kCamposKeyPoint);
  int k = 0;
  for (const cv::FileNode& item : node) {
    campos[k] = numero(item, k, file);
    ++k;
    if (k == kCamposKeyPoint) {
      keypoints.push_back(keyPointDeCampos(campos));
      k = 0;
    }
  }
  return keypoints;
}

bool comprimido(const std::string& file) { return file.size() > 3 && file.compare(file.size() - 3, 3, ".gz") == 0; }

[[noreturn]] void textoGrandeDemais(const std::string& file, int64_t limite) {
  tvm::erro("Erro: texto de ", file,
            " passa do limite de " + std::to_string(limite / 1000000) + " MB (QUIVELAR_MAX_STORE_MB muda o limite)");
}

// The text FileStorage would parse: the file's bytes, inflated when the name
// ends in ".gz" (zlib passes text that is not gzip through unchanged, for
// OpenCV as here). Past tvm::limiteStoreBytes() of text the tool stops: a
// parser keeps the whole text and a tree of nodes beside it.
std::string textoDoStore(const std::string& file) {
  const int64_t limite = tvm::limiteStoreBytes();
  const bool gz = comprimido(file);
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> z(gz ? ::gzopen(file.c_str(), "rb") : nullptr, ::gzclose);
  const tvm::Arquivo plano(gz ? std::string() : file, "rb");
  if (gz ? !z : !plano) tvm::erro("Erro abertura arquivo ", file);
  struct stat info {};
  if (!gz && ::fstat(::fileno(plano.get()), &info) == 0 && info.st_size > limite) textoGrandeDemais(file, limite);
  std::string texto;
  constexpr size_t kBloco = size_t(1) << 20;
  for (;;) {
    const size_t lido = texto.size();
    if (static_cast<int64_t>(lido) > limite) textoGrandeDemais(file, limite);
    texto.resize(lido + kBloco);
    const long n = gz ? ::gzread(z.get(), texto.data() + lido, static_cast<unsigned>(kBloco))
                      : static_cast<long>(std::fread(texto.data() + lido, 1, kBloco, plano.get()));
    if (n < 0 || (!gz && n == 0 && std::ferror(plano.get()))) tvm::erro("Erro abertura arquivo ", file);
    texto.resize(lido + static_cast<size_t>(n));
    if (n == 0) break;
  }
  if (static_cast<int64_t>(texto.size()) > limite) textoGrandeDemais(file, limite);
  return texto;
}

// A parse of well-formed text takes milliseconds per megabyte: this bound,
// in CPU seconds of the reading thread, is only the last guard.
double limiteDeLeitura(size_t bytes) { return 1.0 + static_cast<double>(bytes) / 1e6; }

// One FileStorage parse at a time: the guard's timer and message are the
// process's.
std::mutex leituraGuardada;

// Parses `texto`, the contents of `file`, with FileStorage, only when it has
// the form OpenCV's writers give a store (forma_opencv.hpp): its parser may
// never return on other text. Anything else is reported like a failed open.
void abreTexto(cv::FileStorage& fs, const std::string& texto, const std::string& file) {
  if (!formaDoOpenCV(texto.data(), texto.size())) tvm::erro("Erro abertura arquivo ", file);
  bool aberto = false;
  try {
    const std::lock_guard<std::mutex> vez(leituraGuardada);
    const tvm::Vigia vigia(limiteDeLeitura(texto.size()), "Erro: leitura nao termina, arquivo corrompido " + file);
    aberto = fs.open(texto, cv::FileStorage::READ | cv::FileStorage::MEMORY, "");
  } catch (const std::exception&) {
    aberto = false;
  }
  if (!aberto) tvm::erro("Erro abertura arquivo ", file);
}

// FileStorage straight on the file, for the reference readers: the inputs
// given to them are known to be well formed.
void abreLeitura(cv::FileStorage& fs, const std::string& file) {
  bool aberto = false;
  try {
    const std::lock_guard<std::mutex> vez(leituraGuardada);
    struct stat info {};
    const double megabytes = ::stat(file.c_str(), &info) == 0 ? info.st_size / 1e6 : 0.0;
    const tvm::Vigia vigia(limiteDeLeitura(static_cast<size_t>(megabytes * (comprimido(file) ? 20e6 : 1e6))),
                           "Erro: leitura nao termina, arquivo corrompido " + file);
    aberto = fs.open(file, cv::FileStorage::READ, "");
  } catch (const std::exception&) {
    aberto = false;
  }
  if (!aberto) tvm::erro("Erro abertura arquivo ", file);
}

void escreveKeyPoints(cv::FileStorage& fs, const std::vector<cv::KeyPoint>& keypoints) {
  // One flat flow sequence, as OpenCV 2.4 wrote it.
  fs << "keypoints" << "[:";
  for (const cv::KeyPoint& k : keypoints)
    fs << k.pt.x << k.pt.y << k.size << k.angle << k.response << k.octave << k.class_id;
  fs << "]";
}

// gzip at level 3, as OpenCV writes a ".gz" store: the very same bytes.
void escreveGzip(tvm::SaidaSegura& saida, const std::string& texto) {
  z_stream z{};
  if (::deflateInit2(&z, 3, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::bad_alloc();
  const std::unique_ptr<z_stream, int (*)(z_stream*)> fim(&z, ::deflateEnd);
  std::vector<unsigned char> bloco(1 << 16);
  size_t lido = 0;
  for (int estado = Z_OK; estado != Z_STREAM_END;) {
    if (z.avail_in == 0 && lido < texto.size()) {
      const size_t n = std::min<size_t>(texto.size() - lido, 1u << 30);
      z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(texto.data() + lido));
      z.avail_in = static_cast<uInt>(n);
      lido += n;
    }
    z.next_out = bloco.data();
    z.avail_out = static_cast<uInt>(bloco.size());
    estado = ::deflate(&z, lido == texto.size() ? Z_FINISH : Z_NO_FLUSH);
    if (estado == Z_STREAM_ERROR) throw std::bad_alloc();
    saida.escreve(bloco.data(), bloco.size() - z.avail_out);
  }
}

// Into `saida`, for the caller to confirm. FileStorage reports no failed
// write, so it writes to memory and the bytes go out through `saida`, which
// checks each one; the destination's name chooses the format as it would for
// a file.
void escreveEm(tvm::SaidaSegura& saida, const std::vector<cv::KeyPoint>& keypoints, const cv::Mat* descriptors) {
  const std::string& file = saida.destino();
  std::string texto;
  try {
    cv::FileStorage fs(file, cv::FileStorage::WRITE | cv::FileStorage::MEMORY, "");
    if (!fs.isOpened()) tvm::erro("Erro abertura arquivo ", file);
    escreveKeyPoints(fs, keypoints);
    if (descriptors) cv::write(fs, "descriptors", *descriptors);
    texto = fs.releaseAndGetString();
  } catch (const tvm::Erro&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    tvm::erro("Erro abertura arquivo ", file);
  }
  if (comprimido(file))
    escreveGzip(saida, texto);
  else
    saida.escreve(texto);
}

void escreve(const std::string& file, const std::vector<cv::KeyPoint>& keypoints, const cv::Mat* descriptors) {
  tvm::SaidaSegura saida(file);
  escreveEm(saida, keypoints, descriptors);
  saida.confirma();
}

// OpenCV throws (cv::Exception, std::length_error...) on some malformed
// nodes; that is the file's fault, not ours.
std::vector<cv::KeyPoint> leNodeKeyPointsSeguro(const cv::FileStorage& fs, const std::string& file) {
  try {
    return leNodeKeyPoints(fs["keypoints"], file);
  } catch (const tvm::Erro&) {
    throw;
  } catch (const std::exception&) {
    tvm::erro("Erro: keypoints malformados em ", file);
  }
}

// The matrix header is checked against the data that is really there before
// OpenCV allocates rows x cols: a damaged "rows" must not ask for gigabytes.
void verificaMatriz(const cv::FileNode& node, const std::string& file) {
  if (node.empty() || node.isNone()) return;
  if (!node.isMap()) tvm::erro("Erro: descritores malformados em ", file);
  const cv::FileNode rows = node["rows"], cols = node["cols"], data = node["data"];
  if (!rows.isInt() || !cols.isInt() || static_cast<int>(rows) < 0 || static_cast<int>(cols) < 0)
    tvm::erro("Erro: descritores malformados em ", file);
  const int64_t elementos = static_cast<int64_t>(static_cast<int>(rows)) * static_cast<int>(cols);
  const int64_t presentes = data.isSeq() ? static_cast<int64_t>(data.size()) : 0;
  if (elementos > presentes) tvm::erro("Erro: descritores malformados em ", file);
}

// The nodes of an open store; `descriptors` null for keypoints only.
void leNos(cv::FileStorage& fs, const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat* descriptors) {
  keypoints = leNodeKeyPointsSeguro(fs, file);
  if (descriptors) try {
      verificaMatriz(fs["descriptors"], file);
      cv::read(fs["descriptors"], *descriptors, cv::Mat());
    } catch (const tvm::Erro&) {
      throw;
    } catch (const std::exception&) {
      tvm::erro("Erro: descritores malformados em ", file);
    }
  fs.release();
}

void leStore(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat* descriptors) {
  const std::string texto = textoDoStore(file);
  if (leStoreTexto(texto, keypoints, descriptors)) return;
  cv::FileStorage fs;
  abreTexto(fs, texto, file);
  leNos(fs, file, keypoints, descriptors);
}

}  // namespace

std::vector<cv::KeyPoint> leKeyPoints(const std::string& file) {
  if (ehExterno(file)) return leCaracteristicasExternas(file).keypoints;
  std::vector<cv::KeyPoint> keypoints;
  leStore(file, keypoints, nullptr);
  return keypoints;
}

void leDescritores(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) {
  if (ehExterno(file)) {
    Caracteristicas c = leCaracteristicasExternas(file);
    if (c.descritores.empty()) tvm::erro("Erro: descritores ausentes em ", file);
    keypoints = std::move(c.keypoints);
    descriptors = c.descritores;
    return;
  }
  leStore(file, keypoints, &descriptors);
}

std::vector<cv::KeyPoint> leKeyPointsFileStorage(const std::string& file) {
  cv::FileStorage fs;
  abreLeitura(fs, file);
  std::vector<cv::KeyPoint> keypoints;
  leNos(fs, file, keypoints, nullptr);
  return keypoints;
}

void leDescritoresFileStorage(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) {
  cv::FileStorage fs;
  abreLeitura(fs, file);
  leNos(fs, file, keypoints, &descriptors);
}

void impKeyPoints(const std::string& file, const std::vector<cv::KeyPoint>& keypoints) {
  escreve(file, keypoints, nullptr);
}

void impKeyPoints(tvm::SaidaSegura& saida, const std::vector<cv::KeyPoint>& keypoints) {
  escreveEm(saida, keypoints, nullptr);
}

void impDescritores(const std::string& file, const std::vector<cv::KeyPoint>& keypoints, const cv::Mat& descriptors) {
  escreve(file, keypoints, &descriptors);
}

}  // namespace formats
