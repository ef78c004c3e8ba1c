// The readers that need libzip and libhdf5, built as the plug-in
// libquivelar_externos.so (formats/externos_plugin.hpp). Each entry point
// catches its own failure and hands the message back: no exception crosses
// the plug-in's edge.
#include "formats/externos_plugin.hpp"

#include "formats/hdf5.hpp"
#include "formats/npz.hpp"
#include "support/erro.hpp"

#include <hdf5.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>

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

Caracteristicas leD2NetAqui(const std::string& arquivo, float tamanhoPadrao) {
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

CasamentosDados leSuperGlueAqui(const std::string& arquivo, float tamanhoPadrao) {
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

// Rows and columns, then the floats: how the child hands the map back.
std::string leAqui(const std::string& arquivo) {
  const H5 h(arquivo);
  const std::string onde = arquivo + " (depth)";
  if (!h.tem("depth")) tvm::erro("Erro: dataset depth ausente em ", arquivo);
  if (h.info("depth").forma.size() != 2) tvm::erro("Erro: profundidade deve ser H x W em ", onde);
  const cv::Mat d = h.le("depth", CV_32F);
  if (d.empty()) tvm::erro("Erro: profundidade vazia em ", onde);
  for (int y = 0; y < d.rows; ++y)
    for (int x = 0; x < d.cols; ++x)
      if (!(d.at<float>(y, x) >= 0) || !std::isfinite(d.at<float>(y, x)))
        tvm::erro("Erro: profundidade negativa ou nao finita em ", onde);
  std::string s(2 * sizeof(int32_t) + d.total() * sizeof(float), '\0');
  const int32_t forma[2] = {d.rows, d.cols};
  std::memcpy(&s[0], forma, sizeof forma);
  std::memcpy(&s[sizeof forma], d.data, d.total() * sizeof(float));
  return s;
}

void escreveProfundidadeAqui(const cv::Mat_<float>& d, const std::string& temporario, const std::string& destino) {
  if (d.empty()) tvm::erro("Erro: profundidade vazia para ", destino);
  const cv::Mat_<float> c = d.isContinuous() ? d : d.clone();
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  const hsize_t forma[2] = {static_cast<hsize_t>(c.rows), static_cast<hsize_t>(c.cols)};
  // Each handle is closed whatever failed before it; one failure of any
  // step fails the file.
  const hid_t f = H5Fcreate(temporario.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  const hid_t espaco = f < 0 ? -1 : H5Screate_simple(2, forma, nullptr);
  const hid_t ds = espaco < 0 ? -1
                              : H5Dcreate2(f, "depth", H5T_IEEE_F32LE, espaco, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  bool ok = ds >= 0 && H5Dwrite(ds, H5T_NATIVE_FLOAT, H5S_ALL, H5S_ALL, H5P_DEFAULT, c.ptr<float>()) >= 0;
  if (ds >= 0) ok = H5Dclose(ds) >= 0 && ok;
  if (espaco >= 0) ok = H5Sclose(espaco) >= 0 && ok;
  if (f >= 0) ok = H5Fclose(f) >= 0 && ok;
  if (!ok) tvm::erro("Erro: falha ao gravar ", destino);
}


// Runs f, its message into *erro when it fails.
template <typename F>
bool protegido(std::string* erro, F&& f) {
  try {
    f();
    return true;
  } catch (const tvm::Erro& e) {
    *erro = e.what();
  } catch (const std::exception& e) {
    *erro = std::string("Erro: ") + e.what();
  }
  return false;
}

}  // namespace

}  // namespace formats

extern "C" {

bool quivelarLeD2Net(const char* arquivo, float tamanho, formats::Caracteristicas* c, std::string* erro) {
  return formats::protegido(erro, [&] { *c = formats::leD2NetAqui(arquivo, tamanho); });
}

bool quivelarLeHloc(const char* arquivo, const char* imagem, float tamanho, formats::Caracteristicas* c,
                    std::string* erro) {
  return formats::protegido(erro, [&] { *c = formats::leHlocAqui(arquivo, imagem, tamanho); });
}

bool quivelarLeHlocCasamentos(const char* arquivo, const char* nome0, const char* nome1, size_t n0, size_t n1,
                              std::vector<cv::DMatch>* m, std::string* erro) {
  return formats::protegido(erro, [&] { *m = formats::leHlocCasamentosAqui(arquivo, nome0, nome1, n0, n1); });
}

bool quivelarLeSuperGlue(const char* arquivo, float tamanho, formats::CasamentosDados* c, std::string* erro) {
  return formats::protegido(erro, [&] { *c = formats::leSuperGlueAqui(arquivo, tamanho); });
}

bool quivelarLeProfundidade(const char* arquivo, std::string* bytes, std::string* erro) {
  return formats::protegido(erro, [&] { *bytes = formats::leAqui(arquivo); });
}

bool quivelarEscreveProfundidade(const cv::Mat* d, const char* temporario, const char* destino, std::string* erro) {
  return formats::protegido(erro, [&] { formats::escreveProfundidadeAqui(*d, temporario, destino); });
}

}  // extern "C"
