// Sources of features and matches that other programs wrote: rows of the
// table like the detectors', built by Varre from feat=, mat= and ext=.
#include "algoritmos/tabela.hpp"
#include "formats/externos.hpp"
#include "support/arquivos.hpp"
#include "support/assinatura.hpp"
#include "support/erro.hpp"
#include "support/processo.hpp"

#include <cstdio>
#include <fstream>

namespace algoritmos {

namespace {

std::string nomeDoArquivo(const std::string& caminho) {
  const size_t barra = caminho.find_last_of('/');
  return barra == std::string::npos ? caminho : caminho.substr(barra + 1);
}

std::string pastaDe(const std::string& caminho) {
  const size_t barra = caminho.find_last_of('/');
  return barra == std::string::npos ? "." : caminho.substr(0, barra);
}

bool existe(const std::string& arquivo) { return tvm::marcaDoArquivo(arquivo) != "-"; }

// The detector and descriptor of a feature source: keypoints and rows read
// together, the rows taken as they come.
Fonte deCaracteristicas(const std::string& nome, const OpcoesFontes& o,
                        std::function<formats::Caracteristicas(const std::string&, const std::string&)> le,
                        std::function<std::vector<std::string>(const std::string&, const std::string&)> arquivos) {
  Fonte f;
  f.comCaracteristicas = true;
  f.detector.nome = f.detector.descreveComo = f.descritor.nome = nome;
  const int topk = o.topk;
  f.detector.deArquivo = [le, topk, nome](const std::string& caminho, const std::string& n) {
    formats::Caracteristicas c = le(caminho, n);
    if (topk > 0 && !c.comScores && static_cast<int>(c.keypoints.size()) > topk)
      tvm::erro("Erro: topk= sem scores em " + nome + " para ", caminho);
    if (topk > 0) formats::melhores(c, topk);
    if (c.descritores.empty()) tvm::erro("Erro: descritores ausentes em " + nome + " para ", caminho);
    return c;
  };
  f.detector.arquivos = std::move(arquivos);
  return f;
}

// D2-Net's and R2D2's layout: "<image>.<method>" beside each image (or with
// ".npz" after it, as np.savez names a file given without that ending).
Fonte fonteNpz(const std::string& metodo, const OpcoesFontes& o) {
  const auto arquivo = [metodo](const std::string& caminho) {
    const std::string sem = caminho + "." + metodo;
    return existe(sem) || !existe(sem + ".npz") ? sem : sem + ".npz";
  };
  const float tamanho = o.tamanho;
  return deCaracteristicas(
      "npz:" + metodo, o,
      [arquivo, tamanho](const std::string& caminho, const std::string&) {
        return formats::leD2Net(arquivo(caminho), tamanho);
      },
      [arquivo](const std::string&, const std::string& caminho) { return std::vector<std::string>{arquivo(caminho)}; });
}

// hloc's features file: a group per image, by the image's name in the dataset.
Fonte fonteH5(const std::string& arquivo, const OpcoesFontes& o) {
  const float tamanho = o.tamanho;
  return deCaracteristicas(
      "h5:" + nomeDoArquivo(arquivo), o,
      [arquivo, tamanho](const std::string&, const std::string& nome) {
        return formats::leHloc(arquivo, nome, tamanho);
      },
      [arquivo](const std::string&, const std::string&) { return std::vector<std::string>{arquivo}; });
}

// A command run once per image: {imagem} is the image's path and {saida} the
// .npz it must write in D2-Net's layout. Its outputs stay in the sweep's
// folder under the command's and the image's signature, so a resumed sweep
// runs it only for images it has not seen; a failure keeps its stderr there.
Fonte fonteExterna(const std::string& comando, const OpcoesFontes& o) {
  if (comando.find("{imagem}") == std::string::npos || comando.find("{saida}") == std::string::npos)
    tvm::erro("Erro: ext= precisa de {imagem} e {saida}: ", comando);
  // Named by the program it runs: the first word that is not an interpreter.
  std::string programa;
  for (const std::string& p : tvm::palavrasShell(comando)) {
    const std::string palavra = nomeDoArquivo(p);
    if (palavra.empty() || palavra.rfind("python", 0) == 0 || palavra == "env" || palavra == "sh" ||
        palavra == "bash" || palavra.find('=') != std::string::npos)
      continue;
    programa = palavra;
    break;
  }
  const std::string pasta = o.saida + "/caracteristicas/" + tvm::assinatura(comando).substr(0, 12);
  const float tamanho = o.tamanho;
  return deCaracteristicas(
      "ext:" + (programa.empty() ? tvm::assinatura(comando).substr(0, 8) : programa), o,
      [comando, pasta, tamanho](const std::string& caminho, const std::string& nome) {
        std::string base = nome;
        for (char& c : base)
          if (c == '/') c = '_';
        base = pasta + "/" + base + "." + tvm::assinatura(caminho + "|" + tvm::marcaDoArquivo(caminho)).substr(0, 8);
        const std::string saida = base + ".npz";
        if (!existe(saida)) {
          tvm::criaPastas(pasta);
          const std::string parcial = base + ".parcial.npz", erros = base + ".stderr";
          std::string linha = comando;
          for (const auto& [marca, valor] : {std::pair<std::string, std::string>{"{imagem}", caminho},
                                             std::pair<std::string, std::string>{"{saida}", parcial}})
            for (size_t i; (i = linha.find(marca)) != std::string::npos;)
              linha.replace(i, marca.size(), tvm::aspasShell(valor));
          std::remove(parcial.c_str());
          const int status = tvm::executa(linha, erros);
          if (status != 0) {
            std::ifstream e(erros);
            std::string ultima, l;
            while (std::getline(e, l))
              if (!l.empty()) ultima = l;
            tvm::erro("Erro: comando externo terminou com status " + std::to_string(status) + " em " + caminho +
                          " (stderr em " + erros + "): ",
                      ultima);
          }
          if (!existe(parcial)) tvm::erro("Erro: comando externo nao escreveu {saida} para ", caminho);
          if (std::rename(parcial.c_str(), saida.c_str()) != 0) tvm::erro("Erro abertura arquivo ", saida);
        }
        return formats::leD2Net(saida, tamanho);
      },
      [](const std::string&, const std::string& caminho) { return std::vector<std::string>{caminho}; });
}

// hloc's matches file, indices into an hloc features file's keypoints.
Fonte casamentosH5(const std::string& arquivo, const OpcoesFontes& o) {
  if (o.topk > 0) tvm::erro("Erro: topk= nao vale com casamentos do hloc (indices nos keypoints do arquivo): ", arquivo);
  Fonte f;
  f.comCasamentos = true;
  f.casador.nome = "h5:" + nomeDoArquivo(arquivo);
  f.casador.soCom = "h5:";
  f.casador.arquivos = {arquivo};
  f.casador.doArquivo = [arquivo](const std::string& n1, const std::string& n2, size_t k1, size_t k2) {
    return formats::leHlocCasamentos(arquivo, n1, n2, k1, k2);
  };
  return f;
}

// SuperGlue's match_pairs.py files: a pair's keypoints and matches in one
// .npz, "<stem0>_<stem1>_matches.npz", in DIR/<sequence>/ or in DIR itself.
Fonte casamentosNpz(const std::string& pasta, const OpcoesFontes& o) {
  if (o.topk > 0) tvm::erro("Erro: topk= nao vale com casamentos do SuperGlue: ", pasta);
  const auto arquivo = [pasta](const std::string& c1, const std::string& c2) {
    const auto tronco = [](const std::string& c) {
      const std::string n = nomeDoArquivo(c);
      return n.substr(0, n.find_last_of('.'));
    };
    const std::string nome = tronco(c1) + "_" + tronco(c2) + "_matches.npz";
    const std::string naSequencia = pasta + "/" + nomeDoArquivo(pastaDe(c1)) + "/" + nome;
    return existe(naSequencia) ? naSequencia : pasta + "/" + nome;
  };
  Fonte f;
  f.comCaracteristicas = f.comCasamentos = true;
  const std::string nome = "npz:" + nomeDoArquivo(pasta);
  f.detector.nome = f.descritor.nome = f.casador.nome = f.casador.soCom = nome;
  f.casador.dados = true;
  const float tamanho = o.tamanho;
  f.detector.dePar = [arquivo, tamanho](const std::string& c1, const std::string& c2) {
    return formats::leSuperGlue(arquivo(c1, c2), tamanho);
  };
  f.detector.arquivos = [arquivo](const std::string& c1, const std::string& c) {
    return c1 == c ? std::vector<std::string>() : std::vector<std::string>{arquivo(c1, c)};
  };
  return f;
}

}  // namespace

const std::vector<LinhaFonte>& fontes() {
  static const std::vector<LinhaFonte> t = {
      {"npz", "feat", "METODO: IMAGEM.METODO ao lado de cada imagem",
       "D2-Net/R2D2: keypoints N x 2..4, scores N, descriptors N x D", fonteNpz},
      {"h5", "feat", "ARQUIVO.h5", "hloc: um grupo por imagem com keypoints, descriptors (D x N), scores", fonteH5},
      {"ext", "ext", "COMANDO com {imagem} e {saida}", "o .npz de D2-Net que o comando escreve em {saida}",
       fonteExterna},
      {"h5", "mat", "ARQUIVO.h5", "hloc: um grupo por par com matches0, matching_scores0", casamentosH5},
      {"npz", "mat", "PASTA", "SuperGlue: A_B_matches.npz com keypoints0/1, matches, match_confidence",
       casamentosNpz},
  };
  return t;
}

bool ehFonte(const std::string& nome) { return nome.find(':') != std::string::npos; }

Fonte criaFonte(const std::string& chave, const std::string& texto, const OpcoesFontes& opcoes) {
  const size_t doisPontos = chave == "ext" ? std::string::npos : texto.find(':');
  const std::string tipo = chave == "ext" ? "ext" : texto.substr(0, doisPontos);
  const std::string argumento = chave == "ext" ? texto : texto.substr(doisPontos + 1);
  if (chave != "ext" && (doisPontos == std::string::npos || argumento.empty()))
    tvm::erro("Erro: fonte deve ser TIPO:ARG em " + chave + "=: ", texto);
  for (const LinhaFonte& l : fontes())
    if (chave == l.chave && tipo == l.nome) return l.cria(argumento, opcoes);
  tvm::erro("Erro: fonte desconhecida em " + chave + "=: ", texto);
}

bool casadorServe(const Casador& cas, const Detector& det) {
  if (!cas.soCom.empty()) return cas.soCom.back() == ':' ? det.nome.rfind(cas.soCom, 0) == 0 : det.nome == cas.soCom;
  return !det.dePar;
}

}  // namespace algoritmos
