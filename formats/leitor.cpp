#include "formats/leitor.hpp"

#include "formats/externos.hpp"
#include "formats/externos_plugin.hpp"
#include "formats/profundidade.hpp"
#include "support/ajudante.hpp"
#include "support/erro.hpp"

#include <cstdint>
#include <cstring>

namespace formats::leitor {

namespace {

enum Pedido : uint8_t { kHloc = 1, kCasamentos = 2, kProfundidade = 3 };

template <typename T>
void poe(std::string& s, const T& v) {
  s.append(reinterpret_cast<const char*>(&v), sizeof v);
}

void poeTexto(std::string& s, const std::string& t) {
  poe(s, static_cast<uint64_t>(t.size()));
  s += t;
}

template <typename T>
T tira(const std::string& s, size_t& i) {
  T v;
  if (s.size() - i < sizeof v) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  std::memcpy(&v, s.data() + i, sizeof v);
  i += sizeof v;
  return v;
}

std::string tiraTexto(const std::string& s, size_t& i) {
  const auto n = tira<uint64_t>(s, i);
  if (n > s.size() - i) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  i += n;
  return s.substr(i - n, n);
}

std::string emBytes(const Caracteristicas& c) {
  std::string s;
  poe(s, static_cast<uint64_t>(c.keypoints.size()));
  poe(s, static_cast<uint8_t>(c.comScores));
  poe(s, static_cast<int32_t>(c.descritores.type()));
  poe(s, static_cast<int32_t>(c.descritores.rows));
  poe(s, static_cast<int32_t>(c.descritores.cols));
  for (const cv::KeyPoint& k : c.keypoints)
    for (float v : {k.pt.x, k.pt.y, k.size, k.angle, k.response}) poe(s, v);
  const cv::Mat d = c.descritores.isContinuous() ? c.descritores : c.descritores.clone();
  s.append(reinterpret_cast<const char*>(d.data), d.total() * d.elemSize());
  return s;
}

std::string pedidoHloc(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao) {
  std::string s(1, char(kHloc));
  poeTexto(s, arquivo);
  poeTexto(s, imagem);
  poe(s, tamanhoPadrao);
  return s;
}

std::string pedidoCasamentos(const std::string& arquivo, const std::string& nome0, const std::string& nome1,
                             size_t n0, size_t n1) {
  std::string s(1, char(kCasamentos));
  for (const std::string* t : {&arquivo, &nome0, &nome1}) poeTexto(s, *t);
  poe(s, static_cast<uint64_t>(n0));
  poe(s, static_cast<uint64_t>(n1));
  return s;
}

std::string pedidoProfundidade(const std::string& arquivo) {
  std::string s(1, char(kProfundidade));
  poeTexto(s, arquivo);
  return s;
}

Caracteristicas caracteristicas(const std::string& s) {
  size_t i = 0;
  Caracteristicas c;
  const auto n = tira<uint64_t>(s, i);
  c.comScores = tira<uint8_t>(s, i) != 0;
  const auto tipo = tira<int32_t>(s, i), linhas = tira<int32_t>(s, i), colunas = tira<int32_t>(s, i);
  if (n > (s.size() - i) / (5 * sizeof(float))) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  c.keypoints.resize(n);
  for (cv::KeyPoint& k : c.keypoints) {
    float v[5];
    for (float& x : v) x = tira<float>(s, i);
    k = cv::KeyPoint(v[0], v[1], v[2], v[3], v[4]);
  }
  c.descritores.create(linhas, colunas, tipo);
  const size_t bytes = c.descritores.total() * c.descritores.elemSize();
  if (s.size() - i != bytes) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  if (bytes > 0) std::memcpy(c.descritores.data, s.data() + i, bytes);
  return c;
}

std::vector<cv::DMatch> casamentos(const std::string& s) {
  std::vector<cv::DMatch> m;
  for (size_t i = 0; i < s.size();) {
    const auto q = tira<int32_t>(s, i), t = tira<int32_t>(s, i);
    m.emplace_back(q, t, tira<float>(s, i));
  }
  return m;
}

cv::Mat_<float> profundidade(const std::string& s) {
  int32_t forma[2];
  if (s.size() < sizeof forma) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  std::memcpy(forma, s.data(), sizeof forma);
  if (forma[0] <= 0 || forma[1] <= 0 ||
      s.size() - sizeof forma != static_cast<size_t>(forma[0]) * static_cast<size_t>(forma[1]) * sizeof(float))
    tvm::erro("Erro: resposta truncada do leitor de HDF5");
  cv::Mat_<float> d(forma[0], forma[1]);
  std::memcpy(d.data, s.data() + sizeof forma, s.size() - sizeof forma);
  return d;
}

std::string pede(const std::string& pedido, const std::string& arquivo) {
  return tvm::pedeAoAjudante(kPrograma, pedido, "a leitura de " + arquivo);
}

}  // namespace

std::string atende(const std::string& pedido) {
  size_t i = 0;
  const auto tipo = tira<uint8_t>(pedido, i);
  std::string erro;
  if (tipo == kHloc) {
    const std::string arquivo = tiraTexto(pedido, i), imagem = tiraTexto(pedido, i);
    const auto tamanho = tira<float>(pedido, i);
    Caracteristicas c;
    if (!externos().hloc(arquivo.c_str(), imagem.c_str(), tamanho, &c, &erro)) throw tvm::Erro(erro);
    return emBytes(c);
  }
  if (tipo == kCasamentos) {
    const std::string arquivo = tiraTexto(pedido, i), nome0 = tiraTexto(pedido, i), nome1 = tiraTexto(pedido, i);
    const auto n0 = tira<uint64_t>(pedido, i), n1 = tira<uint64_t>(pedido, i);
    std::vector<cv::DMatch> lidos;
    if (!externos().hlocCasamentos(arquivo.c_str(), nome0.c_str(), nome1.c_str(), n0, n1, &lidos, &erro))
      throw tvm::Erro(erro);
    std::string s;
    for (const cv::DMatch& m : lidos) {
      poe(s, static_cast<int32_t>(m.queryIdx));
      poe(s, static_cast<int32_t>(m.trainIdx));
      poe(s, m.distance);
    }
    return s;
  }
  if (tipo == kProfundidade) {
    const std::string arquivo = tiraTexto(pedido, i);
    std::string bytes;
    if (!externos().profundidade(arquivo.c_str(), &bytes, &erro)) throw tvm::Erro(erro);
    return bytes;
  }
  tvm::erro("Erro: pedido desconhecido ao leitor de HDF5");
}

}  // namespace formats::leitor

namespace formats {

// libhdf5 dies on some damaged files: each HDF5 read is the helper's.
Caracteristicas leHloc(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao) {
  return leitor::caracteristicas(leitor::pede(leitor::pedidoHloc(arquivo, imagem, tamanhoPadrao), arquivo));
}

std::vector<cv::DMatch> leHlocCasamentos(const std::string& arquivo, const std::string& nome0,
                                         const std::string& nome1, size_t n0, size_t n1) {
  return leitor::casamentos(leitor::pede(leitor::pedidoCasamentos(arquivo, nome0, nome1, n0, n1), arquivo));
}

cv::Mat_<float> leProfundidade(const std::string& arquivo) {
  return leitor::profundidade(leitor::pede(leitor::pedidoProfundidade(arquivo), arquivo));
}

}  // namespace formats
