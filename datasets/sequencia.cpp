#include "datasets/sequencia.hpp"

#include "support/erro.hpp"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <memory>

namespace datasets {

namespace {

const char* const kExtensoes[] = {".ppm", ".pgm", ".png", ".jpg", ".jpeg"};
// Views beyond this are not looked for: HPatches and Oxford stop at 6, and a
// synthetic sequence is written with at most this many.
constexpr int kMaxVistas = 100;

bool existeArquivo(const std::string& nome) {
  struct stat st;
  return stat(nome.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool ehPasta(const std::string& nome) {
  struct stat st;
  return stat(nome.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string achaImagem(const std::string& base) {
  for (const char* e : kExtensoes)
    if (existeArquivo(base + e)) return base + e;
  return "";
}

std::string nomeDaPasta(std::string pasta) {
  while (pasta.size() > 1 && pasta.back() == '/') pasta.pop_back();
  const size_t barra = pasta.rfind('/');
  return barra == std::string::npos ? pasta : pasta.substr(barra + 1);
}

// Image k and transform 1->k of one layout; empty names where absent.
struct Layout {
  std::string (*imagem)(const std::string& pasta, int k);
  std::string (*transformacao)(const std::string& pasta, int k);
};

const Layout kLayouts[] = {
    {[](const std::string& p, int k) { return achaImagem(p + "/img" + std::to_string(k)); },
     [](const std::string& p, int k) { return p + "/H1to" + std::to_string(k) + "p"; }},
    {[](const std::string& p, int k) { return achaImagem(p + "/" + std::to_string(k)); },
     [](const std::string& p, int k) { return p + "/H_1_" + std::to_string(k); }},
};

}  // namespace

const char* nomeTipo(Tipo t) {
  switch (t) {
    case Tipo::iluminacao:
      return "illumination";
    case Tipo::pontoDeVista:
      return "viewpoint";
    case Tipo::posada:
      return "posed";
    default:
      return "";
  }
}

bool leSequencia(const std::string& pasta, Sequencia& s) {
  for (const Layout& l : kLayouts) {
    // The last view is the highest index with an image or a transform.
    int ultima = 0;
    for (int k = 1; k <= kMaxVistas; ++k)
      if (!l.imagem(pasta, k).empty() || (k > 1 && existeArquivo(l.transformacao(pasta, k)))) ultima = k;
    if (ultima < 2) continue;
    s = Sequencia();
    s.pasta = pasta;
    s.nome = nomeDaPasta(pasta);
    if (s.nome.rfind("i_", 0) == 0) s.tipo = Tipo::iluminacao;
    if (s.nome.rfind("v_", 0) == 0) s.tipo = Tipo::pontoDeVista;
    for (int k = 1; k <= ultima; ++k) {
      s.imagens.push_back(l.imagem(pasta, k));
      const std::string h = k > 1 ? l.transformacao(pasta, k) : "";
      s.transformacoes.push_back(existeArquivo(h) ? h : "");
      if (k > 1) s.pares.push_back({0, k - 1, "1-" + std::to_string(k), s.transformacoes.back(), std::nullopt});
    }
    return true;
  }
  return false;
}

namespace {

// A scene folder of a posed layout.
bool ehCena(const std::string& pasta) {
  return existeArquivo(pasta + "/views.txt") ||
         (existeArquivo(pasta + "/cameras.txt") && existeArquivo(pasta + "/images.txt"));
}

std::string semExtensao(const std::string& nome) {
  const size_t ponto = nome.rfind('.');
  return ponto == std::string::npos || ponto == 0 ? nome : nome.substr(0, ponto);
}

}  // namespace

std::vector<Sequencia> sequenciaPosada(const std::string& nome, const std::string& pasta,
                                       const std::vector<ParPosado>& pares, int maxImagens) {
  std::vector<Sequencia> partes;
  // An image is its file and its turn; its index in its part, in the order
  // pairs name them.
  std::map<std::pair<std::string, int>, int> indices;
  const auto indice = [&](Sequencia& s, const std::string& caminho, const std::string& nomeLista, int giro,
                          const std::string& profundidade) {
    const auto [it, nova] = indices.emplace(std::make_pair(caminho, giro), static_cast<int>(s.imagens.size()));
    if (!nova) {
      // Pairs name depth only for their image 0 in some lists.
      if (s.profundidades[it->second].empty()) s.profundidades[it->second] = profundidade;
      return it->second;
    }
    s.imagens.push_back(caminho);
    s.transformacoes.emplace_back();
    s.nomes.push_back(nomeLista);
    s.giros.push_back(giro);
    s.profundidades.push_back(profundidade);
    return it->second;
  };
  const auto novas = [&](const ParPosado& p) {
    return static_cast<int>(!indices.count({p.imagem0, p.giro0})) + !indices.count({p.imagem1, p.giro1}) -
           (p.imagem0 == p.imagem1 && p.giro0 == p.giro1 && !indices.count({p.imagem0, p.giro0}));
  };
  for (size_t i = 0; i < pares.size(); ++i) {
    const ParPosado& p = pares[i];
    if (partes.empty() || (!partes.back().pares.empty() && partes.back().vistas() + novas(p) > maxImagens)) {
      partes.emplace_back();
      Sequencia& s = partes.back();
      s.nome = nome;
      s.pasta = pasta;
      s.tipo = Tipo::posada;
      s.parte = static_cast<int>(partes.size()) - 1;
      s.primeiroPar = static_cast<int>(i);
      indices.clear();
    }
    Sequencia& s = partes.back();
    ParDaSequencia q;
    q.a = indice(s, p.imagem0, p.nome0, p.giro0, p.profundidade0);
    q.b = indice(s, p.imagem1, p.nome1, p.giro1, p.profundidade1);
    q.rotulo = p.nome0 + " " + p.nome1;
    q.posado = p;
    s.pares.push_back(q);
  }
  for (Sequencia& s : partes) s.partes = static_cast<int>(partes.size());
  return partes;
}

std::vector<Sequencia> leDataset(const std::string& pasta, const std::vector<std::string>& nomes,
                                 const std::string& pastaImagens) {
  std::vector<Sequencia> todas;
  Sequencia s;
  if (existeArquivo(pasta)) {
    // A pair list, named after its file.
    const size_t barra = pasta.rfind('/');
    todas = sequenciaPosada(semExtensao(nomeDaPasta(pasta)), barra == std::string::npos ? "." : pasta.substr(0, barra),
                            leDatasetPosado(pasta, pastaImagens));
  } else if (ehCena(pasta)) {
    todas = sequenciaPosada(nomeDaPasta(pasta), pasta, leDatasetPosado(pasta, pastaImagens));
  } else if (leSequencia(pasta, s)) {
    todas.push_back(s);
  } else {
    std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(pasta.c_str()), closedir);
    if (!d) tvm::erro("Erro: nao foi possivel ler a pasta do dataset ", pasta);
    std::vector<std::string> entradas;
    while (dirent* e = readdir(d.get())) {
      const std::string nome = e->d_name;
      if (nome != "." && nome != ".." && ehPasta(pasta + "/" + nome)) entradas.push_back(nome);
    }
    std::sort(entradas.begin(), entradas.end());
    for (const std::string& nome : entradas) {
      // Each scene's images are in its own images/ folder.
      if (ehCena(pasta + "/" + nome)) {
        const std::vector<Sequencia> partes =
            sequenciaPosada(nome, pasta + "/" + nome, leDatasetPosado(pasta + "/" + nome));
        todas.insert(todas.end(), partes.begin(), partes.end());
      } else if (leSequencia(pasta + "/" + nome, s))
        todas.push_back(s);
    }
  }
  if (todas.empty())
    tvm::erro("Erro: nenhuma sequencia (img1.ppm.. ou 1.ppm..) nem cena posada (views.txt, cameras.txt) em ", pasta);
  if (nomes.empty()) return todas;
  for (const std::string& nome : nomes)
    if (std::none_of(todas.begin(), todas.end(), [&](const Sequencia& q) { return q.nome == nome; }))
      tvm::erro("Erro: sequencia ", nome, " nao encontrada em " + pasta);
  // In the dataset's order, each once, every part of a scene.
  std::vector<Sequencia> escolhidas;
  for (const Sequencia& q : todas)
    if (std::find(nomes.begin(), nomes.end(), q.nome) != nomes.end()) escolhidas.push_back(q);
  return escolhidas;
}

}  // namespace datasets
