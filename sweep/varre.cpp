#include "sweep/varre.hpp"

#include "display/desenhos.hpp"
#include "evaluation/medidas_entrada.hpp"
#include "formats/csv.hpp"
#include "formats/profundidade.hpp"
#include "measures/casamento.hpp"
#include "support/arquivos.hpp"
#include "support/assinatura.hpp"
#include "support/erro.hpp"
#include "support/decodifica.hpp"
#include "support/imagem.hpp"
#include "support/numeros.hpp"
#include "support/processo.hpp"
#include "sweep/fatias.hpp"
#include "sweep/linha.hpp"
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
    "homography@1,homography@3,homography@5,pose_error,rotation_error,translation_error,inliers,epipolar@1e-4,"
    "epipolar@5e-4,epipolar@1e-3";
const char* const kCabecalhoTempos = "sequence,pair,detector,descriptor,matcher,detect_s,describe_s,match_s,measure_s";
const char* const kCabecalhoCurvas = "sequence,pair,detector,descriptor,matcher,rank,one_minus_precision,recall";
const char* const kCabecalhoPoses =
    "sequence,pair,detector,descriptor,matcher,threshold,pose_error,rotation_error,translation_error,inliers";

namespace {

using Relogio = std::chrono::steady_clock;

double segundosDesde(Relogio::time_point t0) { return std::chrono::duration<double>(Relogio::now() - t0).count(); }

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

// An image's name as another program's files know it: the name a posed
// list gives it, else its path under the dataset's folder
// ("i_ajuntament/1.ppm"; "img1.png" for a lone sequence).
std::string nomeNoDataset(const Plano& p, const datasets::Sequencia& s, int imagem) {
  if (!s.nomes.empty()) return s.nomes[imagem];
  const std::string& caminho = s.imagens[imagem];
  const std::string pasta = p.dataset.back() == '/' ? p.dataset : p.dataset + "/";
  return caminho.rfind(pasta, 0) == 0 ? caminho.substr(pasta.size()) : caminho;
}

// ---------------------------------------------------------------- a unit

struct Imagem {
  cv::Mat_<uchar> pixels;  // turned as its list says
  cv::Size guardada;       // the size as stored, before the turn
  cv::Mat_<float> profundidade;  // turned with the pixels; empty when none
  std::string falha;
};

// A pair's ground truth, or why it has none.
struct VerdadeDoPar {
  measures::Verdade v;
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
  std::string linhas, tempos, curvas, poses;
  bool falhou = false;
};

// sequence,pair,detector,descriptor,matcher: the key of a row.
std::string chave(const datasets::Sequencia& s, int j, const Detector& det, const Descritor& des, const Casador& cas) {
  return formats::campoCSV(s.nome) + "," + formats::campoCSV(s.pares[j].rotulo) + "," + det.nome + "," + des.nome +
         "," + cas.nome;
}

void linhaFalha(Saidas& o, const datasets::Sequencia& s, int j, const Detector& det, const Descritor& des,
                const Casador& cas, const std::string& falha) {
  if (!algoritmos::casadorServe(cas, det)) return;
  const std::string c = chave(s, j, det, des, cas);
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
                    const cv::Mat_<uchar>& ib, const measures::Verdade& g) {
  Repeticao r;
  if (p.medidas.soMMA || g.tipo != measures::TipoVerdade::homografia) {
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
// SAIDA/desenhos/<sequence>@<pair>@<detector>@<descriptor>@<matcher>.jpg,
// the ten worst wrong ones by `erros` circled.
void desenha(const Plano& p, const datasets::Sequencia& s, int j, const Detector& det, const Descritor& des,
             const Casador& cas, const cv::Mat_<uchar>& ia, const cv::Mat_<uchar>& ib,
             const std::vector<cv::KeyPoint>& m1, const std::vector<cv::KeyPoint>& m2, const std::vector<bool>& certos,
             const std::vector<double>& erros) {
  std::string nome = s.nome + "@" + s.pares[j].rotulo + "@" + det.nome + "@" + des.nome + "@" + cas.nome;
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

void mede(Saidas& o, const Plano& p, const datasets::Sequencia& s, int j, const Detector& det, const Descritor& des,
          const Descricao& a, const Descricao& b, const cv::Mat_<uchar>& ia, const cv::Mat_<uchar>& ib,
          const measures::Verdade& g, const Repeticao& rep, bool comCurva) {
  // The exhaustive matchers' searches, once for all of them; their time
  // goes to the first row that reads them.
  int kIda = 0;
  bool volta = false;
  for (const Casador& cas : p.casadores)
    if (cas.dasPasses && algoritmos::casadorServe(cas, det))
      kIda = std::max(kIda, cas.kIda), volta = volta || cas.volta;
  Passes passes;
  std::string falhaPasses;
  double segundosPasses = 0;
  if (kIda > 0) {
    const auto t0 = Relogio::now();
    falhaPasses = capturaFalha([&] { passes = calculaPasses(a.linhas, b.linhas, kIda, volta); });
    segundosPasses = segundosDesde(t0);
  }
  const datasets::ParDaSequencia& par = s.pares[j];
  bool primeiraLinha = true;  // the one that counts the repeatability's time
  for (const Casador& cas : p.casadores) {
    if (!algoritmos::casadorServe(cas, det)) continue;
    const std::string c = chave(s, j, det, des, cas);
    auto t0 = Relogio::now();
    std::vector<cv::DMatch> matches;
    std::string falha;
    double segundosCasamento = 0;
    if (cas.dados) {
      matches = a.dados;
    } else if (cas.doArquivo) {
      falha = capturaFalha([&] {
        matches = cas.doArquivo(nomeNoDataset(p, s, par.a), nomeNoDataset(p, s, par.b), a.keypoints.size(),
                                b.keypoints.size());
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
      linhaFalha(o, s, j, det, des, cas, falha);
      continue;
    }
    t0 = Relogio::now();
    std::vector<cv::KeyPoint> m1, m2;
    for (const cv::DMatch& m : matches) {
      m1.push_back(a.keypoints[m.queryIdx]);
      m2.push_back(b.keypoints[m.trainIdx]);
    }
    MedidasDaLinha m;
    falha = capturaFalha(
        [&] { m = medeLinha(p.medidas, a.keypoints, b.keypoints, ia.size(), ib.size(), m1, m2, g); });
    if (!falha.empty()) {
      linhaFalha(o, s, j, det, des, cas, falha);
      continue;
    }
    if (comCurva && p.desenhos) desenha(p, s, j, det, des, cas, ia, ib, m1, m2, m.certos, m.erros);
    const size_t virgula = c.find(',');
    o.linhas += c.substr(0, virgula) + "," + datasets::nomeTipo(s.tipo) + c.substr(virgula) + ",ok," +
                std::to_string(a.detectados) + "," + std::to_string(b.detectados) + "," +
                std::to_string(a.keypoints.size()) + "," + std::to_string(b.keypoints.size()) + "," +
                std::to_string(a.descartados + b.descartados) + "," + rep.texto + "," +
                std::to_string(matches.size()) + "," + m.colunas + "\n";
    for (const std::string& l : m.poses) o.poses += c + "," + l + "\n";
    if (comCurva && m.comCurva) {
      const std::vector<measures::PontoRP> curva = measures::curvaRecallPrecisao(m.certos);
      for (size_t i = 0; i < curva.size(); ++i)
        o.curvas += c + "," + std::to_string(i + 1) + "," + tvm::formataNumero("%.9g", curva[i].umMenosPrecisao) + "," +
                    (curva[i].recall < 0 ? std::string("NA") : tvm::formataNumero("%.9g", curva[i].recall)) + "\n";
    }
    const double segundosMedida = segundosDesde(t0) + (primeiraLinha ? rep.segundos : 0.0);
    primeiraLinha = false;
    o.tempos += c + "," + tvm::formataNumero("%.4f", a.segundosDetecao + b.segundosDetecao) + "," +
                tvm::formataNumero("%.4f", a.segundosDescricao + b.segundosDescricao) + "," +
                tvm::formataNumero("%.4f", segundosCasamento) + "," + tvm::formataNumero("%.4f", segundosMedida) + "\n";
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
  std::vector<VerdadeDoPar> verdades;             // [pair]
  std::vector<std::vector<Descricao>> deteccoes;  // [detector][image]
  std::vector<std::vector<Repeticao>> repeticoes;  // [detector][pair]

  // The failure, if any, of an input of pair j: its first image, its
  // second, then its ground truth.
  std::string falhaDoPar(const datasets::Sequencia& s, int j) const {
    const datasets::ParDaSequencia& par = s.pares[j];
    if (!imagens[par.a].falha.empty()) return imagens[par.a].falha;
    if (!imagens[par.b].falha.empty()) return imagens[par.b].falha;
    return verdades[j].falha;
  }
};

// One unit's images described and its rows per pair: a[j], b[j] the
// keypoints and rows of pair j's images (rand pairs and pair sources), or
// descritas[i] those of image i (detected keypoints).
struct EmCurso {
  std::vector<Descricao> a, b, descritas;
  std::vector<std::string> falhas;
  std::vector<Repeticao> repeticoesRand;
  std::vector<Saidas> partes;
};

// Image k, turned as the list says, with its depth map.
void leImagem(const datasets::Sequencia& s, int k, Sequencia& q) {
  Imagem& im = q.imagens[k];
  if (s.imagens[k].empty()) {
    im.falha = "Erro: imagem " + std::to_string(k + 1) + " ausente em " + s.pasta;
    return;
  }
  im.falha = capturaFalha([&] {
    tvm::le(im.pixels, s.imagens[k]);
    im.guardada = im.pixels.size();
    if (!s.profundidades.empty() && !s.profundidades[k].empty()) {
      im.profundidade = formats::leProfundidade(s.profundidades[k]);
      if (im.profundidade.size() != im.guardada)
        tvm::erro("Erro: profundidade ", s.profundidades[k], " nao tem o tamanho da imagem " + s.imagens[k]);
    }
    for (int g = s.giros.empty() ? 0 : s.giros[k]; g > 0; --g) {
      cv::Mat_<uchar> girada;
      cv::rotate(im.pixels, girada, cv::ROTATE_90_COUNTERCLOCKWISE);
      im.pixels = girada;
      if (im.profundidade.empty()) continue;
      cv::Mat_<float> p;
      cv::rotate(im.profundidade, p, cv::ROTATE_90_COUNTERCLOCKWISE);
      im.profundidade = p;
    }
  });
}

// Pair j's ground truth: its transform read and inverted, or its cameras
// turned with their images (both read by now) and given their depth.
void preparaVerdade(const datasets::Sequencia& s, int j, Sequencia& q) {
  const datasets::ParDaSequencia& par = s.pares[j];
  VerdadeDoPar& v = q.verdades[j];
  if (!par.posado) {
    if (par.transformacao.empty())
      v.falha = "Erro: transformacao " + par.rotulo + " ausente em " + s.pasta;
    else
      v.falha = capturaFalha([&] { v.v = evaluation::leTransformacao(par.transformacao); });
    return;
  }
  if (!q.imagens[par.a].falha.empty() || !q.imagens[par.b].falha.empty()) return;
  v.v.tipo = measures::TipoVerdade::cameras;
  v.v.cameras = datasets::camerasGiradas(*par.posado, q.imagens[par.a].guardada, q.imagens[par.b].guardada);
  v.v.cameras.profundidade0 = q.imagens[par.a].profundidade;
  v.v.cameras.profundidade1 = q.imagens[par.b].profundidade;
  // The translation's direction is half the pose error.
  if (cv::norm(v.v.cameras.t) == 0)
    v.falha = "Erro: translacao nula, sem geometria epipolar, no par " + par.rotulo + " de " + s.pasta;
}

// Whether the detector's one-pass description serves a descriptor of the plan.
bool descreveJunto(const Plano& p, const Detector& det) {
  if (det.deArquivo) return true;
  if (!det.detectaEDescreve) return false;
  for (const Descritor& d : p.descritores)
    if (d.nome == det.descreveComo) return true;
  return false;
}

void detectaImagem(const Plano& p, const Detector& det, const Imagem& im, const datasets::Sequencia& s, int k,
                   Descricao& d) {
  d.falha = im.falha;
  if (!d.falha.empty()) return;
  const auto t0 = Relogio::now();
  if (det.deArquivo)
    d.falha = capturaFalha([&] {
      formats::Caracteristicas c = det.deArquivo(s.imagens[k], nomeNoDataset(p, s, k));
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

// Rows of pair j of a unit.
void medePar(const Plano& p, const datasets::Sequencia& s, const Sequencia& q, const Detector& det,
             const Descritor& des, const Descricao& a, const Descricao& b, const std::string& falhaEntradas,
             const Repeticao& rep, int j, Saidas& parte) {
  std::string falha = falhaEntradas;
  if (falha.empty()) falha = a.falha;
  if (falha.empty()) falha = b.falha;
  if (!falha.empty()) {
    for (const Casador& cas : p.casadores) linhaFalha(parte, s, j, det, des, cas, falha);
    return;
  }
  const bool comCurva = s.nome == p.curvaSequencia && s.primeiroPar + j == p.curvaPar;
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
  const datasets::ParDaSequencia& par = s.pares[j];
  mede(parte, p, s, j, det, des, a, b, q.imagens[par.a].pixels, q.imagens[par.b].pixels, q.verdades[j].v, contada,
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
      const std::string nome = p.sequencias[s].nomeDaParte();
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
    const int n = ds.vistas(), np = static_cast<int>(ds.pares.size());
    q = std::make_unique<Sequencia>();
    q->imagens.resize(n);
    q->verdades.resize(np);
    q->deteccoes.resize(p_.detectores.size());
    q->repeticoes.resize(p_.detectores.size());
    Sequencia* sq = q.get();

    std::vector<Tarefas::Id> lidas(n), verdades(np);
    for (int k = 0; k < n; ++k) lidas[k] = t_.adiciona([&ds, k, sq] { leImagem(ds, k, *sq); }, antes);
    for (int j = 0; j < np; ++j)
      verdades[j] =
          t_.adiciona([&ds, j, sq] { preparaVerdade(ds, j, *sq); }, {lidas[ds.pares[j].a], lidas[ds.pares[j].b]});

    // Per detector, added just before its first unit so that units finish
    // in table order: every image detected, every pair's repeatability.
    std::vector<std::vector<Tarefas::Id>> detectadas(p_.detectores.size()), repetidas(p_.detectores.size());
    const auto detecta = [&](int idet) {
      const Detector& det = p_.detectores[idet];
      if (det.aleatorio || det.dePar || !detectadas[idet].empty()) return;
      sq->deteccoes[idet].resize(n);
      sq->repeticoes[idet].resize(np);
      for (int k = 0; k < n; ++k)
        detectadas[idet].push_back(t_.adiciona(
            [this, &ds, &det, k, sq, idet] { detectaImagem(p_, det, sq->imagens[k], ds, k, sq->deteccoes[idet][k]); },
            {lidas[k]}));
      for (int j = 0; j < np; ++j) {
        const int a = ds.pares[j].a, b = ds.pares[j].b;
        repetidas[idet].push_back(t_.adiciona(
            [this, &ds, j, a, b, sq, idet] {
              const std::vector<Descricao>& d = sq->deteccoes[idet];
              if (d[a].falha.empty() && d[b].falha.empty() && sq->falhaDoPar(ds, j).empty())
                sq->repeticoes[idet][j] =
                    repeticao(p_, d[a], d[b], sq->imagens[a].pixels, sq->imagens[b].pixels, sq->verdades[j].v);
            },
            {detectadas[idet][a], detectadas[idet][b], verdades[j]}));
      }
    };

    for (int u : pendentes) {
      const int idet = todas_[u].detector, ides = todas_[u].descritor;
      detecta(idet);
      const Detector& det = p_.detectores[idet];
      const Descritor& des = p_.descritores[ides];
      auto& estado = unidades_[u];
      estado = std::make_unique<EmCurso>();
      EmCurso* e = estado.get();
      e->a.resize(np), e->b.resize(np), e->descritas.resize(n), e->falhas.resize(np), e->repeticoesRand.resize(np);
      e->partes.resize(np);
      std::vector<Tarefas::Id> pares;
      if (det.aleatorio) {
        // Drawn in order: after every input of the sequence and the previous
        // draw of the whole run.
        std::vector<Tarefas::Id> depois = verdades;
        if (ultimoSorteio_ >= 0) depois.push_back(ultimoSorteio_);
        ultimoSorteio_ = t_.adiciona(
            [&ds, &det, e, sq, np] {
              for (int j = 0; j < np; ++j) {
                e->falhas[j] = sq->falhaDoPar(ds, j);
                if (!e->falhas[j].empty()) continue;
                e->falhas[j] = capturaFalha([&] {
                  keypoints::geraPares(sq->imagens[ds.pares[j].a].pixels.size(), sq->verdades[j].v.H, det.nRand,
                                       det.rand, e->a[j].keypoints, e->b[j].keypoints);
                });
                e->a[j].detectados = e->b[j].detectados = static_cast<int>(e->a[j].keypoints.size());
              }
            },
            depois);
        for (int j = 0; j < np; ++j)
          pares.push_back(t_.adiciona(
              [this, &ds, &det, &des, e, sq, j] {
                const Imagem &ia = sq->imagens[ds.pares[j].a], &ib = sq->imagens[ds.pares[j].b];
                if (e->falhas[j].empty()) {
                  e->repeticoesRand[j] = repeticao(p_, e->a[j], e->b[j], ia.pixels, ib.pixels, sq->verdades[j].v);
                  keypoints::converteAngulos(e->a[j].keypoints, det.escreve, des.le);
                  keypoints::converteAngulos(e->b[j].keypoints, det.escreve, des.le);
                  descreve(des, ia, e->a[j], &ib, &e->b[j]);
                }
                medePar(p_, ds, *sq, det, des, e->a[j], e->b[j], e->falhas[j], e->repeticoesRand[j], j, e->partes[j]);
              },
              {ultimoSorteio_}));
      } else if (det.dePar) {
        // A pair source: each pair's keypoints and matches come from its file.
        for (int j = 0; j < np; ++j)
          pares.push_back(t_.adiciona(
              [this, &ds, &det, &des, e, sq, j] {
                const datasets::ParDaSequencia& par = ds.pares[j];
                e->falhas[j] = sq->falhaDoPar(ds, j);
                if (e->falhas[j].empty()) {
                  const auto t0 = Relogio::now();
                  e->falhas[j] = capturaFalha([&] {
                    formats::CasamentosDados c = det.dePar(ds.imagens[par.a], ds.imagens[par.b]);
                    e->a[j].keypoints = std::move(c.k1);
                    e->b[j].keypoints = std::move(c.k2);
                    e->a[j].dados = std::move(c.casamentos);
                  });
                  e->a[j].segundosDetecao = segundosDesde(t0);
                  e->a[j].detectados = static_cast<int>(e->a[j].keypoints.size());
                  e->b[j].detectados = static_cast<int>(e->b[j].keypoints.size());
                }
                if (e->falhas[j].empty())
                  e->repeticoesRand[j] = repeticao(p_, e->a[j], e->b[j], sq->imagens[par.a].pixels,
                                                   sq->imagens[par.b].pixels, sq->verdades[j].v);
                medePar(p_, ds, *sq, det, des, e->a[j], e->b[j], e->falhas[j], e->repeticoesRand[j], j, e->partes[j]);
              },
              {verdades[j]}));
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
        for (int j = 0; j < np; ++j) {
          const int a = ds.pares[j].a, b = ds.pares[j].b;
          pares.push_back(t_.adiciona(
              [this, &ds, &det, &des, e, sq, idet, j, a, b] {
                medePar(p_, ds, *sq, det, des, e->descritas[a], e->descritas[b], sq->falhaDoPar(ds, j),
                        sq->repeticoes[idet][j], j, e->partes[j]);
              },
              {descritas[a], descritas[b], repetidas[idet][j]}));
        }
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
      o.poses += parte.poses;
      o.falhou = o.falhou || parte.falhou;
    }
    unidades_.at(u).reset();
    const std::string base = p_.saida + "/" + arquivoUnidade(p_, todas_[u]);
    const std::string semExtensao = base.substr(0, base.size() - 4);
    gravaTabela(semExtensao + ".tempos.csv", kCabecalhoTempos, o.tempos);
    gravaTabela(semExtensao + ".curvas.csv", kCabecalhoCurvas, o.curvas);
    gravaTabela(semExtensao + ".poses.csv", kCabecalhoPoses, o.poses);
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
                       p.opcoesCasadores + "|med " + tvm::formataNumero("%.17g", p.medidas.erro) + " " +
                       (p.medidas.comum == measures::ParteComum::ambas ? "ambas" : "opencv") + " " +
                       tvm::formataNumero("%.17g", p.medidas.px) + " " + tvm::formataNumero("%.17g", p.medidas.ransac) +
                       " " + tvm::formataNumero("%.17g", p.medidas.dist) + (p.medidas.soMMA ? " mma" : "");
  // Planar sequences sign the view of 1-k, as they always have.
  if (s.nome == p.curvaSequencia)
    opcoes += "|curva " + std::to_string(s.tipo == datasets::Tipo::posada ? p.curvaPar + 1 : p.curvaPar + 2);
  if (s.tipo == datasets::Tipo::posada) {
    opcoes += std::string("|pose ") + (p.medidas.metodoPose == measures::MetodoPose::ransac ? "ransac" : "magsac");
    for (double l : p.medidas.limiaresPose) opcoes += " " + tvm::formataNumero("%.17g", l);
    opcoes += " " + tvm::formataNumero("%.17g", p.medidas.pxProfundidade);
    // The ground truth itself: changed cameras or depth make the unit anew.
    for (const datasets::ParDaSequencia& par : s.pares) {
      const measures::Cameras& c = par.posado->cameras;
      for (const cv::Matx33d* m : {&c.K0, &c.K1, &c.R})
        for (double v : m->val) opcoes += " " + tvm::formataNumero("%.17g", v);
      for (double v : c.t.val) opcoes += " " + tvm::formataNumero("%.17g", v);
      opcoes += " " + std::to_string(par.posado->giro0) + std::to_string(par.posado->giro1);
      for (const std::string* d : {&par.posado->profundidade0, &par.posado->profundidade1})
        if (!d->empty()) opcoes += "|" + *d + " " + tvm::marcaDoArquivo(*d);
    }
  }
  // Files of other programs: their sizes and times, so that a changed one
  // makes its units anew.
  const Detector& det = p.detectores[u.detector];
  if (det.arquivos) {
    // Each image's file, then each pair's (a pair source's).
    std::vector<std::string> lidos;
    for (const std::string& imagem : s.imagens) {
      const std::vector<std::string> v = det.arquivos(imagem, imagem);
      lidos.insert(lidos.end(), v.begin(), v.end());
    }
    for (const datasets::ParDaSequencia& par : s.pares) {
      const std::vector<std::string> v = det.arquivos(s.imagens[par.a], s.imagens[par.b]);
      lidos.insert(lidos.end(), v.begin(), v.end());
    }
    for (size_t i = 0; i < lidos.size(); ++i)
      if (std::find(lidos.begin(), lidos.begin() + i, lidos[i]) == lidos.begin() + i)
        opcoes += "|" + lidos[i] + " " + tvm::marcaDoArquivo(lidos[i]);
  }
  for (const Casador& cas : p.casadores)
    if (algoritmos::casadorServe(cas, det))
      for (const std::string& a : cas.arquivos) opcoes += "|" + a + " " + tvm::marcaDoArquivo(a);
  if (algoritmos::ehFonte(det.nome)) opcoes += "|fontes " + tvm::formataNumero("%.9g", p.fontes.tamanho) + " " +
                                               std::to_string(p.fontes.topk);
  // A source's name may hold a path's characters.
  std::string nomes = det.nome + "@" + p.descritores[u.descritor].nome;
  for (char& c : nomes)
    if (c == '/' || c == ':' || c == ' ' || c == '\'') c = '_';
  return "unidades/" + s.nomeDaParte() + "@" + nomes + "@" + tvm::assinatura(opcoes).substr(0, 12) + ".csv";
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
    if (!leTexto(semExtensao + ".poses.csv", texto)) tvm::erro("Erro abertura arquivo ", semExtensao + ".poses.csv");
    t.poses += corpo(texto);
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
  gravaTabela(p.saida + "/poses.csv", kCabecalhoPoses, t.poses);
  gravaTabela(p.saida + "/resultados.csv", kCabecalho, t.linhas);
  return r;
}

}  // namespace sweep
