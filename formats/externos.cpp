#include "formats/externos.hpp"

#include "formats/externos_plugin.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/filho.hpp"
#include "support/plugin.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>

namespace formats {

namespace {

bool comecaComZip(const std::string& arquivo) {
  tvm::Arquivo f(arquivo, "rb");
  char b[4] = {};
  return f && std::fread(b, 1, 4, f.get()) == 4 && std::memcmp(b, "PK\x03\x04", 4) == 0;
}

// "X.h5:resto" -> X.h5 and resto; false when the name has no such part.
bool separaH5(const std::string& arquivo, std::string& h5, std::string& resto) {
  for (const char* ext : {".h5:", ".hdf5:"}) {
    const size_t i = arquivo.find(ext);
    if (i == std::string::npos) continue;
    h5 = arquivo.substr(0, i + std::strlen(ext) - 1);
    resto = arquivo.substr(i + std::strlen(ext));
    return true;
  }
  return false;
}

}  // namespace

const Externos& externos() {
  static const Externos e = {
      tvm::funcaoPlugin<LeD2Net>(kPluginExternos, "quivelarLeD2Net"),
      tvm::funcaoPlugin<LeHloc>(kPluginExternos, "quivelarLeHloc"),
      tvm::funcaoPlugin<LeHlocCasamentos>(kPluginExternos, "quivelarLeHlocCasamentos"),
      tvm::funcaoPlugin<LeSuperGlue>(kPluginExternos, "quivelarLeSuperGlue"),
      tvm::funcaoPlugin<LeProfundidade>(kPluginExternos, "quivelarLeProfundidade"),
      tvm::funcaoPlugin<EscreveProfundidade>(kPluginExternos, "quivelarEscreveProfundidade")};
  return e;
}

float tamanhoPadrao() {
  const char* v = std::getenv("QUIVELAR_TAMANHO_PADRAO");
  if (v == nullptr || *v == '\0') return kTamanhoPadrao;
  char* fim = nullptr;
  const double t = std::strtod(v, &fim);
  if (*fim != '\0' || !(t > 0) || t > 1e6) tvm::erro("Erro: QUIVELAR_TAMANHO_PADRAO invalido: ", v);
  return static_cast<float>(t);
}

Caracteristicas leD2Net(const std::string& arquivo, float tamanhoPadrao) {
  const LeD2Net f = externos().d2net;
  Caracteristicas c;
  std::string erro;
  if (!f(arquivo.c_str(), tamanhoPadrao, &c, &erro)) throw tvm::Erro(erro);
  return c;
}

namespace {

// Features and matches as bytes, to come back from the child that read them.
template <typename T>
void poe(std::string& s, const T& v) {
  s.append(reinterpret_cast<const char*>(&v), sizeof v);
}
template <typename T>
T tira(const std::string& s, size_t& i) {
  T v;
  if (i + sizeof v > s.size()) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  std::memcpy(&v, s.data() + i, sizeof v);
  i += sizeof v;
  return v;
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

Caracteristicas deBytes(const std::string& s) {
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

}  // namespace

// libhdf5 dies on some damaged files: each HDF5 read runs in a child process.
Caracteristicas leHloc(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao) {
  // Resolved here, before the fork: the child finds it mapped.
  const LeHloc f = externos().hloc;
  return deBytes(tvm::emFilho(
      [&] {
        Caracteristicas c;
        std::string erro;
        if (!f(arquivo.c_str(), imagem.c_str(), tamanhoPadrao, &c, &erro)) throw tvm::Erro(erro);
        return emBytes(c);
      },
      "a leitura de " + arquivo));
}

std::vector<cv::DMatch> leHlocCasamentos(const std::string& arquivo, const std::string& nome0,
                                         const std::string& nome1, size_t n0, size_t n1) {
  const LeHlocCasamentos f = externos().hlocCasamentos;
  const std::string bytes = tvm::emFilho(
      [&] {
        std::vector<cv::DMatch> lidos;
        std::string erro, s;
        if (!f(arquivo.c_str(), nome0.c_str(), nome1.c_str(), n0, n1, &lidos, &erro)) throw tvm::Erro(erro);
        for (const cv::DMatch& m : lidos) {
          poe(s, static_cast<int32_t>(m.queryIdx));
          poe(s, static_cast<int32_t>(m.trainIdx));
          poe(s, m.distance);
        }
        return s;
      },
      "a leitura de " + arquivo);
  std::vector<cv::DMatch> m;
  for (size_t i = 0; i < bytes.size();) {
    const auto q = tira<int32_t>(bytes, i), t = tira<int32_t>(bytes, i);
    m.emplace_back(q, t, tira<float>(bytes, i));
  }
  return m;
}

CasamentosDados leSuperGlue(const std::string& arquivo, float tamanhoPadrao) {
  const LeSuperGlue f = externos().superGlue;
  CasamentosDados c;
  std::string erro;
  if (!f(arquivo.c_str(), tamanhoPadrao, &c, &erro)) throw tvm::Erro(erro);
  return c;
}

void melhores(Caracteristicas& c, int k) {
  if (k < 0 || static_cast<size_t>(k) >= c.keypoints.size()) return;
  std::vector<int> ordem(c.keypoints.size());
  std::iota(ordem.begin(), ordem.end(), 0);
  std::stable_sort(ordem.begin(), ordem.end(),
                   [&](int a, int b) { return c.keypoints[a].response > c.keypoints[b].response; });
  ordem.resize(k);
  std::sort(ordem.begin(), ordem.end());
  std::vector<cv::KeyPoint> kps;
  cv::Mat d(k, c.descritores.cols, c.descritores.empty() ? CV_32F : c.descritores.type());
  for (int i = 0; i < k; ++i) {
    kps.push_back(c.keypoints[ordem[i]]);
    if (!c.descritores.empty()) c.descritores.row(ordem[i]).copyTo(d.row(i));
  }
  c.keypoints = std::move(kps);
  if (!c.descritores.empty()) c.descritores = d;
}

bool ehExterno(const std::string& arquivo) {
  std::string h5, resto;
  return separaH5(arquivo, h5, resto) || comecaComZip(arquivo);
}

Caracteristicas leCaracteristicasExternas(const std::string& arquivo) {
  std::string h5, imagem;
  if (separaH5(arquivo, h5, imagem)) return leHloc(h5, imagem, tamanhoPadrao());
  return leD2Net(arquivo, tamanhoPadrao());
}

CasamentosDados leCasamentosExternos(const std::string& arquivo) {
  std::string h5, resto;
  if (!separaH5(arquivo, h5, resto)) return leSuperGlue(arquivo, tamanhoPadrao());
  // IMAGEM0:IMAGEM1:FEATURES.h5
  const size_t i = resto.find(':'), j = i == std::string::npos ? i : resto.find(':', i + 1);
  if (j == std::string::npos) tvm::erro("Erro: casamentos hloc como M.h5:IMAGEM0:IMAGEM1:F.h5, nao ", arquivo);
  const std::string nome0 = resto.substr(0, i), nome1 = resto.substr(i + 1, j - i - 1), feats = resto.substr(j + 1);
  CasamentosDados c;
  c.k1 = leHloc(feats, nome0, tamanhoPadrao()).keypoints;
  c.k2 = leHloc(feats, nome1, tamanhoPadrao()).keypoints;
  c.casamentos = leHlocCasamentos(h5, nome0, nome1, c.k1.size(), c.k2.size());
  return c;
}

}  // namespace formats
