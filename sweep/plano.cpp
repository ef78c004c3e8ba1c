// The sweep's command line, read into a plan.
#include "sweep/varre.hpp"

#include "support/erro.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace sweep {

namespace {

std::vector<std::string> separaLista(const std::string& texto) {
  std::vector<std::string> r;
  std::string atual;
  for (char c : texto + ",") {
    if (c != ',') {
      atual += c;
    } else if (!atual.empty()) {
      r.push_back(atual);
      atual.clear();
    }
  }
  return r;
}

// An ISTR over words kept alive by the object.
class Palavras {
 public:
  explicit Palavras(const std::vector<std::string>& palavras) : texto_(palavras) {
    for (std::string& p : texto_) ptrs_.push_back(p.data());
  }
  tvm::ISTR istr() { return tvm::ISTR(static_cast<int>(ptrs_.size()), ptrs_.data()); }

 private:
  std::vector<std::string> texto_;
  std::vector<char*> ptrs_;
};

std::string junta(const std::vector<std::string>& palavras) {
  std::string r;
  for (const std::string& p : palavras) r += (r.empty() ? "" : " ") + p;
  return r;
}

bool contem(const std::vector<std::string>& v, const std::string& x) {
  return std::find(v.begin(), v.end(), x) != v.end();
}

}  // namespace

Plano lePlano(int argc, char** argv) {
  Plano p;
  p.dataset = argv[1];
  p.saida = argv[2];
  std::vector<std::string> dets = {"sift"}, dess = {"sift"}, cass = {"nn"}, seqs;
  std::map<std::string, std::vector<std::string>> opcoes;  // per algorithm name
  std::string curva;
  for (int i = 3; i < argc; ++i) {
    const std::string palavra = argv[i];
    const size_t igual = palavra.find('=');
    const std::string chave = tvm::minuscula(palavra.substr(0, igual));
    const std::string valor = igual == std::string::npos ? "" : palavra.substr(igual + 1);
    const size_t ponto = chave.find('.');
    if (ponto != std::string::npos && ponto > 0 && ponto + 1 < chave.size()) {
      opcoes[chave.substr(0, ponto)].push_back(igual == std::string::npos ? chave.substr(ponto + 1)
                                                                          : chave.substr(ponto + 1) + "=" + valor);
      continue;
    }
    if (igual == std::string::npos) tvm::erro("Erro: Argumento invalido ", palavra);
    if (chave == "det") {
      dets = separaLista(tvm::minuscula(valor));
    } else if (chave == "des") {
      dess = separaLista(tvm::minuscula(valor));
    } else if (chave == "mat") {
      cass = separaLista(tvm::minuscula(valor));
    } else if (chave == "seq") {
      seqs = separaLista(valor);
    } else if (chave == "threads") {
      tvm::convArg(p.threads, valor);
      if (p.threads < 1) tvm::erro("Erro: threads fora do intervalo");
    } else if (chave == "erro") {
      tvm::convArg(p.medidas.erro, valor);
      if (!(p.medidas.erro > 0 && p.medidas.erro < 100)) tvm::erro("Erro: erro fora do intervalo (0 a 100)");
    } else if (chave == "px") {
      tvm::convArg(p.medidas.px, valor);
      if (!(p.medidas.px > 0)) tvm::erro("Erro: px fora do intervalo");
    } else if (chave == "ransac") {
      tvm::convArg(p.medidas.ransac, valor);
      if (!(p.medidas.ransac > 0)) tvm::erro("Erro: ransac fora do intervalo");
    } else if (chave == "dist") {
      tvm::convArg(p.medidas.dist, valor);
      if (!(p.medidas.dist > 0)) tvm::erro("Erro: dist fora do intervalo");
    } else if (chave == "comum") {
      if (valor == "ambas")
        p.medidas.comum = measures::ParteComum::ambas;
      else if (valor == "opencv")
        p.medidas.comum = measures::ParteComum::opencv;
      else
        tvm::erro("Erro: comum deve ser ambas ou opencv: ", valor);
    } else if (chave == "curva") {
      curva = valor;
    } else if (chave == "shard") {
      p.fatia = leFatia(valor);
      p.fatiada = true;
    } else if (chave == "graficos") {
      int g = 1;
      tvm::convArg(g, valor);
      p.graficos = g != 0;
    } else {
      tvm::erro("Erro: Argumento invalido ", palavra);
    }
  }
  if (!p.fatiada)
    p.fatiada = fatiaDoSlurm(std::getenv("SLURM_ARRAY_TASK_ID"), std::getenv("SLURM_ARRAY_TASK_COUNT"),
                             std::getenv("SLURM_ARRAY_TASK_MIN"), p.fatia);
  if (dets.empty() || dess.empty() || cass.empty()) tvm::erro("Erro: lista vazia em det=, des= ou mat=");
  // Options go to every algorithm of their name that takes options: a
  // descriptor that takes none (sift, surf) leaves "sift." words to the
  // detector, and a detector and a descriptor of one name share one list.
  // Options of an algorithm this sweep does not run would be silently lost:
  // refused.
  const auto descritorComOpcoes = [&](const std::string& nome) {
    const algoritmos::LinhaDescritor* l = algoritmos::descritor(nome);
    return contem(dess, nome) && l != nullptr && !l->opcoes.empty();
  };
  for (const auto& [nome, palavras] : opcoes) {
    if (!contem(dets, nome) && !descritorComOpcoes(nome) && !contem(cass, nome))
      tvm::erro("Erro: Argumento invalido ", nome + "." + palavras.front());
  }

  for (const std::string& nome : dets) {
    Palavras w(opcoes[nome]);
    tvm::ISTR in = w.istr();
    p.detectores.push_back(algoritmos::criaDetector(nome, in));
    p.opcoesDetectores.push_back(nome + " " + junta(opcoes[nome]));
  }
  for (const std::string& nome : dess) {
    const std::vector<std::string> palavras = descritorComOpcoes(nome) ? opcoes[nome] : std::vector<std::string>();
    Palavras w(palavras);
    tvm::ISTR in = w.istr();
    p.descritores.push_back(algoritmos::criaDescritor(nome, in));
    p.opcoesDescritores.push_back(nome + " " + junta(palavras));
  }
  for (const std::string& nome : cass) {
    Palavras w(opcoes[nome]);
    tvm::ISTR in = w.istr();
    p.casadores.push_back(algoritmos::criaCasador(nome, in));
    p.opcoesCasadores += nome + "[" + junta(opcoes[nome]) + "] ";
  }
  for (const auto& lista : {dets, dess, cass})
    for (size_t i = 0; i < lista.size(); ++i)
      if (std::count(lista.begin(), lista.end(), lista[i]) > 1) tvm::erro("Erro: nome repetido na lista ", lista[i]);

  // A descriptor that reads its own detector's scale levels (AKAZE, KAZE,
  // ORB) meets other detectors' keypoints in no unit; said once, and a plan
  // left with no unit at all is an error.
  bool algumPar = false;
  for (const Detector& d : p.detectores)
    for (const Descritor& e : p.descritores) algumPar = algumPar || algoritmos::parLegal(d.nome, e.nome);
  if (!algumPar) tvm::erro("Erro: nenhum par detector+descritor possivel em det= e des=");
  for (const Detector& d : p.detectores)
    for (const Descritor& e : p.descritores)
      if (!algoritmos::parLegal(d.nome, e.nome))
        std::fprintf(stderr, "Aviso: %s so descreve keypoints de %s; o par %s+%s fica fora da varredura\n",
                     e.nome.c_str(), algoritmos::descritor(e.nome)->soDe, d.nome.c_str(), e.nome.c_str());

  p.sequencias = datasets::leDataset(p.dataset, seqs);
  p.curvaSequencia = p.sequencias.front().nome;
  if (!curva.empty()) {
    const size_t doisPontos = curva.rfind(':');
    p.curvaSequencia = curva.substr(0, doisPontos);
    if (doisPontos != std::string::npos) tvm::convArg(p.curvaVista, curva.substr(doisPontos + 1));
    const auto s = std::find_if(p.sequencias.begin(), p.sequencias.end(),
                                [&](const datasets::Sequencia& q) { return q.nome == p.curvaSequencia; });
    if (s == p.sequencias.end() || p.curvaVista < 2 || p.curvaVista > s->vistas())
      tvm::erro("Erro: par de curva fora da varredura ", curva);
  }
  return p;
}

}  // namespace sweep
