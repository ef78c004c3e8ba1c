#include "formats/externos.hpp"

#include "formats/hdf5.hpp"
#include "formats/npz.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/filho.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>

namespace formats {

namespace {

std::string nomeDe(const std::string& arquivo, const std::string& arranjo) { return arquivo + " (" + arranjo + ")"; }

// N x 2..4 coordinates (and sizes, angles) into keypoints.
std::vector<cv::KeyPoint> keypointsDe(const cv::Mat& m, float tamanhoPadrao, const std::string& onde) {
  if (m.rows > 0 && (m.cols < 2 || m.cols > 4))
    tvm::erro("Erro: keypoints devem ter 2 a 4 colunas em ", onde);
  std::vector<cv::KeyPoint> k(m.rows);
  for (int i = 0; i < m.rows; ++i) {
    const float* l = m.ptr<float>(i);
    k[i] = cv::KeyPoint(l[0], l[1], m.cols > 2 ? l[2] : tamanhoPadrao, m.cols > 3 ? l[3] : -1.0f);
    if (!std::isfinite(l[0]) || !std::isfinite(l[1]) || !(k[i].size > 0) || !std::isfinite(k[i].size) ||
        !std::isfinite(k[i].angle))
      tvm::erro("Erro: keypoint " + std::to_string(i) + " invalido em ", onde);
  }
  return k;
}

void poeScores(std::vector<cv::KeyPoint>& k, const cv::Mat& s, const std::string& onde) {
  if (static_cast<size_t>(s.total()) != k.size()) tvm::erro("Erro: numero de scores != keypoints em ", onde);
  for (size_t i = 0; i < k.size(); ++i) {
    k[i].response = s.at<float>(static_cast<int>(i));
    if (!std::isfinite(k[i].response)) tvm::erro("Erro: score " + std::to_string(i) + " invalido em ", onde);
  }
}

// Descriptors of bytes stay bytes (binary rows); anything else becomes float.
cv::Mat descritoresDe(const InfoArranjo& info, const std::function<cv::Mat(int)>& le, size_t n, bool transpostos,
                      const std::string& onde) {
  cv::Mat d = le(info.tipo == "|u1" ? CV_8U : CV_32F);
  if (transpostos) d = d.t();
  if (static_cast<size_t>(d.rows) != n) tvm::erro("Erro: numero de keypoints != descritores em ", onde);
  if (d.type() == CV_32F && !cv::checkRange(d)) tvm::erro("Erro: descritor nao finito em ", onde);
  return d;
}

// For each i with m[i] >= 0, the match i -> m[i]; best score first.
std::vector<cv::DMatch> casamentosDe(const cv::Mat& m, const cv::Mat& scores, size_t n0, size_t n1,
                                     const std::string& onde) {
  if (static_cast<size_t>(m.total()) != n0) tvm::erro("Erro: numero de casamentos != keypoints em ", onde);
  if (!scores.empty() && scores.total() != m.total()) tvm::erro("Erro: numero de scores != casamentos em ", onde);
  std::vector<cv::DMatch> r;
  for (int i = 0; i < static_cast<int>(n0); ++i) {
    const int j = m.at<int>(i);
    if (j < -1 || j >= static_cast<int>(n1)) tvm::erro("Erro: casamento " + std::to_string(i) + " fora dos keypoints em ", onde);
    if (j < 0) continue;
    const float s = scores.empty() ? 1.0f : scores.at<float>(i);
    if (!std::isfinite(s)) tvm::erro("Erro: score " + std::to_string(i) + " invalido em ", onde);
    r.emplace_back(i, j, 1.0f - s);
  }
  std::stable_sort(r.begin(), r.end(), [](const cv::DMatch& a, const cv::DMatch& b) { return a.distance < b.distance; });
  return r;
}

std::string semBarras(std::string nome) {
  std::replace(nome.begin(), nome.end(), '/', '-');
  return nome;
}

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

float tamanhoPadrao() {
  const char* v = std::getenv("QUIVELAR_TAMANHO_PADRAO");
  if (v == nullptr || *v == '\0') return kTamanhoPadrao;
  char* fim = nullptr;
  const double t = std::strtod(v, &fim);
  if (*fim != '\0' || !(t > 0) || t > 1e6) tvm::erro("Erro: QUIVELAR_TAMANHO_PADRAO invalido: ", v);
  return static_cast<float>(t);
}

Caracteristicas leD2Net(const std::string& arquivo, float tamanhoPadrao) {
  const Npz z(arquivo);
  if (!z.tem("keypoints")) tvm::erro("Erro: keypoints ausentes em ", arquivo);
  Caracteristicas c;
  c.keypoints = keypointsDe(z.le("keypoints", CV_32F), tamanhoPadrao, nomeDe(arquivo, "keypoints"));
  if (z.tem("scores")) {
    poeScores(c.keypoints, z.le("scores", CV_32F), nomeDe(arquivo, "scores"));
    c.comScores = true;
  }
  if (z.tem("descriptors"))
    c.descritores = descritoresDe(
        z.info("descriptors"), [&](int tipo) { return z.le("descriptors", tipo); }, c.keypoints.size(), false,
        nomeDe(arquivo, "descriptors"));
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

Caracteristicas leHlocAqui(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao) {
  const H5 h(arquivo);
  if (!h.temGrupo(imagem)) tvm::erro("Erro: imagem " + imagem + " ausente em ", arquivo);
  const std::string g = imagem + "/";
  if (!h.tem(g + "keypoints")) tvm::erro("Erro: keypoints ausentes em ", nomeDe(arquivo, imagem));
  Caracteristicas c;
  c.keypoints = keypointsDe(h.le(g + "keypoints", CV_32F), tamanhoPadrao, nomeDe(arquivo, g + "keypoints"));
  if (h.tem(g + "scores")) {
    poeScores(c.keypoints, h.le(g + "scores", CV_32F), nomeDe(arquivo, g + "scores"));
    c.comScores = true;
  }
  if (h.tem(g + "descriptors"))
    c.descritores = descritoresDe(
        h.info(g + "descriptors"), [&](int tipo) { return h.le(g + "descriptors", tipo); }, c.keypoints.size(), true,
        nomeDe(arquivo, g + "descriptors"));
  return c;
}

std::vector<cv::DMatch> leHlocCasamentosAqui(const std::string& arquivo, const std::string& nome0,
                                              const std::string& nome1, size_t n0, size_t n1) {
  const H5 h(arquivo);
  const std::string a = semBarras(nome0), b = semBarras(nome1);
  for (const bool invertido : {false, true}) {
    const std::string& x = invertido ? b : a;
    const std::string& y = invertido ? a : b;
    for (const std::string& par : {x + "/" + y, x + "_" + y}) {
      if (!h.tem(par + "/matches0")) continue;
      const std::string onde = nomeDe(arquivo, par);
      const cv::Mat s = h.tem(par + "/matching_scores0") ? h.le(par + "/matching_scores0", CV_32F) : cv::Mat();
      std::vector<cv::DMatch> m =
          casamentosDe(h.le(par + "/matches0", CV_32S), s, invertido ? n1 : n0, invertido ? n0 : n1, onde);
      if (invertido) {
        for (cv::DMatch& d : m) std::swap(d.queryIdx, d.trainIdx);
        std::stable_sort(m.begin(), m.end(), [](const cv::DMatch& p, const cv::DMatch& q) {
          return p.distance < q.distance || (p.distance == q.distance && p.queryIdx < q.queryIdx);
        });
      }
      return m;
    }
  }
  tvm::erro("Erro: par " + a + " " + b + " ausente em ", arquivo);
}

}  // namespace

// libhdf5 dies on some damaged files: each read runs in a child process.
Caracteristicas leHloc(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao) {
  return deBytes(tvm::emFilho([&] { return emBytes(leHlocAqui(arquivo, imagem, tamanhoPadrao)); },
                              "a leitura de " + arquivo));
}

std::vector<cv::DMatch> leHlocCasamentos(const std::string& arquivo, const std::string& nome0,
                                         const std::string& nome1, size_t n0, size_t n1) {
  const std::string bytes = tvm::emFilho(
      [&] {
        std::string s;
        for (const cv::DMatch& m : leHlocCasamentosAqui(arquivo, nome0, nome1, n0, n1)) {
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
  const Npz z(arquivo);
  for (const char* nome : {"keypoints0", "keypoints1", "matches"})
    if (!z.tem(nome)) tvm::erro(std::string("Erro: ") + nome + " ausente em ", arquivo);
  CasamentosDados c;
  c.k1 = keypointsDe(z.le("keypoints0", CV_32F), tamanhoPadrao, nomeDe(arquivo, "keypoints0"));
  c.k2 = keypointsDe(z.le("keypoints1", CV_32F), tamanhoPadrao, nomeDe(arquivo, "keypoints1"));
  const cv::Mat s = z.tem("match_confidence") ? z.le("match_confidence", CV_32F) : cv::Mat();
  c.casamentos = casamentosDe(z.le("matches", CV_32S), s, c.k1.size(), c.k2.size(), nomeDe(arquivo, "matches"));
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
