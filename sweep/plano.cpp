// The sweep's command line, read into a plan.
#include "sweep/varre.hpp"

#include "formats/externos_plugin.hpp"
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

const std::vector<std::string> kForaD2Net = {"i_contruction", "i_crownnight", "i_dc",     "i_pencils",
                                             "i_whitebuilding", "v_artisans",   "v_astronautis", "v_talent"};

Plano lePlano(int argc, char** argv) {
  Plano p;
  p.dataset = argv[1];
  p.saida = argv[2];
  p.fontes.saida = p.saida;
  std::vector<std::string> dets = {"sift"}, dess = {"sift"}, cass = {"nn"}, seqs, fora, feats, exts, casFontes;
  bool comDet = false, comDes = false, comMat = false;
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
      comDet = true;
    } else if (chave == "des") {
      dess = separaLista(tvm::minuscula(valor));
      comDes = true;
    } else if (chave == "mat") {
      // Table names in any case; a source's TIPO:ARG keeps its path as given.
      cass.clear();
      comMat = true;
      for (const std::string& nome : separaLista(valor))
        (algoritmos::ehFonte(nome) ? casFontes : cass)
            .push_back(algoritmos::ehFonte(nome) ? nome : tvm::minuscula(nome));
    } else if (chave == "feat") {
      for (const std::string& f : separaLista(valor)) feats.push_back(f);
    } else if (chave == "ext") {
      exts.push_back(valor);
    } else if (chave == "tamanho") {
      double tamanho = 0;
      tvm::convArg(tamanho, valor);
      if (!(tamanho > 0 && tamanho < 1e6)) tvm::erro("Erro: tamanho fora do intervalo");
      p.fontes.tamanho = static_cast<float>(tamanho);
    } else if (chave == "topk") {
      tvm::convArg(p.fontes.topk, valor);
      if (p.fontes.topk < 1) tvm::erro("Erro: topk fora do intervalo");
    } else if (chave == "fora") {
      for (const std::string& f : separaLista(valor))
        if (f == "d2net")
          fora.insert(fora.end(), kForaD2Net.begin(), kForaD2Net.end());
        else
          fora.push_back(f);
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
    } else if (chave == "medidas") {
      if (valor != "todas" && valor != "mma") tvm::erro("Erro: medidas deve ser todas ou mma: ", valor);
      p.medidas.soMMA = valor == "mma";
    } else if (chave == "pose") {
      if (valor != "ransac" && valor != "magsac") tvm::erro("Erro: pose deve ser ransac ou magsac: ", valor);
      p.medidas.metodoPose = valor == "ransac" ? measures::MetodoPose::ransac : measures::MetodoPose::magsac;
    } else if (chave == "limiarpose") {
      // glue-factory's sweep, or the thresholds given.
      p.medidas.limiaresPose.clear();
      if (valor == "glue") p.medidas.limiaresPose = measures::kLimiaresRansac;
      for (const std::string& v : valor == "glue" ? std::vector<std::string>() : separaLista(valor)) {
        double limiar = 0;
        tvm::convArg(limiar, v);
        if (!(limiar > 0 && limiar < 1e4)) tvm::erro("Erro: limiarpose fora do intervalo: ", v);
        p.medidas.limiaresPose.push_back(limiar);
      }
      if (p.medidas.limiaresPose.empty()) tvm::erro("Erro: limiarpose vazio");
    } else if (chave == "imagens") {
      p.pastaImagens = valor;
    } else if (chave == "curva") {
      curva = valor;
    } else if (chave == "shard") {
      p.fatia = leFatia(valor);
      p.fatiada = true;
    } else if (chave == "graficos") {
      int g = 1;
      tvm::convArg(g, valor);
      p.graficos = g != 0;
    } else if (chave == "desenhos") {
      int d = 1;
      tvm::convArg(d, valor);
      p.desenhos = d != 0;
    } else {
      tvm::erro("Erro: Argumento invalido ", palavra);
    }
  }
  if (!p.fatiada)
    p.fatiada = fatiaDoSlurm(std::getenv("SLURM_ARRAY_TASK_ID"), std::getenv("SLURM_ARRAY_TASK_COUNT"),
                             std::getenv("SLURM_ARRAY_TASK_MIN"), p.fatia);
  // Sources replace the default SIFT; a list given empty is an error.
  const bool comFontes = !feats.empty() || !exts.empty() || !casFontes.empty();
  if (comFontes && !comDet) dets.clear();
  if (comFontes && !comDes) dess.clear();
  if ((comDet && dets.empty()) || (comDes && dess.empty()) || (comMat && cass.empty() && casFontes.empty()) ||
      (dets.empty() && !comFontes))
    tvm::erro("Erro: lista vazia em det=, des= ou mat=");
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
  // Each source adds its detector and descriptor (features) or its matcher,
  // signed by the whole text given, not only by its shorter name.
  const auto poeFonte = [&](const char* chave, const std::string& texto) {
    algoritmos::Fonte f = algoritmos::criaFonte(chave, texto, p.fontes);
    if (f.comCaracteristicas) {
      p.detectores.push_back(f.detector);
      p.opcoesDetectores.push_back(std::string(chave) + "=" + texto);
      p.descritores.push_back(f.descritor);
      p.opcoesDescritores.push_back(f.descritor.nome);
      dets.push_back(f.detector.nome);
      dess.push_back(f.descritor.nome);
    }
    if (f.comCasamentos) {
      p.casadores.push_back(f.casador);
      p.opcoesCasadores += std::string(chave) + "=" + texto + " ";
      cass.push_back(f.casador.nome);
    }
  };
  // The readers' plug-in loads now, on this one thread, before any worker.
  if (!feats.empty() || !exts.empty() || !casFontes.empty()) formats::externos();
  for (const std::string& f : feats) poeFonte("feat", f);
  for (const std::string& e : exts) poeFonte("ext", e);
  for (const std::string& c : casFontes) poeFonte("mat", c);
  if (p.casadores.empty()) tvm::erro("Erro: lista vazia em det=, des= ou mat=");
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
      if (!algoritmos::ehFonte(d.nome) && !algoritmos::ehFonte(e.nome) && !algoritmos::parLegal(d.nome, e.nome))
        std::fprintf(stderr, "Aviso: %s so descreve keypoints de %s; o par %s+%s fica fora da varredura\n",
                     e.nome.c_str(), algoritmos::descritor(e.nome)->soDe, d.nome.c_str(), e.nome.c_str());

  p.sequencias = datasets::leDataset(p.dataset, seqs, p.pastaImagens);
  // fora= names that are not in the dataset are fine: d2net's list applies
  // to HPatches as a whole, and to any part of it.
  p.sequencias.erase(std::remove_if(p.sequencias.begin(), p.sequencias.end(),
                                    [&](const datasets::Sequencia& s) { return contem(fora, s.nome); }),
                     p.sequencias.end());
  if (p.sequencias.empty()) tvm::erro("Erro: nenhuma sequencia fica depois de fora= em ", p.dataset);
  // KeyRand draws its pairs through the homography.
  for (const datasets::Sequencia& s : p.sequencias)
    for (const Detector& d : p.detectores)
      if (d.aleatorio && s.tipo == datasets::Tipo::posada)
        tvm::erro("Erro: ", d.nome, " sorteia pares pela homografia; a cena posada " + s.nome + " nao tem uma");
  // curva=SEQ:K: pair 1-K of a planar sequence, the K-th pair of a posed one.
  p.curvaSequencia = p.sequencias.front().nome;
  if (!curva.empty()) {
    const size_t doisPontos = curva.rfind(':');
    p.curvaSequencia = curva.substr(0, doisPontos);
    const auto s = std::find_if(p.sequencias.begin(), p.sequencias.end(),
                                [&](const datasets::Sequencia& q) { return q.nome == p.curvaSequencia; });
    const bool posada = s != p.sequencias.end() && s->tipo == datasets::Tipo::posada;
    int k = posada ? 1 : 2;
    if (doisPontos != std::string::npos) tvm::convArg(k, curva.substr(doisPontos + 1));
    p.curvaPar = posada ? k - 1 : k - 2;
    int pares = 0;  // over the scene's parts
    for (const datasets::Sequencia& q : p.sequencias)
      if (q.nome == p.curvaSequencia) pares += static_cast<int>(q.pares.size());
    if (s == p.sequencias.end() || p.curvaPar < 0 || p.curvaPar >= pares)
      tvm::erro("Erro: par de curva fora da varredura ", curva);
  }
  return p;
}

}  // namespace sweep
