// What the real binary leaves behind when writing goes wrong: a file-size
// limit on every writing tool, a kill in the middle of a large write, and
// destinations that are not plain files. Each case checks the exit, the
// message and that the old file (or the link, or the device) is as it was.
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Palavras = std::vector<std::string>;

constexpr long kLimiteBytes = 1024;
const std::string kVelho = "conteudo anterior\n";

// img.png a texture; graf.png the first graffiti view (STAR finds little
// on small images); k.xml its SIFT keypoints; d.xml their SIFT descriptors;
// m.txt 700 matches (Matlab writes two bytes each), 600 right; mm.txt matches of k.xml
// with itself, inside the image as MatScore wants; h.txt the identity;
// roc.png a curve image for SobrROC; seq/ a folder for SeqSint.
void criaCena(const teste::PastaTemp& p) {
  teste::salva(teste::textura(200, 266, 5), p / "img.png");
  fs::copy_file(std::string(QUIVELAR_DATA) + "/img1.png", p / "graf.png");
  teste::salvaMat33(cv::Matx33d::eye(), p / "h.txt");
  std::vector<double> desvios(700, 3.0);  // right, then wrong: a ROC curve with both
  std::fill(desvios.begin() + 600, desvios.end(), 40.0);
  teste::escreveCasamentos(p / "m.txt", desvios);
  teste::rodaBem({"KeySift", "img.png", "k.xml"}, p.caminho());
  teste::rodaBem({"DesSift", "img.png", "d.xml", "k.xml"}, p.caminho());
  teste::rodaBem({"MatROC", "m.txt", "h.txt", "roc.png"}, p.caminho());
  teste::rodaBem({"MatNN", "d.xml", "d.xml", "mm.txt"}, p.caminho());
  fs::create_directory(p / "seq");
}

struct Escritor {
  Palavras args;
  Palavras saidas;  // every file the run writes
  // Tables the run appends to: made beforehand by as many runs without the
  // limit as it takes to pass it. The other outputs start as kVelho.
  Palavras tabelas = {};
  int preparos = 0;
};

// Every tool that writes, each output format of the stores, and an image
// format that goes through the codec plug-in.
const Escritor kEscritores[] = {
    {{"KeySift", "img.png", "s.xml"}, {"s.xml"}},
    {{"KeySift", "img.png", "s.yml.gz"}, {"s.yml.gz"}},
    {{"KeySurf", "img.png", "s.yml"}, {"s.yml"}},
    {{"KeyFast", "img.png", "s.json"}, {"s.json"}},
    {{"KeyStar", "graf.png", "s.xml"}, {"s.xml"}},
    {{"KeyRand", "img.png", "img.png", "h.txt", "100", "a.xml", "b.xml"}, {"a.xml", "b.xml"}},
    {{"KeyCgSize", "k.xml", "s.xml", "2"}, {"s.xml"}},
    {{"KeyGrande", "img.png", "k.xml", "s.xml", "0"}, {"s.xml"}},
    {{"KeyAngulo", "k.xml", "s.xml"}, {"s.xml"}},
    {{"DesSift", "img.png", "s.xml", "k.xml"}, {"s.xml"}},
    {{"DesSurf", "img.png", "s.xml.gz", "k.xml"}, {"s.xml.gz"}},
    {{"DesSimp", "img.png", "s.xml", "key=k.xml"}, {"s.xml"}},
    {{"DesRiff", "img.png", "s.xml", "key=k.xml"}, {"s.xml"}},
    {{"DesRihog", "img.png", "s.xml", "key=k.xml"}, {"s.xml"}},
    {{"DesRUHOG", "img.png", "s.xml", "key=k.xml"}, {"s.xml"}},
    {{"DesForapro", "img.png", "s.xml", "key=k.xml"}, {"s.xml"}},
    {{"MatNN", "d.xml", "d.xml", "s.txt"}, {"s.txt"}},
    {{"MatRatio", "d.xml", "d.xml", "s.txt", "acrate=1"}, {"s.txt"}},
    {{"FiltMat", "m.txt", "h.txt", "15", "s.txt"}, {"s.txt"}},
    {{"MatROC", "m.txt", "h.txt", "s.png"}, {"s.png"}},
    {{"MatROC", "m.txt", "h.txt", "s.png", "arquivo=r.txt"}, {"s.png", "r.txt"}},
    {{"MatAcert", "m.txt", "h.txt", "s.png"}, {"s.png"}},
    {{"Matlab", "m.txt", "h.txt", "s.mat"}, {"s.mat"}},
    {{"SobrROC", "s.png", "roc.png"}, {"s.png"}},
    {{"KeyShow", "img.png", "k.xml", "s.png"}, {"s.png"}},
    {{"KeyMyShow", "img.png", "k.xml", "s.ppm"}, {"s.ppm"}},
    {{"MatShow", "img.png", "img.png", "m.txt", "s.png"}, {"s.png"}},
    {{"MatMyShow", "img.png", "img.png", "m.txt", "s.jpg"}, {"s.jpg"}},
    {{"MatMutuo", "d.xml", "d.xml", "s.txt"}, {"s.txt"}},
    {{"SeqSint", "img.png", "seq", "n=2", "rotacao=10"}, {"seq/img1.png", "seq/img2.png", "seq/H1to2p"}},
    {{"KeyRep", "img.png", "img.png", "k.xml", "k.xml", "h.txt", "csv=t.csv"}, {"t.csv"}, {"t.csv"}, 12},
    {{"MatScore", "img.png", "img.png", "k.xml", "k.xml", "mm.txt", "h.txt", "curva=c.csv"}, {"c.csv"}},
    {{"MatScore", "img.png", "img.png", "k.xml", "k.xml", "mm.txt", "h.txt", "curva=c.csv", "csv=t.csv"},
     {"c.csv", "t.csv"},
     {"t.csv"},
     6},
};

void PrintTo(const Escritor& c, std::ostream* os) { *os << testing::PrintToString(c.args); }

std::string nomeDoCaso(const testing::TestParamInfo<Escritor>& info) {
  return info.param.args[0] + "_" + std::to_string(info.index);
}

class LimiteDeTamanho : public testing::TestWithParam<Escritor> {};

// A full disk, simulated by a file-size limit: the run fails with the
// message, every old output stays whole and no temporary is left. Then,
// without the limit, the same run must succeed with an output over the
// limit, or the case proved nothing.
TEST_P(LimiteDeTamanho, FailsCleanlyAndKeepsTheOldFiles) {
  const Escritor& c = GetParam();
  teste::PastaTemp pasta;
  criaCena(pasta);
  // Without the limit a run succeeds, though it may warn (RIFF's rows repeat
  // on these small regions).
  const auto semLimite = [&] { EXPECT_EQ(teste::roda(c.args, pasta.caminho()).status, 0); };
  for (int i = 0; i < c.preparos; ++i) semLimite();
  std::map<std::string, std::string> velho;
  for (const std::string& s : c.saidas) {
    if (std::find(c.tabelas.begin(), c.tabelas.end(), s) == c.tabelas.end()) teste::escreveTexto(pasta / s, kVelho);
    velho[s] = teste::leTexto(pasta / s);
  }
  const Palavras antes = pasta.conteudo();

  Palavras linha = {"prlimit", "--fsize=" + std::to_string(kLimiteBytes), "--", QUIVELAR_BIN};
  linha.insert(linha.end(), c.args.begin(), c.args.end());
  teste::Processo limitado(linha, pasta.caminho());
  ASSERT_TRUE(limitado.espera(120));
  const teste::Execucao e = limitado.fim();
  EXPECT_EQ(std::make_pair(e.status, e.sinal), std::make_pair(1, 0)) << e.err;
  EXPECT_EQ(e.err.rfind("Erro: falha ao gravar ", 0), 0u) << e.err;
  EXPECT_NE(e.err.find(": limite de tamanho de arquivo atingido\n"), std::string::npos) << e.err;
  EXPECT_EQ(e.out.find("Tempo gasto="), std::string::npos);
  for (const std::string& s : c.saidas) EXPECT_EQ(teste::leTexto(pasta / s), velho[s]) << s;
  EXPECT_EQ(pasta.conteudo(), antes);

  semLimite();
  long maior = 0;
  for (const std::string& s : c.saidas) {
    EXPECT_NE(teste::leTexto(pasta / s), velho[s]) << s;
    maior = std::max<long>(maior, static_cast<long>(fs::file_size(pasta / s)));
  }
  EXPECT_GT(maior, kLimiteBytes);
  EXPECT_EQ(pasta.conteudo(), antes);
}

INSTANTIATE_TEST_SUITE_P(Ferramentas, LimiteDeTamanho, testing::ValuesIn(kEscritores), nomeDoCaso);

// Files left in `pasta` that are not in `antes`.
Palavras novos(const teste::PastaTemp& pasta, const Palavras& antes) {
  Palavras extra;
  for (const std::string& nome : pasta.conteudo())
    if (std::find(antes.begin(), antes.end(), nome) == antes.end()) extra.push_back(nome);
  return extra;
}

bool ehTemporario(const std::string& nome) {
  return nome.rfind("quivelar-", 0) == 0 && nome.size() > 4 && nome.compare(nome.size() - 4, 4, ".tmp") == 0;
}

// KeyCgSize on a store of a million keypoints, signalled as soon as its
// temporary appears: SIGINT, SIGTERM and SIGHUP end it by that signal with
// the temporary removed; SIGKILL cannot be caught and may leave the
// temporary, named as one. The destination is the old file in every case.
TEST(Interrupcao, KillDuringALargeWriteLeavesTheOldFile) {
  teste::PastaTemp pasta;
  std::vector<cv::KeyPoint> muitos(1000000);
  for (size_t i = 0; i < muitos.size(); ++i) muitos[i] = cv::KeyPoint(i % 997 + 0.5f, i % 991 + 0.25f, 7.5f, 90.0f);
  formats::impKeyPoints(pasta / "grande.xml", muitos);
  for (int sinal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
    SCOPED_TRACE(sinal);
    teste::escreveTexto(pasta / "s.xml", kVelho);
    const Palavras antes = pasta.conteudo();
    teste::Processo p({QUIVELAR_BIN, "KeyCgSize", "grande.xml", "s.xml", "2"}, pasta.caminho());
    bool viu = false;
    for (auto limite = std::chrono::steady_clock::now() + std::chrono::seconds(120);
         !viu && !p.espera(0) && std::chrono::steady_clock::now() < limite;) {
      for (const std::string& nome : novos(pasta, antes)) viu = viu || ehTemporario(nome);
      if (!viu) std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    ASSERT_TRUE(viu) << "the run ended before its temporary was seen";
    ::kill(p.pid(), sinal);
    ASSERT_TRUE(p.espera(60));
    EXPECT_EQ(p.fim().sinal, sinal);
    EXPECT_EQ(teste::leTexto(pasta / "s.xml"), kVelho);
    for (const std::string& nome : novos(pasta, antes)) {
      EXPECT_TRUE(sinal == SIGKILL && ehTemporario(nome)) << nome;
      fs::remove(pasta / nome);
    }
  }
}

struct Estado {
  fs::file_type tipo;
  std::string ligacao;  // where a symbolic link points
  unsigned modo;
};

Estado estadoDe(const std::string& caminho) {
  const fs::file_status st = fs::symlink_status(caminho);
  return {st.type(), st.type() == fs::file_type::symlink ? fs::read_symlink(caminho).string() : "",
          static_cast<unsigned>(st.permissions())};
}

void exigeMesmoEstado(const Estado& a, const Estado& b) {
  EXPECT_EQ(a.tipo, b.tipo);
  EXPECT_EQ(a.ligacao, b.ligacao);
  EXPECT_EQ(a.modo, b.modo);
}

const Palavras kFiltMat = {"FiltMat", "m.txt", "h.txt", "15"};

// The bytes FiltMat writes for m.txt, from a run into a plain file.
std::string filtMatEsperado(const teste::PastaTemp& pasta) {
  Palavras args = kFiltMat;
  args.push_back("referencia.txt");
  teste::rodaBem(args, pasta.caminho());
  const std::string texto = teste::leTexto(pasta / "referencia.txt");
  fs::remove(pasta / "referencia.txt");
  return texto;
}

teste::Execucao filtMatEm(const teste::PastaTemp& pasta, const std::string& destino) {
  Palavras args = kFiltMat;
  args.push_back(destino);
  return teste::roda(args, pasta.caminho());
}

// A symbolic link keeps being a link, and its target (through a chain,
// relative to the link's folder, or not there yet) is what is written.
TEST(Destinos, SymbolicLinksAreFollowed) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::string esperado = filtMatEsperado(pasta);
  fs::create_directory(pasta / "sub");
  teste::escreveTexto(pasta / "sub/alvo.txt", kVelho);
  fs::create_symlink("alvo.txt", pasta / "sub/elo.txt");
  fs::create_symlink("sub/elo.txt", pasta / "l.txt");
  fs::create_symlink("sub/novo.txt", pasta / "pendente.txt");
  const Palavras entradas = pasta.conteudo();
  for (const char* nome : {"l.txt", "pendente.txt"}) {
    const Estado antes = estadoDe(pasta / nome);
    const teste::Execucao e = filtMatEm(pasta, nome);
    EXPECT_EQ(e.status, 0) << e.err;
    exigeMesmoEstado(estadoDe(pasta / nome), antes);
    EXPECT_EQ(teste::leTexto(pasta / nome), esperado);
  }
  EXPECT_EQ(estadoDe(pasta / "sub/elo.txt").tipo, fs::file_type::symlink);
  EXPECT_EQ(pasta.conteudo(), entradas);
  // alvo.txt, elo.txt, novo.txt: no temporary left beside the targets.
  EXPECT_EQ(std::distance(fs::directory_iterator(pasta / "sub"), fs::directory_iterator()), 3);

  fs::create_symlink("ciclo.txt", pasta / "ciclo.txt");
  const teste::Execucao e = filtMatEm(pasta, "ciclo.txt");
  EXPECT_EQ(std::make_pair(e.status, e.err), std::make_pair(1, std::string("Erro abertura arquivo ciclo.txt\n")));
  EXPECT_EQ(estadoDe(pasta / "ciclo.txt").tipo, fs::file_type::symlink);
}

// A FIFO gets the bytes and stays a FIFO; so does a character device (our
// own null device, where the system lets us make one). Neither is renamed
// over.
TEST(Destinos, DevicesAndFifosAreWrittenStraightThrough) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::string esperado = filtMatEsperado(pasta);
  ASSERT_EQ(::mkfifo((pasta / "fifo").c_str(), 0640), 0);
  const Estado fifo = estadoDe(pasta / "fifo");
  teste::Processo leitor({"cat", pasta / "fifo"});
  EXPECT_EQ(filtMatEm(pasta, "fifo").status, 0);
  ASSERT_TRUE(leitor.espera(60));
  EXPECT_EQ(leitor.fim().out, esperado);
  exigeMesmoEstado(estadoDe(pasta / "fifo"), fifo);
  // /dev/stdout leads, through /proc, to a pipe here: written, not replaced.
  teste::Processo tubo({"sh", "-c", "\"$0\" FiltMat m.txt h.txt 15 /dev/stdout | cat", QUIVELAR_BIN},
                       pasta.caminho());
  ASSERT_TRUE(tubo.espera(60));
  const teste::Execucao saida = tubo.fim();
  EXPECT_EQ(saida.status, 0) << saida.err;
  EXPECT_TRUE(saida.out.rfind(esperado, 0) == 0) << saida.out.substr(0, 200);
  EXPECT_EQ(estadoDe("/dev/stdout").tipo, fs::file_type::symlink);

  if (::mknod((pasta / "nulo").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) GTEST_SKIP() << "no mknod here";
  const Estado nulo = estadoDe(pasta / "nulo");
  const teste::Execucao e = filtMatEm(pasta, "nulo");
  if (e.status != 0 && e.err.find("Erro abertura arquivo nulo") == 0) GTEST_SKIP() << "devices not opened here";
  EXPECT_EQ(e.status, 0) << e.err;
  exigeMesmoEstado(estadoDe(pasta / "nulo"), nulo);
  // Both outputs of KeyRand may be the same device.
  EXPECT_EQ(teste::roda({"KeyRand", "img.png", "img.png", "h.txt", "5", "nulo", "./nulo"}, pasta.caminho()).status,
            0);
  exigeMesmoEstado(estadoDe(pasta / "nulo"), nulo);
}

// The old file's permissions survive its replacement. Another hard link to
// it keeps the old contents (the README says so).
TEST(Destinos, ModeKeptAndHardLinksKeepTheOldContents) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::string esperado = filtMatEsperado(pasta);
  for (unsigned modo : {0600u, 0640u, 0444u}) {
    teste::escreveTexto(pasta / "s.txt", kVelho);
    fs::permissions(pasta / "s.txt", static_cast<fs::perms>(modo));
    EXPECT_EQ(filtMatEm(pasta, "s.txt").status, 0);
    EXPECT_EQ(estadoDe(pasta / "s.txt").modo, modo);
    EXPECT_EQ(teste::leTexto(pasta / "s.txt"), esperado);
    fs::remove(pasta / "s.txt");
  }
  teste::escreveTexto(pasta / "s.txt", kVelho);
  fs::create_hard_link(pasta / "s.txt", pasta / "outro.txt");
  EXPECT_EQ(filtMatEm(pasta, "s.txt").status, 0);
  EXPECT_EQ(teste::leTexto(pasta / "s.txt"), esperado);
  EXPECT_EQ(teste::leTexto(pasta / "outro.txt"), kVelho);
}

// A folder, a folder we may not write into, a missing folder: the run stops
// with the message and nothing changes.
TEST(Destinos, FoldersRefused) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  fs::create_directory(pasta / "sub");
  fs::create_directory(pasta / "fechada");
  teste::escreveTexto(pasta / "fechada/s.txt", kVelho);
  fs::permissions(pasta / "fechada", fs::perms::owner_read | fs::perms::owner_exec);
  const Palavras antes = pasta.conteudo();
  for (const std::string destino : {"sub", "sub/", "falta/s.txt"}) {
    const teste::Execucao e = filtMatEm(pasta, destino);
    EXPECT_EQ(std::make_pair(e.status, e.err), std::make_pair(1, "Erro abertura arquivo " + destino + "\n"));
  }
  EXPECT_TRUE(fs::is_empty(pasta / "sub"));

  // Root writes anywhere; without the capabilities that allow it, the
  // folder's mode is obeyed.
  Palavras linha = {"setpriv", "--bounding-set=-dac_override,-dac_read_search",
                    "--inh-caps=-dac_override,-dac_read_search", "--", QUIVELAR_BIN};
  linha.insert(linha.end(), kFiltMat.begin(), kFiltMat.end());
  linha.push_back("fechada/s.txt");
  teste::Processo p(::geteuid() == 0 ? linha : Palavras(linha.begin() + 4, linha.end()), pasta.caminho());
  ASSERT_TRUE(p.espera(60));
  const teste::Execucao e = p.fim();
  EXPECT_EQ(std::make_pair(e.status, e.err), std::make_pair(1, std::string("Erro abertura arquivo fechada/s.txt\n")));
  EXPECT_EQ(teste::leTexto(pasta / "fechada/s.txt"), kVelho);
  fs::permissions(pasta / "fechada", fs::perms::owner_all);
  EXPECT_EQ(std::distance(fs::directory_iterator(pasta / "fechada"), fs::directory_iterator()), 1);
  EXPECT_EQ(pasta.conteudo(), antes);
}

// The longest name a folder entry may have, and a whole path just under
// the system's limit, are written like any other.
TEST(Destinos, LongestNamesAccepted) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  const std::string esperado = filtMatEsperado(pasta);
  const std::string longo = std::string(NAME_MAX - 4, 'n') + ".txt";
  EXPECT_EQ(filtMatEm(pasta, longo).status, 0);
  EXPECT_EQ(teste::leTexto(pasta / longo), esperado);

  // Nested folders of 200-byte names, from the run's folder, until the
  // next one would pass PATH_MAX - 1 with the file's name.
  std::string caminho;
  const std::string parte = std::string(200, 'p');
  while ((pasta.caminho() + "/" + caminho + parte + "/" + "s.txt").size() < PATH_MAX - 1) {
    caminho += parte + "/";
    fs::create_directory(pasta / caminho);
  }
  const std::string nome = std::string(PATH_MAX - 2 - (pasta.caminho() + "/" + caminho).size(), 's');
  ASSERT_GE(nome.size(), 5u);
  ASSERT_EQ((pasta.caminho() + "/" + caminho + nome).size(), static_cast<size_t>(PATH_MAX - 2));
  const teste::Execucao e = filtMatEm(pasta, pasta.caminho() + "/" + caminho + nome);
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(teste::leTexto(pasta / (caminho + nome)), esperado);
}

// Two outputs of one run under one name, however spelt, are refused before
// anything is read or written; two different names are fine.
TEST(Destinos, SameNameTwiceRefused) {
  teste::PastaTemp pasta;
  criaCena(pasta);
  fs::create_symlink("r.png", pasta / "apelido.png");
  const Palavras antes = pasta.conteudo();
  const Palavras rand = {"KeyRand", "img.png", "img.png", "h.txt", "5"};
  const struct {
    Palavras args;
    std::string repetido;
  } casos[] = {
      {{"MatROC", "m.txt", "h.txt", "r.png", "arquivo=r.png"}, "r.png"},
      {{"MatROC", "m.txt", "h.txt", "r.png", "arquivo=apelido.png"}, "apelido.png"},
      {{"MatROC", "m.txt", "h.txt", "sub/../r.png", "arquivo=./r.png"}, "./r.png"},
      {{"KeyRand", "img.png", "nada.png", "h.txt", "5", "a.xml", "a.xml"}, "a.xml"},
      {{"KeyRand", "img.png", "img.png", "h.txt", "5", pasta / "a.xml", "a.xml"}, "a.xml"},
  };
  fs::create_directory(pasta / "sub");
  for (const auto& c : casos) {
    const teste::Execucao e = teste::roda(c.args, pasta.caminho());
    EXPECT_EQ(std::make_pair(e.status, e.err), std::make_pair(1, "Erro: saidas com o mesmo nome " + c.repetido + "\n"));
    EXPECT_EQ(e.out, "");
  }
  fs::remove(pasta / "sub");
  EXPECT_EQ(pasta.conteudo(), antes);
  teste::rodaBem({"KeyRand", "img.png", "img.png", "h.txt", "5", "a.xml", "b.xml"}, pasta.caminho());
}

}  // namespace
