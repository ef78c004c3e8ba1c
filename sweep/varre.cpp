#include "sweep/varre.hpp"

#include "display/desenhos.hpp"
#include "evaluation/medidas_entrada.hpp"
#include "formats/csv.hpp"
#include "measures/casamento.hpp"
#include "support/arquivos.hpp"
#include "support/assinatura.hpp"
#include "support/erro.hpp"
#include "support/decodifica.hpp"
#include "support/imagem.hpp"
#include "support/processo.hpp"
#include "sweep/fatias.hpp"
#include "sweep/progresso.hpp"
#include "sweep/tarefas.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <new>

namespace sweep {

const char* const kCabecalho =
    "sequence,kind,pair,detector,descriptor,matcher,status,keypoints1,keypoints2,described1,described2,dropped,"
    "repeatability,correspondences,n1,n2,dist_repeatability,matches,correct,matching_score,"
    "mma@1,mma@2,mma@3,mma@4,mma@5,mma@6,mma@7,mma@8,mma@9,mma@10,ap,homography_error,"
    "homography@1,homography@3,homography@5";
const char* const kCabecalhoTempos = "sequence,pair,detector,descriptor,matcher,detect_s,describe_s,match_s,measure_s";
const char* const kCabecalhoCurvas = "sequence,pair,detector,descriptor,matcher,rank,one_minus_precision,recall";

namespace {

using Relogio = std::chrono::steady_clock;

double segundosDesde(Relogio::time_point t0) { return std::chrono::duration<double>(Relogio::now() - t0).count(); }

std::string numero(const char* formato, double v) {
  char s[64];
  std::snprintf(s, sizeof s, formato, v);
  return s;
}

// Runs f; the message of the failure that stopped it, empty when it ran.
template <typename F>
std::string capturaFalha(F&& f) {
  try {
    f();
  } catch (const tvm::Erro& e) {
    return e.what();
  } catch (const cv::Exception& e) {
    return "Erro: OpenCV: " + e.err;
  } catch (const std::bad_alloc&) {
    return "Erro: memoria insuficiente";
  } catch (const std::exception& e) {
    return std::string("Erro: ") + e.what();
  }
  return "";
}

// An image's name as another program's files know it: its path under the
// dataset's folder ("i_ajuntament/1.ppm"; "img1.png" for a lone sequence).
std::string nomeNoDataset(const Plano& p, const std::string& caminho) {
  const std::string pasta = p.dataset.back() == '/' ? p.dataset : p.dataset + "/";
  return caminho.rfind(pasta, 0) == 0 ? caminho.substr(pasta.size()) : caminho;
}

// ---------------------------------------------------------------- a unit

struct Imagem {
  cv::Mat_<uchar> pixels;
  std::string falha;
};

struct Geometria {
  cv::Matx33d H, Hinv;
  std::string falha;
};

// Keypoints of one image and their rows.
struct Descricao {
  std::vector<cv::KeyPoint> keypoints;
  cv::Mat linhas;
  std::vector<cv::DMatch> dados;  // a pair source's matches (image 1's side)
  int detectados = 0, descartados = 0;
  double segundosDetecao = 0, segundosDescricao = 0;
  std::string falha;
};

// Whether the descriptor describes each keypoint on its own; a keypoint it
// stops on (SIMPLE on a flat patch) is not describable.
std::vector<bool> descreviveis(const Descritor& d, const cv::Mat_<uchar>& img, const std::vector<cv::KeyPoint>& k) {
  std::vector<bool> ok(k.size());
  for (size_t i = 0; i < k.size(); ++i) {
    std::vector<cv::KeyPoint> um{k[i]};
    cv::Mat linha;
    ok[i] = capturaFalha([&] { d.calcula(img, um, linha); }).empty();
  }
  return ok;
}

template <typename T>
std::vector<T> filtra(const std::vector<T>& v, const std::vector<bool>& manter) {
  std::vector<T> r;
  for (size_t i = 0; i < v.size(); ++i)
    if (manter[i]) r.push_back(v[i]);
  return r;
}

// Describes the keypoints of one image, or of both images of a rand pair
// (b not null), dropping what cannot be described (both partners of a pair).
void descreve(const Descritor& d, const Imagem& ia, Descricao& a, const Imagem* ib, Descricao* b) {
  const auto t0 = Relogio::now();
  auto tenta = [&](const Imagem& im, Descricao& x) {
    return capturaFalha([&] { d.calcula(im.pixels, x.keypoints, x.linhas); });
  };
  const std::vector<cv::KeyPoint> ka = a.keypoints;
  const std::vector<cv::KeyPoint> kb = b ? b->keypoints : std::vector<cv::KeyPoint>();
  std::string fa = tenta(ia, a), fb = b ? tenta(*ib, *b) : "";
  if (!fa.empty() || !fb.empty()) {
    std::vector<bool> manter = descreviveis(d, ia.pixels, ka);
    if (b) {
      const std::vector<bool> mb = descreviveis(d, ib->pixels, kb);
      for (size_t i = 0; i < manter.size(); ++i) manter[i] = manter[i] && mb[i];
      b->keypoints = filtra(kb, manter);
      b->descartados = static_cast<int>(kb.size() - b->keypoints.size());
      fb = tenta(*ib, *b);
    }
    a.keypoints = filtra(ka, manter);
    a.descartados = static_cast<int>(ka.size() - a.keypoints.size());
    fa = tenta(ia, a);
  }
  const double s = segundosDesde(t0);
  a.segundosDescricao = b ? s / 2 : s;
  a.falha = fa;
  if (b) {
    b->segundosDescricao = s / 2;
    b->falha = fb;
  }
}

// Rows of a unit and what goes beside them.
struct Saidas {
  std::string linhas, tempos, curvas;
  bool falhou = false;
};

// sequence,pair,detector,descriptor,matcher: the key of a row.
std::string chave(const datasets::Sequencia& s, int k, const Detector& det, const Descritor& des, const Casador& cas) {
  return formats::campoCSV(s.nome) + ",1-" + std::to_string(k) + "," + det.nome + "," + des.nome + "," + cas.nome;
}

void linhaFalha(Saidas& o, const datasets::Sequencia& s, int k, const Detector& det, const Descritor& des,
                const Casador& cas, const std::string& falha) {
  if (!algoritmos::casadorServe(cas, det)) return;
  const std::string c = chave(s, k, det, des, cas);
  const size_t virgula = c.find(',');
  std::string linha =
      c.substr(0, virgula) + "," + datasets::nomeTipo(s.tipo) + c.substr(virgula) + "," + formats::campoCSV(falha);
  // Every column after status holds NA.
  const std::string cabecalho = kCabecalho;
  for (auto i = std::count(cabecalho.begin(), cabecalho.end(), ','); i > 6; --i) linha += ",NA";
  o.linhas += linha + "\n";
  o.tempos += c + ",NA,NA,NA,NA\n";
  o.falhou = true;
}

// The repeatability columns of a pair, computed once per detector.
struct Repeticao {
  std::string texto;
  double segundos = 0;
};

Repeticao repeticao(const Plano& p, const Descricao& a, const Descricao& b, const cv::Mat_<uchar>& ia,
                    const cv::Mat_<uchar>& ib, const Geometria& g) {
  Repeticao r;
  if (p.medidas.soMMA) {
    r.texto = "NA,NA,NA,NA,NA";
    return r;
  }
  const auto t0 = Relogio::now();
  const measures::RepeticaoSobreposicao sob = measures::repeticaoSobreposicao(
      a.keypoints, b.keypoints, g.H, g.Hinv, ia.size(), ib.size(), p.medidas.erro / 100, p.medidas.comum);
  const measures::RepeticaoDistancia dist =
      measures::repeticaoDistancia(a.keypoints, b.keypoints, g.H, g.Hinv, ia.size(), ib.size(), p.medidas.px);
  r.texto = evaluation::texto(sob.repeatability()) + "," + std::to_string(sob.correspondencias) + "," +
            std::to_string(sob.n1) + "," + std::to_string(sob.n2) + "," + evaluation::texto(dist.repeatability());
  r.segundos = segundosDesde(t0);
  return r;
}

// The matches of the chosen pair (curva=), drawn for the report:
// SAIDA/desenhos/<sequence>@1-k@<detector>@<descriptor>@<matcher>.jpg.
void desenha(const Plano& p, const datasets::Sequencia& s, int k, const Detector& det, const Descritor& des,
             const Casador& cas, const cv::Mat_<uchar>& ia, const cv::Mat_<uchar>& ib,
             const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2, const std::vector<bool>& certos,
             const Geometria& g) {
  std::vector<double> erros(m1.size());
  for (size_t i = 0; i < m1.size(); ++i) erros[i] = measures::erroReprojecao(g.H, m1[i].pt, m2[i].pt);
  std::string nome = s.nome + "@1-" + std::to_string(k) + "@" + det.nome + "@" + des.nome + "@" + cas.nome;
  for (char& c : nome)
    if (c == '/' || c == ':' || c == ' ') c = '_';
  tvm::criaPastas(p.saida + "/desenhos");
  // Encoded here with libjpeg, at quality 80: the codec plug-in would add
  // its libraries to the sweep's peak memory for a few small pictures.
  std::vector<uchar> jpeg;
  if (!tvm::codificaJpeg(display::desenhaAcertos(ia, ib, m1, m2, certos, erros, 10, 720), 80, jpeg))
    tvm::erro("Erro: desenho nao codificado para ", nome);
  tvm::SaidaSegura saida(p.saida + "/desenhos/" + nome + ".jpg");
  saida.escreve(jpeg.data(), jpeg.size());
  saida.confirma();
}

void mede(Saidas& o, const Plano& p, const datasets::Sequencia& s, int k, const Detector& det, const Descritor& des,
          const Descricao& a, const Descricao& b, const cv::Mat_<uchar>& ia, const cv::Mat_<uchar>& ib,
          const Geometria& g, const Repeticao& rep, bool comCurva) {
  // The exhaustive matchers' searches, once for all of them; their time
  // goes to the first row that reads them.
  int kIda = 0;
  bool volta = false;
  for (const Casador& cas : p.casadores)
    if (cas.dasPasses && algoritmos::casadorServe(cas, det)) kIda = std::max(kIda, cas.kIda), volta = volta || cas.volta;
  Passes passes;
  std::string falhaPasses;
  double segundosPasses = 0;
  if (kIda > 0) {
    const auto t0 = Relogio::now();
    falhaPasses = capturaFalha([&] { passes = calculaPasses(a.linhas, b.linhas, kIda, volta); });
    segundosPasses = segundosDesde(t0);
  }
  bool primeiraLinha = true;  // the one that counts the repeatability's time
  for (const Casador& cas : p.casadores) {
    if (!algoritmos::casadorServe(cas, det)) continue;
    const std::string c = chave(s, k, det, des, cas);
    auto t0 = Relogio::now();
    std::vector<cv::DMatch> matches;
    std::string falha;
    double segundosCasamento = 0;
    if (cas.dados) {
      matches = a.dados;
    } else if (cas.doArquivo) {
      falha = capturaFalha([&] {
        matches = cas.doArquivo(nomeNoDataset(p, s.imagens[0]), nomeNoDataset(p, s.imagens[k - 1]),
                                a.keypoints.size(), b.keypoints.size());
      });
      segundosCasamento = segundosDesde(t0);
    } else if (cas.dasPasses) {
      falha = falhaPasses.empty() ? capturaFalha([&] { matches = cas.dasPasses(passes); }) : falhaPasses;
      segundosCasamento = segundosDesde(t0) + segundosPasses;
      segundosPasses = 0;
    } else {
      falha = capturaFalha([&] { matches = cas.casa(a.linhas, b.linhas); });
      segundosCasamento = segundosDesde(t0);
    }
    if (!falha.empty()) {
      linhaFalha(o, s, k, det, des, cas, falha);
      continue;
    }
    t0 = Relogio::now();
    std::vector<cv::KeyPoint> m1, m2;
    for (const cv::DMatch& m : matches) {
      m1.push_back(a.keypoints[m.queryIdx]);
      m2.push_back(b.keypoints[m.trainIdx]);
    }
    measures::OpcoesCasamento oc;
    oc.erro = p.medidas.erro / 100;
    oc.comum = p.medidas.comum;
    oc.ransac = p.medidas.ransac;
    if (p.medidas.dist > 0) oc.dist = p.medidas.dist;
    measures::MedidasCasamento m;
    if (p.medidas.soMMA) {
      // D2-Net's protocol needs the reprojection errors alone; a match
      // within 3 px is drawn as correct.
      std::vector<double> erros(m1.size());
      for (size_t i = 0; i < m1.size(); ++i) erros[i] = measures::erroReprojecao(g.H, m1[i].pt, m2[i].pt);
      m.mma = measures::mma(erros);
      for (double e : erros) m.certos.push_back(e <= 3);
    } else {
      falha = capturaFalha([&] {
        m = measures::medeCasamentos(a.keypoints, b.keypoints, m1, m2, g.H, g.Hinv, ia.size(), ib.size(), oc);
      });
    }
    if (!falha.empty()) {
      linhaFalha(o, s, k, det, des, cas, falha);
      continue;
    }
    if (comCurva && p.desenhos) desenha(p, s, k, det, des, cas, ia, ib, m1, m2, m.certos, g);
    const size_t virgula = c.find(',');
    std::string linha = c.substr(0, virgula) + "," + datasets::nomeTipo(s.tipo) + c.substr(virgula) + ",ok," +
                        std::to_string(a.detectados) + "," + std::to_string(b.detectados) + "," +
                        std::to_string(a.keypoints.size()) + "," + std::to_string(b.keypoints.size()) + "," +
                        std::to_string(a.descartados + b.descartados) + "," + rep.texto + "," +
                        std::to_string(matches.size()) + "," +
                        (p.medidas.soMMA ? std::string("NA") : std::to_string(m.corretos)) + "," +
                        evaluation::texto(m.matchingScore);
    for (const measures::Medida& v : m.mma) linha += "," + evaluation::texto(v);
    linha += "," + evaluation::texto(m.ap) + "," + evaluation::texto(m.erroHomografia);
    for (int t : {1, 3, 5})
      linha += "," + (p.medidas.soMMA ? std::string("NA") : std::to_string(measures::homografiaCorreta(m.erroHomografia, t)));
    o.linhas += linha + "\n";
    if (comCurva && !p.medidas.soMMA) {
      const std::vector<measures::PontoRP> curva = measures::curvaRecallPrecisao(m.certos);
      for (size_t i = 0; i < curva.size(); ++i)
        o.curvas += c + "," + std::to_string(i + 1) + "," + numero("%.9g", curva[i].umMenosPrecisao) + "," +
                    (curva[i].recall < 0 ? std::string("NA") : numero("%.9g", curva[i].recall)) + "\n";
    }
    const double segundosMedida = segundosDesde(t0) + (primeiraLinha ? rep.segundos : 0.0);
    primeiraLinha = false;
    o.tempos += c + "," + numero("%.4f", a.segundosDetecao + b.segundosDetecao) + "," +
                numero("%.4f", a.segundosDescricao + b.segundosDescricao) + "," + numero("%.4f", segundosCasamento) +
                "," + numero("%.4f", segundosMedida) + "\n";
  }
}

void gravaTabela(const std::string& arquivo, const std::string& cabecalho, const std::string& corpo) {
  tvm::SaidaSegura saida(arquivo);
  formats::escreveTexto(saida, cabecalho + "\n" + corpo);
  saida.confirma();
}

// What one sequence holds while its units run: images, transforms and, per
// detector, the keypoints of every image and the repeatability of every
// pair. Released when its last unit is written, so memory does not grow
// with the dataset. Every slot is made before the tasks run; each task
// writes only its own.
struct Sequencia {
  std::vector<Imagem> imagens;
  std::vector<Geometria> geometrias;
  std::vector<std::vector<Descricao>> deteccoes;  // [detector][image]
  std::vector<std::vector<Repeticao>> repeticoes;  // [detector][pair]

  // The failure, if any, of an input of pair 1-(k + 1): image 1, image
  // k + 1, then the transform.
  std::string falhaDoPar(int k) const {
    if (!imagens[0].falha.empty()) return imagens[0].falha;
    if (!imagens[k].falha.empty()) return imagens[k].falha;
    return geometrias[k].falha;
  }
};

// One unit's images described and its rows per pair: a[k], b[k] the
// keypoints and rows of images 1 and k + 1 for pair k (rand pairs), or
// descritas[k] those of image k + 1 (detected keypoints).
struct EmCurso {
  std::vector<Descricao> a, b, descritas;
  std::vector<std::string> falhas;
  std::vector<Repeticao> repeticoesRand;
  std::vector<Saidas> partes;
};

void leEntradas(const datasets::Sequencia& s, int k, Sequencia& q) {
  if (s.imagens[k].empty())
    q.imagens[k].falha = "Erro: imagem " + std::to_string(k + 1) + " ausente em " + s.pasta;
  else
    q.imagens[k].falha = capturaFalha([&] { tvm::le(q.imagens[k].pixels, s.imagens[k]); });
  if (k == 0) return;
  if (s.transformacoes[k].empty())
    q.geometrias[k].falha = "Erro: transformacao 1-" + std::to_string(k + 1) + " ausente em " + s.pasta;
  else
    q.geometrias[k].falha = capturaFalha(
        [&] { evaluation::leTransformacao(s.transformacoes[k], q.geometrias[k].H, q.geometrias[k].Hinv); });
}

// Whether the detector's one-pass description serves a descriptor of the plan.
bool descreveJunto(const Plano& p, const Detector& det) {
  if (det.deArquivo) return true;
  if (!det.detectaEDescreve) return false;
  for (const Descritor& d : p.descritores)
    if (d.nome == det.descreveComo) return true;
  return false;
}

void detectaImagem(const Plano& p, const Detector& det, const Imagem& im, const std::string& caminho, Descricao& d) {
  d.falha = im.falha;
  if (!d.falha.empty()) return;
  const auto t0 = Relogio::now();
  if (det.deArquivo)
    d.falha = capturaFalha([&] {
      formats::Caracteristicas c = det.deArquivo(caminho, nomeNoDataset(p, caminho));
      d.keypoints = std::move(c.keypoints);
      d.linhas = c.descritores;
    });
  else if (descreveJunto(p, det))
    d.falha = capturaFalha([&] { det.detectaEDescreve(im.pixels, d.keypoints, d.linhas); });
  else
    d.falha = capturaFalha([&] { d.keypoints = det.detecta(im.pixels); });
  d.segundosDetecao = segundosDesde(t0);
  d.detectados = static_cast<int>(d.keypoints.size());
}

// Rows of pair 1-(k + 1) of a unit.
void medePar(const Plano& p, const datasets::Sequencia& s, const Sequencia& q, const Detector& det,
             const Descritor& des, const Descricao& a, const Descricao& b, const std::string& falhaEntradas,
             const Repeticao& rep, int k, Saidas& parte) {
  std::string falha = falhaEntradas;
  if (falha.empty()) falha = a.falha;
  if (falha.empty()) falha = b.falha;
  if (!falha.empty()) {
    for (const Casador& cas : p.casadores) linhaFalha(parte, s, k + 1, det, des, cas, falha);
    return;
  }
  const bool comCurva = s.nome == p.curvaSequencia && k + 1 == p.curvaVista;
  // The repeatability of a detected pair is computed once per detector: its
  // time goes to the rows of the detector's first descriptor only. KeyRand's
  // pairs are drawn, and measured, by every unit.
  Repeticao contada = rep;
  if (!det.aleatorio)
    for (const Descritor& e : p.descritores)
      if (algoritmos::parLegal(det.nome, e.nome)) {
        if (&e != &des) contada.segundos = 0;
        break;
      }
  mede(parte, p, s, k + 1, det, des, a, b, q.imagens[0].pixels, q.imagens[k].pixels, q.geometrias[k], contada,
       comCurva);
}

// The whole run as one graph of tasks, sequence after sequence in table
// order. A sequence's inputs are read only once the sequence two before it
// is released: at most two are in memory, the second filling the gaps the
// first leaves. The rand pairs are drawn from the one shared generator in
// unit order, whatever the thread count.
class Grafo {
 public:
  Grafo(const Plano& p, const std::vector<Unidade>& todas, const std::vector<bool>& prontas, Faixa minhas,
        std::vector<std::string>& textos, std::vector<bool>& falhou, Resumo& r, Progresso& progresso)
      : p_(p), todas_(todas), textos_(textos), falhou_(falhou), r_(r), progresso_(progresso) {
    std::vector<Tarefas::Id> liberadas;  // the release task of each sequence so far
    int i = minhas.inicio;
    while (i < minhas.fim) {
      const int s = todas[i].sequencia;
      std::vector<int> pendentes;
      for (; i < minhas.fim && todas[i].sequencia == s; ++i)
        if (!prontas[i]) pendentes.push_back(i);
      std::vector<Tarefas::Id> antes;
      if (liberadas.size() >= 2) antes.push_back(liberadas[liberadas.size() - 2]);
      std::vector<Tarefas::Id> escritas = sequencia(s, pendentes, antes);
      if (!liberadas.empty()) escritas.push_back(liberadas.back());
      const std::string nome = p.sequencias[s].nome;
      liberadas.push_back(t_.adiciona(
          [this, s, nome] {
            sequencias_.at(s).reset();
            std::lock_guard<std::mutex> trava(m_);
            progresso_.sequencia(nome);
          },
          escritas));
    }
  }

  void executa() { t_.executa(); }

 private:
  // The tasks of sequence s's pending units; returns their write tasks.
  std::vector<Tarefas::Id> sequencia(int s, const std::vector<int>& pendentes,
                                     const std::vector<Tarefas::Id>& antes) {
    std::vector<Tarefas::Id> escritas;
    auto& q = sequencias_[s];
    if (pendentes.empty()) return escritas;
    const datasets::Sequencia& ds = p_.sequencias[s];
    const int n = ds.vistas();
    q = std::make_unique<Sequencia>();
    q->imagens.resize(n);
    q->geometrias.resize(n);
    q->deteccoes.resize(p_.detectores.size());
    q->repeticoes.resize(p_.detectores.size());
    Sequencia* sq = q.get();

    std::vector<Tarefas::Id> lidas(n);
    for (int k = 0; k < n; ++k) lidas[k] = t_.adiciona([&ds, k, sq] { leEntradas(ds, k, *sq); }, antes);

    // Per detector, added just before its first unit so that units finish
    // in table order: every image detected, every pair's repeatability.
    std::vector<std::vector<Tarefas::Id>> detectadas(p_.detectores.size()), repetidas(p_.detectores.size());
    const auto detecta = [&](int idet) {
      const Detector& det = p_.detectores[idet];
      if (det.aleatorio || det.dePar || !detectadas[idet].empty()) return;
      sq->deteccoes[idet].resize(n);
      sq->repeticoes[idet].resize(n);
      for (int k = 0; k < n; ++k)
        detectadas[idet].push_back(t_.adiciona(
            [this, &ds, &det, k, sq, idet] {
              detectaImagem(p_, det, sq->imagens[k], ds.imagens[k], sq->deteccoes[idet][k]);
            },
            {lidas[k]}));
      repetidas[idet].resize(n, -1);
      for (int k = 1; k < n; ++k)
        repetidas[idet][k] = t_.adiciona(
            [this, k, sq, idet] {
              const std::vector<Descricao>& d = sq->deteccoes[idet];
              if (d[0].falha.empty() && d[k].falha.empty() && sq->geometrias[k].falha.empty())
                sq->repeticoes[idet][k] = repeticao(p_, d[0], d[k], sq->imagens[0].pixels, sq->imagens[k].pixels,
                                                    sq->geometrias[k]);
            },
            {detectadas[idet][0], detectadas[idet][k]});
    };

    for (int u : pendentes) {
      const int idet = todas_[u].detector, ides = todas_[u].descritor;
      detecta(idet);
      const Detector& det = p_.detectores[idet];
      const Descritor& des = p_.descritores[ides];
      auto& estado = unidades_[u];
      estado = std::make_unique<EmCurso>();
      EmCurso* e = estado.get();
      e->a.resize(n), e->b.resize(n), e->descritas.resize(n), e->falhas.resize(n), e->repeticoesRand.resize(n);
      e->partes.resize(n);
      std::vector<Tarefas::Id> pares;
      if (det.aleatorio) {
        // Drawn in order: after every input of the sequence and the previous
        // draw of the whole run.
        std::vector<Tarefas::Id> depois = lidas;
        if (ultimoSorteio_ >= 0) depois.push_back(ultimoSorteio_);
        ultimoSorteio_ = t_.adiciona(
            [&det, e, sq, n] {
              for (int k = 1; k < n; ++k) {
                e->falhas[k] = sq->falhaDoPar(k);
                if (!e->falhas[k].empty()) continue;
                e->falhas[k] = capturaFalha([&] {
                  keypoints::geraPares(sq->imagens[0].pixels.size(), sq->geometrias[k].H, det.nRand, det.rand,
                                       e->a[k].keypoints, e->b[k].keypoints);
                });
                e->a[k].detectados = e->b[k].detectados = static_cast<int>(e->a[k].keypoints.size());
              }
            },
            depois);
        for (int k = 1; k < n; ++k)
          pares.push_back(t_.adiciona(
              [this, &ds, &det, &des, e, sq, k] {
                if (e->falhas[k].empty()) {
                  e->repeticoesRand[k] =
                      repeticao(p_, e->a[k], e->b[k], sq->imagens[0].pixels, sq->imagens[k].pixels, sq->geometrias[k]);
                  keypoints::converteAngulos(e->a[k].keypoints, det.escreve, des.le);
                  keypoints::converteAngulos(e->b[k].keypoints, det.escreve, des.le);
                  descreve(des, sq->imagens[0], e->a[k], &sq->imagens[k], &e->b[k]);
                }
                medePar(p_, ds, *sq, det, des, e->a[k], e->b[k], e->falhas[k], e->repeticoesRand[k], k, e->partes[k]);
              },
              {ultimoSorteio_}));
      } else if (det.dePar) {
        // A pair source: each pair's keypoints and matches come from its file.
        for (int k = 1; k < n; ++k)
          pares.push_back(t_.adiciona(
              [this, &ds, &det, &des, e, sq, k] {
                e->falhas[k] = sq->falhaDoPar(k);
                if (e->falhas[k].empty()) {
                  const auto t0 = Relogio::now();
                  e->falhas[k] = capturaFalha([&] {
                    formats::CasamentosDados c = det.dePar(ds.imagens[0], ds.imagens[k]);
                    e->a[k].keypoints = std::move(c.k1);
                    e->b[k].keypoints = std::move(c.k2);
                    e->a[k].dados = std::move(c.casamentos);
                  });
                  e->a[k].segundosDetecao = segundosDesde(t0);
                  e->a[k].detectados = static_cast<int>(e->a[k].keypoints.size());
                  e->b[k].detectados = static_cast<int>(e->b[k].keypoints.size());
                }
                if (e->falhas[k].empty())
                  e->repeticoesRand[k] =
                      repeticao(p_, e->a[k], e->b[k], sq->imagens[0].pixels, sq->imagens[k].pixels, sq->geometrias[k]);
                medePar(p_, ds, *sq, det, des, e->a[k], e->b[k], e->falhas[k], e->repeticoesRand[k], k, e->partes[k]);
              },
              lidas));
      } else {
        const bool jaDescritas = descreveJunto(p_, det) && det.descreveComo == des.nome;
        std::vector<Tarefas::Id> descritas(n);
        for (int k = 0; k < n; ++k)
          descritas[k] = t_.adiciona(
              [this, &det, &des, e, sq, idet, k, jaDescritas] {
                Descricao& d = e->descritas[k];
                d = sq->deteccoes[idet][k];
                if (!d.falha.empty() || jaDescritas) return;
                keypoints::converteAngulos(d.keypoints, det.escreve, des.le);
                descreve(des, sq->imagens[k], d, nullptr, nullptr);
              },
              {detectadas[idet][k]});
        for (int k = 1; k < n; ++k)
          pares.push_back(t_.adiciona(
              [this, &ds, &det, &des, e, sq, idet, k] {
                medePar(p_, ds, *sq, det, des, e->descritas[0], e->descritas[k], sq->falhaDoPar(k),
                        sq->repeticoes[idet][k], k, e->partes[k]);
              },
              {descritas[0], descritas[k], repetidas[idet][k]}));
      }
      escritas.push_back(t_.adiciona([this, u] { escreve(u); }, pares));
    }
    return escritas;
  }

  // The unit's tables, the table last: its presence says the unit is done.
  void escreve(int u) {
    Saidas o;
    for (const Saidas& parte : unidades_.at(u)->partes) {
      o.linhas += parte.linhas;
      o.tempos += parte.tempos;
      o.curvas += parte.curvas;
      o.falhou = o.falhou || parte.falhou;
    }
    unidades_.at(u).reset();
    const std::string base = p_.saida + "/" + arquivoUnidade(p_, todas_[u]);
    const std::string semExtensao = base.substr(0, base.size() - 4);
    gravaTabela(semExtensao + ".tempos.csv", kCabecalhoTempos, o.tempos);
    gravaTabela(semExtensao + ".curvas.csv", kCabecalhoCurvas, o.curvas);
    gravaTabela(base, kCabecalho, o.linhas);
    std::lock_guard<std::mutex> trava(m_);
    textos_[u] = std::string(kCabecalho) + "\n" + o.linhas;
    falhou_[u] = o.falhou;  // vector<bool>: neighbours share a word
    ++r_.refeitas;
    progresso_.unidade();
  }

  const Plano& p_;
  const std::vector<Unidade>& todas_;
  std::vector<std::string>& textos_;
  std::vector<bool>& falhou_;
  Resumo& r_;
  Progresso& progresso_;
  std::mutex m_;  // the summary and the progress line
  Tarefas t_;
  Tarefas::Id ultimoSorteio_ = -1;
  std::map<int, std::unique_ptr<Sequencia>> sequencias_;
  std::map<int, std::unique_ptr<EmCurso>> unidades_;
};

// A unit finished earlier: its table is there, well formed, with rows that
// are all ok (a unit with failures is tried again).
bool terminada(const std::string& arquivo, std::string& texto) {
  const std::string cabecalho = std::string(kCabecalho) + "\n";
  formats::TabelaCSV t;
  if (!leTexto(arquivo, texto) || texto.compare(0, cabecalho.size(), cabecalho) != 0 ||
      !formats::analisaCSV(texto, t) || t.linhas.empty())
    return false;
  const int status = t.coluna("status");
  for (const auto& l : t.linhas)
    if (l[status] != "ok") return false;
  return true;
}

}  // namespace

std::vector<Unidade> unidades(const Plano& p) {
  std::vector<Unidade> u;
  for (int s = 0; s < static_cast<int>(p.sequencias.size()); ++s)
    for (int d = 0; d < static_cast<int>(p.detectores.size()); ++d)
      for (int e = 0; e < static_cast<int>(p.descritores.size()); ++e)
        if (algoritmos::parLegal(p.detectores[d].nome, p.descritores[e].nome)) u.push_back({s, d, e});
  return u;
}

std::string arquivoUnidade(const Plano& p, const Unidade& u) {
  const datasets::Sequencia& s = p.sequencias[u.sequencia];
  std::string opcoes = "det " + p.opcoesDetectores[u.detector] + "|des " + p.opcoesDescritores[u.descritor] + "|mat " +
                       p.opcoesCasadores + "|med " + numero("%.17g", p.medidas.erro) + " " +
                       (p.medidas.comum == measures::ParteComum::ambas ? "ambas" : "opencv") + " " +
                       numero("%.17g", p.medidas.px) + " " + numero("%.17g", p.medidas.ransac) + " " +
                       numero("%.17g", p.medidas.dist) + (p.medidas.soMMA ? " mma" : "");
  if (s.nome == p.curvaSequencia) opcoes += "|curva " + std::to_string(p.curvaVista);
  // Files of other programs: their sizes and times, so that a changed one
  // makes its units anew.
  const Detector& det = p.detectores[u.detector];
  if (det.arquivos)
    for (const std::string& imagem : s.imagens)
      for (const std::string& a : det.arquivos(s.imagens[0], imagem)) opcoes += "|" + a + " " + tvm::marcaDoArquivo(a);
  for (const Casador& cas : p.casadores)
    if (algoritmos::casadorServe(cas, det))
      for (const std::string& a : cas.arquivos) opcoes += "|" + a + " " + tvm::marcaDoArquivo(a);
  if (algoritmos::ehFonte(det.nome)) opcoes += "|fontes " + numero("%.9g", p.fontes.tamanho) + " " +
                                               std::to_string(p.fontes.topk);
  // A source's name may hold a path's characters.
  std::string nomes = det.nome + "@" + p.descritores[u.descritor].nome;
  for (char& c : nomes)
    if (c == '/' || c == ':' || c == ' ' || c == '\'') c = '_';
  return "unidades/" + s.nome + "@" + nomes + "@" + tvm::assinatura(opcoes).substr(0, 12) + ".csv";
}

std::string assinaturaPlano(const Plano& p) {
  std::string nomes;
  for (const Unidade& u : unidades(p)) nomes += arquivoUnidade(p, u) + "\n";
  return tvm::assinatura(nomes);
}

Resumo varre(const Plano& p) {
  tvm::criaPastas(p.saida + "/unidades");
  if (p.threads > 0) cv::setNumThreads(p.threads);
  const std::vector<Unidade> todas = unidades(p);
  const Faixa minhas = p.fatiada ? faixa(static_cast<int>(todas.size()), p.fatia)
                                 : Faixa{0, static_cast<int>(todas.size())};
  Resumo r;
  r.unidades = minhas.fim - minhas.inicio;

  // Which units are done already.
  std::vector<std::string> textos(todas.size());
  std::vector<bool> prontas(todas.size()), falhou(todas.size());
  int aFazer = 0, sequencias = 0;
  for (int i = minhas.inicio; i < minhas.fim; ++i) {
    prontas[i] = terminada(p.saida + "/" + arquivoUnidade(p, todas[i]), textos[i]);
    aFazer += !prontas[i];
    sequencias += i == minhas.inicio || todas[i].sequencia != todas[i - 1].sequencia;
  }

  Progresso progresso(aFazer, sequencias);
  Grafo(p, todas, prontas, minhas, textos, falhou, r, progresso).executa();
  progresso.fim();

  Tabelas t;
  for (int j = minhas.inicio; j < minhas.fim; ++j) {
    const std::string base = p.saida + "/" + arquivoUnidade(p, todas[j]);
    const std::string semExtensao = base.substr(0, base.size() - 4);
    t.linhas += corpo(textos[j]);
    r.falhas += falhou[j];
    std::string texto;
    if (!leTexto(semExtensao + ".tempos.csv", texto)) tvm::erro("Erro abertura arquivo ", semExtensao + ".tempos.csv");
    t.tempos += corpo(texto);
    if (!leTexto(semExtensao + ".curvas.csv", texto)) tvm::erro("Erro abertura arquivo ", semExtensao + ".curvas.csv");
    t.curvas += corpo(texto);
  }
  if (p.fatiada) {
    Manifesto m;
    m.plano = assinaturaPlano(p);
    m.unidades = minhas;
    m.totalUnidades = static_cast<int>(todas.size());
    m.falhas = r.falhas;
    m.graficos = p.graficos;
    gravaFatia(p.saida, p.fatia, m, t);
    return r;
  }
  gravaTabela(p.saida + "/tempos.csv", kCabecalhoTempos, t.tempos);
  gravaTabela(p.saida + "/curvas.csv", kCabecalhoCurvas, t.curvas);
  gravaTabela(p.saida + "/resultados.csv", kCabecalho, t.linhas);
  return r;
}

}  // namespace sweep
