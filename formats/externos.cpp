#include "formats/externos.hpp"

#include "formats/externos_plugin.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
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
