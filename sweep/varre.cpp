#include "sweep/varre.hpp"

#include "evaluation/medidas_entrada.hpp"
#include "formats/csv.hpp"
#include "measures/casamento.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "sweep/fatias.hpp"
#include "sweep/progresso.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <new>
#include <optional>

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

// FNV-1a: a short, stable name for a set of options.
std::string assinatura(const std::string& texto) {
  unsigned long long h = 1469598103934665603ULL;
  for (unsigned char c : texto) h = (h ^ c) * 1099511628211ULL;
  char s[17];
  std::snprintf(s, sizeof s, "%016llx", h);
  return s;
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
  const auto t0 = Relogio::now();
  const measures::RepeticaoSobreposicao sob = measures::repeticaoSobreposicao(
      a.keypoints, b.keypoints, g.H, g.Hinv, ia.size(), ib.size(), p.medidas.erro / 100, p.medidas.comum);
  const measures::RepeticaoDistancia dist =
      measures::repeticaoDistancia(a.keypoints, b.keypoints, g.H, g.Hinv, ia.size(), ib.size(), p.medidas.px);
  Repeticao r;
  r.texto = evaluation::texto(sob.repeatability()) + "," + std::to_string(sob.correspondencias) + "," +
            std::to_string(sob.n1) + "," + std::to_string(sob.n2) + "," + evaluation::texto(dist.repeatability());
  r.segundos = segundosDesde(t0);
  return r;
}

void mede(Saidas& o, const Plano& p, const datasets::Sequencia& s, int k, const Detector& det, const Descritor& des,
          const Descricao& a, const Descricao& b, const cv::Mat_<uchar>& ia, const cv::Mat_<uchar>& ib,
          const Geometria& g, const Repeticao& rep, bool comCurva) {
  for (const Casador& cas : p.casadores) {
    const std::string c = chave(s, k, det, des, cas);
    auto t0 = Relogio::now();
    std::vector<cv::DMatch> matches;
    std::string falha = capturaFalha([&] { matches = cas.casa(a.linhas, b.linhas); });
    const double segundosCasamento = segundosDesde(t0);
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
    falha = capturaFalha(
        [&] { m = measures::medeCasamentos(a.keypoints, b.keypoints, m1, m2, g.H, g.Hinv, ia.size(), ib.size(), oc); });
    if (!falha.empty()) {
      linhaFalha(o, s, k, det, des, cas, falha);
      continue;
    }
    const size_t virgula = c.find(',');
    std::string linha = c.substr(0, virgula) + "," + datasets::nomeTipo(s.tipo) + c.substr(virgula) + ",ok," +
                        std::to_string(a.detectados) + "," + std::to_string(b.detectados) + "," +
                        std::to_string(a.keypoints.size()) + "," + std::to_string(b.keypoints.size()) + "," +
                        std::to_string(a.descartados + b.descartados) + "," + rep.texto + "," +
                        std::to_string(matches.size()) + "," + std::to_string(m.corretos) + "," +
                        evaluation::texto(m.matchingScore);
    for (const measures::Medida& v : m.mma) linha += "," + evaluation::texto(v);
    linha += "," + evaluation::texto(m.ap) + "," + evaluation::texto(m.erroHomografia);
    for (int t : {1, 3, 5}) linha += "," + std::to_string(measures::homografiaCorreta(m.erroHomografia, t));
    o.linhas += linha + "\n";
    if (comCurva) {
      const std::vector<measures::PontoRP> curva = measures::curvaRecallPrecisao(m.certos);
      for (size_t i = 0; i < curva.size(); ++i)
        o.curvas += c + "," + std::to_string(i + 1) + "," + numero("%.9g", curva[i].umMenosPrecisao) + "," +
                    (curva[i].recall < 0 ? std::string("NA") : numero("%.9g", curva[i].recall)) + "\n";
    }
    const double segundosMedida = segundosDesde(t0) + rep.segundos;
    o.tempos += c + "," + numero("%.4f", a.segundosDetecao + b.segundosDetecao) + "," +
                numero("%.4f", a.segundosDescricao + b.segundosDescricao) + "," + numero("%.4f", segundosCasamento) +
                "," + numero("%.4f", segundosMedida) + "\n";
  }
}

// Calls f(i) for i in [0, n) over OpenCV's thread pool. Each call writes
// only its own slot and catches its own failures, so results do not depend on
// the thread count; OpenCV runs the kernels inside each call serially.
template <typename F>
void paraCada(int n, const F& f) {
  if (n <= 0) return;
  cv::parallel_for_(
      cv::Range(0, n),
      [&](const cv::Range& r) {
        for (int i = r.start; i < r.end; ++i) f(i);
      },
      n);
}

// What one sequence holds in memory while its units run: its images,
// transforms and, per detector, keypoints and repeatability. Nothing of it
// outlives the sequence, so memory does not grow with the dataset.
class Sequencia {
 public:
  Sequencia(const Plano& p, const datasets::Sequencia& s) : p_(p), s_(s) {
    const int n = s.vistas();
    imagens_.resize(n);
    geometrias_.resize(n);
    paraCada(n, [&](int k) {
      if (s.imagens[k].empty())
        imagens_[k].falha = "Erro: imagem " + std::to_string(k + 1) + " ausente em " + s.pasta;
      else
        imagens_[k].falha = capturaFalha([&] { tvm::le(imagens_[k].pixels, s.imagens[k]); });
      if (k == 0) return;
      if (s.transformacoes[k].empty())
        geometrias_[k].falha = "Erro: transformacao 1-" + std::to_string(k + 1) + " ausente em " + s.pasta;
      else
        geometrias_[k].falha = capturaFalha(
            [&] { evaluation::leTransformacao(s.transformacoes[k], geometrias_[k].H, geometrias_[k].Hinv); });
    });
  }

  Saidas unidade(int idet, int ides) {
    const Detector& det = p_.detectores[idet];
    const Descritor& des = p_.descritores[ides];
    const int n = s_.vistas();
    // a[k], b[k]: the keypoints and rows of images 1 and k + 1 for pair k.
    std::vector<Descricao> a(n), b(n);
    std::vector<std::string> falhas(n);
    for (int k = 1; k < n; ++k) {
      falhas[k] = imagens_[0].falha;
      if (falhas[k].empty()) falhas[k] = imagens_[k].falha;
      if (falhas[k].empty()) falhas[k] = geometrias_[k].falha;
    }
    if (det.aleatorio) {
      // The pairs come from the one shared generator: drawn in order, then
      // described in parallel.
      for (int k = 1; k < n; ++k) {
        if (!falhas[k].empty()) continue;
        falhas[k] = capturaFalha([&] {
          keypoints::geraPares(imagens_[0].pixels.size(), geometrias_[k].H, det.nRand, det.rand, a[k].keypoints,
                               b[k].keypoints);
        });
        a[k].detectados = b[k].detectados = static_cast<int>(a[k].keypoints.size());
      }
      paraCada(n, [&](int k) {
        if (k == 0 || !falhas[k].empty()) return;
        repeticoesRand_[k] = repeticao(p_, a[k], b[k], imagens_[0].pixels, imagens_[k].pixels, geometrias_[k]);
        keypoints::converteAngulos(a[k].keypoints, det.escreve, des.le);
        keypoints::converteAngulos(b[k].keypoints, det.escreve, des.le);
        descreve(des, imagens_[0], a[k], &imagens_[k], &b[k]);
      });
    } else {
      detecta(idet);
      std::vector<Descricao> d = deteccoes_;
      const bool jaDescritas = descreveJunto(det) && det.descreveComo == des.nome;
      paraCada(n, [&](int k) {
        if (!d[k].falha.empty()) return;
        if (jaDescritas) return;
        keypoints::converteAngulos(d[k].keypoints, det.escreve, des.le);
        descreve(des, imagens_[k], d[k], nullptr, nullptr);
      });
      for (int k = 1; k < n; ++k) {
        a[k] = d[0];
        b[k] = d[k];
      }
    }
    std::vector<Saidas> partes(n);
    paraCada(n, [&](int k) {
      if (k == 0) return;
      std::string falha = falhas[k];
      if (falha.empty()) falha = a[k].falha;
      if (falha.empty()) falha = b[k].falha;
      if (!falha.empty()) {
        for (const Casador& cas : p_.casadores) linhaFalha(partes[k], s_, k + 1, det, des, cas, falha);
        return;
      }
      const Repeticao& rep = det.aleatorio ? repeticoesRand_[k] : repeticaoDetectada(k);
      const bool comCurva = s_.nome == p_.curvaSequencia && k + 1 == p_.curvaVista;
      mede(partes[k], p_, s_, k + 1, det, des, a[k], b[k], imagens_[0].pixels, imagens_[k].pixels, geometrias_[k], rep,
           comCurva);
    });
    Saidas o;
    for (const Saidas& parte : partes) {
      o.linhas += parte.linhas;
      o.tempos += parte.tempos;
      o.curvas += parte.curvas;
      o.falhou = o.falhou || parte.falhou;
    }
    return o;
  }

 private:
  // Whether the detector's one-pass description serves a descriptor of the plan.
  bool descreveJunto(const Detector& det) const {
    if (!det.detectaEDescreve) return false;
    for (const Descritor& d : p_.descritores)
      if (d.nome == det.descreveComo) return true;
    return false;
  }

  // Keypoints of every image for this detector, once.
  void detecta(int idet) {
    if (detectorAtual_ == idet) return;
    detectorAtual_ = idet;
    const Detector& det = p_.detectores[idet];
    const int n = s_.vistas();
    deteccoes_.assign(n, Descricao());
    paraCada(n, [&](int k) {
      Descricao& d = deteccoes_[k];
      d.falha = imagens_[k].falha;
      if (!d.falha.empty()) return;
      const auto t0 = Relogio::now();
      if (descreveJunto(det))
        d.falha = capturaFalha([&] { det.detectaEDescreve(imagens_[k].pixels, d.keypoints, d.linhas); });
      else
        d.falha = capturaFalha([&] { d.keypoints = det.detecta(imagens_[k].pixels); });
      d.segundosDetecao = segundosDesde(t0);
      d.detectados = static_cast<int>(d.keypoints.size());
    });
    repeticoes_.assign(n, std::nullopt);
  }

  // The repeatability of pair 1-(k + 1) for the current detector, computed
  // by the first unit that measures the pair: inside that unit's pass over
  // the pairs, so it costs no pass of its own. Only the task of pair k
  // touches slot k.
  const Repeticao& repeticaoDetectada(int k) {
    if (!repeticoes_[k])
      repeticoes_[k] =
          repeticao(p_, deteccoes_[0], deteccoes_[k], imagens_[0].pixels, imagens_[k].pixels, geometrias_[k]);
    return *repeticoes_[k];
  }

  const Plano& p_;
  const datasets::Sequencia& s_;
  std::vector<Imagem> imagens_;
  std::vector<Geometria> geometrias_;
  int detectorAtual_ = -1;
  std::vector<Descricao> deteccoes_;
  std::vector<std::optional<Repeticao>> repeticoes_;
  std::vector<Repeticao> repeticoesRand_ = std::vector<Repeticao>(s_.vistas());
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

void gravaTabela(const std::string& arquivo, const std::string& cabecalho, const std::string& corpo) {
  tvm::SaidaSegura saida(arquivo);
  formats::escreveTexto(saida, cabecalho + "\n" + corpo);
  saida.confirma();
}

}  // namespace

std::vector<Unidade> unidades(const Plano& p) {
  std::vector<Unidade> u;
  for (int s = 0; s < static_cast<int>(p.sequencias.size()); ++s)
    for (int d = 0; d < static_cast<int>(p.detectores.size()); ++d)
      for (int e = 0; e < static_cast<int>(p.descritores.size()); ++e) u.push_back({s, d, e});
  return u;
}

std::string arquivoUnidade(const Plano& p, const Unidade& u) {
  const datasets::Sequencia& s = p.sequencias[u.sequencia];
  std::string opcoes = "det " + p.opcoesDetectores[u.detector] + "|des " + p.opcoesDescritores[u.descritor] + "|mat " +
                       p.opcoesCasadores + "|med " + numero("%.17g", p.medidas.erro) + " " +
                       (p.medidas.comum == measures::ParteComum::ambas ? "ambas" : "opencv") + " " +
                       numero("%.17g", p.medidas.px) + " " + numero("%.17g", p.medidas.ransac) + " " +
                       numero("%.17g", p.medidas.dist);
  if (s.nome == p.curvaSequencia) opcoes += "|curva " + std::to_string(p.curvaVista);
  return "unidades/" + s.nome + "@" + p.detectores[u.detector].nome + "@" + p.descritores[u.descritor].nome + "@" +
         assinatura(opcoes).substr(0, 12) + ".csv";
}

std::string assinaturaPlano(const Plano& p) {
  std::string nomes;
  for (const Unidade& u : unidades(p)) nomes += arquivoUnidade(p, u) + "\n";
  return assinatura(nomes);
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
  int i = minhas.inicio;
  while (i < minhas.fim) {
    const int s = todas[i].sequencia;
    std::optional<Sequencia> seq;
    for (; i < minhas.fim && todas[i].sequencia == s; ++i) {
      if (prontas[i]) continue;
      if (!seq) seq.emplace(p, p.sequencias[s]);
      const Saidas o = seq->unidade(todas[i].detector, todas[i].descritor);
      const std::string base = p.saida + "/" + arquivoUnidade(p, todas[i]);
      const std::string semExtensao = base.substr(0, base.size() - 4);
      // The unit's table goes last: its presence says the unit is done.
      gravaTabela(semExtensao + ".tempos.csv", kCabecalhoTempos, o.tempos);
      gravaTabela(semExtensao + ".curvas.csv", kCabecalhoCurvas, o.curvas);
      gravaTabela(base, kCabecalho, o.linhas);
      textos[i] = std::string(kCabecalho) + "\n" + o.linhas;
      falhou[i] = o.falhou;
      ++r.refeitas;
      progresso.unidade();
    }
    progresso.sequencia(p.sequencias[s].nome);
  }
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
