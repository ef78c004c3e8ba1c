#include "datasets/posados.hpp"

#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/limites.hpp"
#include "support/numeros.hpp"

#include <opencv2/core.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

namespace datasets {

namespace {

constexpr double kTolRotacao = 1e-4;

bool ehArquivo(const std::string& nome) {
  struct stat st;
  return stat(nome.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The words of one line, taken in order; every failure names file and line.
class Linha {
 public:
  Linha(const std::string& texto, const std::string& arquivo, size_t numero) : arquivo_(arquivo), numero_(numero) {
    std::istringstream in(texto);
    for (std::string p; in >> p;) palavras_.push_back(p);
  }
  [[noreturn]] void falha(const std::string& motivo) const {
    tvm::erro("Erro: " + motivo + " em ", arquivo_ + ":" + std::to_string(numero_));
  }
  void exige(size_t n) const {
    if (palavras_.size() != n)
      falha("esperados " + std::to_string(n) + " campos, lidos " + std::to_string(palavras_.size()));
  }
  void fim() const {
    if (i_ != palavras_.size()) falha("campos a mais");
  }
  const std::string& palavra() {
    if (i_ >= palavras_.size()) falha("campos faltando");
    return palavras_[i_++];
  }
  double numero() {
    double v;
    if (!tvm::textoParaDouble(palavra(), v)) falha("numero invalido " + palavras_[i_ - 1]);
    return v;
  }
  int inteiro(int minimo, int maximo) {
    int v;
    if (!tvm::textoParaInt(palavra(), v) || v < minimo || v > maximo) falha("inteiro invalido " + palavras_[i_ - 1]);
    return v;
  }
  template <int M, int N>
  cv::Matx<double, M, N> matriz() {
    cv::Matx<double, M, N> m;
    for (int k = 0; k < M * N; ++k) m.val[k] = numero();
    return m;
  }
  template <int N>
  cv::Vec<double, N> vetor() {
    return cv::Vec<double, N>(matriz<N, 1>().val);
  }

 private:
  std::string arquivo_;
  size_t numero_;
  std::vector<std::string> palavras_;
  size_t i_ = 0;
};

// The lines of a text file that are neither blank nor comments, with their
// numbers; with `todas` blank lines are kept (images.txt's empty points).
std::vector<std::pair<size_t, std::string>> leLinhas(const std::string& arquivo, bool todas = false) {
  struct stat st;
  if (stat(arquivo.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) tvm::erro("Erro abertura arquivo ", arquivo);
  const int64_t limite = tvm::limiteStoreBytes();
  if (st.st_size > limite)
    tvm::erro("Erro: texto de ", arquivo,
              " passa do limite de " + std::to_string(limite / 1000000) + " MB (QUIVELAR_MAX_STORE_MB muda o limite)");
  tvm::Arquivo f(arquivo, "rb");
  if (!f) tvm::erro("Erro abertura arquivo ", arquivo);
  std::string texto(static_cast<size_t>(st.st_size), '\0');
  if (std::fread(&texto[0], 1, texto.size(), f.get()) != texto.size()) tvm::erro("Erro: leitura falhou em ", arquivo);
  std::vector<std::pair<size_t, std::string>> linhas;
  size_t numero = 0;
  for (size_t i = 0; i < texto.size();) {
    const size_t fim = std::min(texto.find('\n', i), texto.size());
    const std::string l = texto.substr(i, fim - i);
    const size_t inicio = l.find_first_not_of(" \t\r");
    ++numero;
    i = fim + 1;
    if (inicio != std::string::npos ? l[inicio] != '#' : todas) linhas.emplace_back(numero, l);
  }
  return linhas;
}

void confereK(const cv::Matx33d& K, const Linha& l) {
  if (!(K(0, 0) > 0 && K(1, 1) > 0) || K(1, 0) != 0 || K(2, 0) != 0 || K(2, 1) != 0 || K(2, 2) != 1)
    l.falha("K singular ou invalida");
}

void confereR(const cv::Matx33d& R, const Linha& l) {
  if (cv::norm(R.t() * R - cv::Matx33d::eye(), cv::NORM_INF) > kTolRotacao ||
      std::fabs(cv::determinant(R) - 1) > kTolRotacao)
    l.falha("matriz de rotacao invalida");
}

// K from a COLMAP camera model and its parameters, moved to pixel centres
// at integers.
cv::Matx33d leCamera(Linha& l) {
  struct Modelo {
    const char* nome;
    int parametros;
    bool focalUnica;
  };
  static const Modelo kModelos[] = {
      {"SIMPLE_PINHOLE", 3, true}, {"PINHOLE", 4, false}, {"SIMPLE_RADIAL", 4, true}, {"RADIAL", 5, true}};
  const std::string nome = l.palavra();
  const Modelo* m = nullptr;
  for (const Modelo& k : kModelos)
    if (nome == k.nome) m = &k;
  if (!m) l.falha("modelo de camera desconhecido " + nome);
  l.inteiro(1, 100000);
  l.inteiro(1, 100000);
  double p[5];
  for (int k = 0; k < m->parametros; ++k) p[k] = l.numero();
  l.fim();
  const double fx = p[0], fy = m->focalUnica ? p[0] : p[1];
  const int c = m->focalUnica ? 1 : 2;
  for (int k = c + 2; k < m->parametros; ++k)
    if (p[k] != 0) l.falha("distorcao radial nao suportada (k != 0)");
  const cv::Matx33d K(fx, 0, p[c] - 0.5, 0, fy, p[c + 1] - 0.5, 0, 0, 1);
  confereK(K, l);
  return K;
}

struct Pose {
  cv::Matx33d K, R;
  cv::Vec3d t;
};

// An image's name, a path under the image folder: an absolute one or one
// with a ".." component would reach files outside the dataset, and a NUL
// byte would cut the path short where the system reads it.
std::string nomeDeImagem(Linha& l) {
  const std::string nome = l.palavra();
  if (nome.find('\0') != std::string::npos) l.falha("byte nulo num nome de imagem");
  if (nome[0] == '/' || ("/" + nome + "/").find("/../") != std::string::npos)
    l.falha("nome de imagem fora da pasta " + nome);
  return nome;
}

std::string semExtensao(const std::string& nome) {
  const size_t ponto = nome.rfind('.'), barra = nome.rfind('/');
  return ponto == std::string::npos || (barra != std::string::npos && ponto < barra) ? nome : nome.substr(0, ponto);
}

// pairs.txt of a scene whose poses are known by name.
std::vector<ParPosado> paresDe(const std::string& pasta, const std::string& imagens,
                               const std::map<std::string, Pose>& poses) {
  const std::string arquivo = pasta + "/pairs.txt";
  std::vector<ParPosado> pares;
  for (const auto& [numero, texto] : leLinhas(arquivo)) {
    Linha l(texto, arquivo, numero);
    l.exige(2);
    ParPosado p;
    const Pose* q[2];
    for (int i = 0; i < 2; ++i) {
      const std::string& nome = l.palavra();
      const auto it = poses.find(nome);
      if (it == poses.end()) l.falha("imagem desconhecida " + nome);
      q[i] = &it->second;
      (i ? p.imagem1 : p.imagem0) = imagens + "/" + nome;
      (i ? p.nome1 : p.nome0) = nome;
      const std::string d = pasta + "/depths/" + semExtensao(nome) + ".h5";
      if (ehArquivo(d)) (i ? p.profundidade1 : p.profundidade0) = d;
    }
    p.cameras.K0 = q[0]->K;
    p.cameras.K1 = q[1]->K;
    p.cameras.R = q[1]->R * q[0]->R.t();
    p.cameras.t = q[1]->t - p.cameras.R * q[0]->t;
    // Finite translations near the largest double can still sum past it.
    const cv::Vec3d& t = p.cameras.t;
    if (!(std::isfinite(t[0]) && std::isfinite(t[1]) && std::isfinite(t[2]))) l.falha("translacao relativa nao finita");
    pares.push_back(p);
  }
  return pares;
}

std::vector<ParPosado> leSuperGlue(const std::string& arquivo, const std::string& imagens) {
  std::vector<ParPosado> pares;
  for (const auto& [numero, texto] : leLinhas(arquivo)) {
    Linha l(texto, arquivo, numero);
    l.exige(38);
    ParPosado p;
    p.nome0 = nomeDeImagem(l);
    p.nome1 = nomeDeImagem(l);
    p.imagem0 = imagens + "/" + p.nome0;
    p.imagem1 = imagens + "/" + p.nome1;
    p.giro0 = l.inteiro(0, 3);
    p.giro1 = l.inteiro(0, 3);
    p.cameras.K0 = l.matriz<3, 3>();
    p.cameras.K1 = l.matriz<3, 3>();
    const cv::Matx44d T = l.matriz<4, 4>();
    confereK(p.cameras.K0, l);
    confereK(p.cameras.K1, l);
    // A turn moves the skew below the diagonal, where measures::normaliza
    // does not look: the turned image's ground truth would be wrong.
    if ((p.giro0 && p.cameras.K0(0, 1) != 0) || (p.giro1 && p.cameras.K1(0, 1) != 0))
      l.falha("K inclinada (skew != 0) numa imagem girada");
    if (T(3, 0) != 0 || T(3, 1) != 0 || T(3, 2) != 0 || T(3, 3) != 1) l.falha("T_0to1 sem ultima linha 0 0 0 1");
    p.cameras.R = T.get_minor<3, 3>(0, 0);
    p.cameras.t = cv::Vec3d(T(0, 3), T(1, 3), T(2, 3));
    confereR(p.cameras.R, l);
    pares.push_back(p);
  }
  return pares;
}

void poeNome(std::map<std::string, Pose>& poses, const std::string& nome, const Pose& p, const Linha& l) {
  if (!poses.emplace(nome, p).second) l.falha("nome repetido " + nome);
}

std::vector<ParPosado> leVistas(const std::string& pasta, const std::string& imagens) {
  const std::string arquivo = pasta + "/views.txt";
  std::map<std::string, Pose> poses;
  for (const auto& [numero, texto] : leLinhas(arquivo)) {
    Linha l(texto, arquivo, numero);
    const std::string nome = nomeDeImagem(l);
    Pose p;
    p.R = l.matriz<3, 3>();
    p.t = l.vetor<3>();
    confereR(p.R, l);
    p.K = leCamera(l);
    poeNome(poses, nome, p, l);
  }
  return paresDe(pasta, imagens, poses);
}

std::vector<ParPosado> leColmap(const std::string& pasta, const std::string& imagens) {
  std::map<int, cv::Matx33d> cameras;
  const std::string arqCameras = pasta + "/cameras.txt", arqImagens = pasta + "/images.txt";
  for (const auto& [numero, texto] : leLinhas(arqCameras)) {
    Linha l(texto, arqCameras, numero);
    const int id = l.inteiro(INT_MIN, INT_MAX);
    if (!cameras.emplace(id, leCamera(l)).second) l.falha("camera repetida " + std::to_string(id));
  }
  std::map<std::string, Pose> poses;
  std::set<int> ids;
  const auto linhas = leLinhas(arqImagens, true);
  for (size_t i = 0; i < linhas.size(); ++i) {
    if (linhas[i].second.find_first_not_of(" \t\r") == std::string::npos) continue;
    Linha l(linhas[i].second, arqImagens, linhas[i].first);
    l.exige(10);
    const int id = l.inteiro(INT_MIN, INT_MAX);
    if (!ids.insert(id).second) l.falha("imagem repetida " + std::to_string(id));
    cv::Vec4d q = l.vetor<4>();
    if (std::fabs(cv::norm(q) - 1) > kTolRotacao) l.falha("quaternio nao unitario");
    q /= cv::norm(q);
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    Pose p;
    p.R = cv::Matx33d(1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y),
                      2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
                      2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y));
    p.t = l.vetor<3>();
    const int camera = l.inteiro(INT_MIN, INT_MAX);
    const auto c = cameras.find(camera);
    if (c == cameras.end()) l.falha("camera desconhecida " + std::to_string(camera));
    p.K = c->second;
    poeNome(poses, nomeDeImagem(l), p, l);
    ++i;  // its 2D points
  }
  return paresDe(pasta, imagens, poses);
}

}  // namespace

std::vector<ParPosado> leDatasetPosado(const std::string& caminho, const std::string& pastaImagens) {
  std::vector<ParPosado> pares;
  if (ehArquivo(caminho)) {
    const size_t barra = caminho.rfind('/');
    const std::string pasta = barra == std::string::npos ? "." : caminho.substr(0, barra);
    pares = leSuperGlue(caminho, pastaImagens.empty() ? pasta : pastaImagens);
  } else {
    const std::string imagens = pastaImagens.empty() ? caminho + "/images" : pastaImagens;
    if (ehArquivo(caminho + "/views.txt"))
      pares = leVistas(caminho, imagens);
    else if (ehArquivo(caminho + "/cameras.txt") && ehArquivo(caminho + "/images.txt"))
      pares = leColmap(caminho, imagens);
    else
      tvm::erro("Erro: nenhum dataset posado (lista de pares, views.txt ou cameras.txt e images.txt) em ", caminho);
  }
  if (pares.empty()) tvm::erro("Erro: nenhum par em ", caminho);
  return pares;
}

measures::Cameras camerasGiradas(const ParPosado& p, cv::Size tamanho0, cv::Size tamanho1) {
  measures::Cameras c = p.cameras;
  const cv::Matx33d Q(0, 1, 0, -1, 0, 0, 0, 0, 1);
  cv::Matx33d Q0 = cv::Matx33d::eye(), Q1 = Q0;
  const auto gira = [&](int giro, cv::Size s, cv::Matx33d& K, cv::Matx33d& Qi, cv::Mat_<float>& profundidade) {
    for (int k = 0; k < giro; ++k) {
      K = cv::Matx33d(0, 1, 0, -1, 0, s.width - 1, 0, 0, 1) * K * Q.t();
      Qi = Q * Qi;
      std::swap(s.width, s.height);
      if (profundidade.empty()) continue;
      cv::Mat_<float> girada;  // not in place: the map may be shared with the pair
      cv::rotate(profundidade, girada, cv::ROTATE_90_COUNTERCLOCKWISE);
      profundidade = girada;
    }
  };
  gira(p.giro0, tamanho0, c.K0, Q0, c.profundidade0);
  gira(p.giro1, tamanho1, c.K1, Q1, c.profundidade1);
  c.R = Q1 * c.R * Q0.t();
  c.t = Q1 * c.t;
  return c;
}

}  // namespace datasets
