// Features and matches written by other programs, through the real binary:
// the same features given four ways (D2-Net .npz by np.savez and
// np.savez_compressed, an hloc .h5 by h5py, an external command) and their
// mutual matches given two ways (hloc's matches file, SuperGlue's files) must
// give the same D2-Net MMA, equal to six decimals to a NumPy implementation
// of the protocol (bench/anchors/d2net.py).
#include "formats/csv.hpp"
#include "support/processo.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace {

const std::string kPython = "/usr/bin/python3";  // Debian's, with numpy, h5py and cv2
const std::string kGera = std::string(QUIVELAR_FONTE) + "/tests/cli/externos_gera.py";
const std::string kAncora = std::string(QUIVELAR_FONTE) + "/bench/anchors/d2net.py";

// Two short sequences, an illumination one and a viewpoint one, and every
// file the generator writes for them.
class Externos : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    pasta_ = new teste::PastaTemp;
    const std::string img = std::string(QUIVELAR_DATA) + "/img1.png";
    teste::rodaBem({"SeqSint", img, "ds/i_luz", "n=3", "brilho=-40", "contraste=0.7", "seed=1"}, pasta_->caminho());
    teste::rodaBem({"SeqSint", img, "ds/v_giro", "n=3", "rotacao=20", "escala=1.3", "seed=2"}, pasta_->caminho());
    const teste::Execucao g =
        roda({kPython, kGera, "ds", "sift-py", "feats.h5", "matches.h5", "sg"}, pasta_->caminho());
    ASSERT_EQ(g.status, 0) << g.err;
  }
  static void TearDownTestSuite() { delete pasta_; }

  static teste::Execucao roda(const std::vector<std::string>& args, const std::string& pasta) {
    teste::Processo p(args, pasta);
    p.espera(120);
    return p.fim();
  }

  // mma.csv of a sweep, each row keyed by its configuration and split.
  static std::map<std::string, std::vector<std::string>> mma(const std::string& saida) {
    const formats::TabelaCSV t = formats::leTabelaCSV(*pasta_ / (saida + "/mma.csv"));
    std::map<std::string, std::vector<std::string>> r;
    for (const auto& l : t.linhas) r[l[0] + " " + l[1] + " " + l[2] + " " + l[3]] = {l.begin() + 4, l.end()};
    return r;
  }

  // The anchor's rows for `args`, by split, laid out as mma.csv's values
  // (pairs, failed, features per image, matches per pair, mma@1..10).
  static std::map<std::string, std::vector<std::string>> ancora(const std::vector<std::string>& args) {
    std::vector<std::string> a = {kPython, kAncora, "ds", "sift-py"};
    a.insert(a.end(), args.begin(), args.end());
    const teste::Execucao e = roda(a, pasta_->caminho());
    EXPECT_EQ(e.status, 0) << e.err;
    std::map<std::string, std::vector<std::string>> r;
    std::istringstream linhas(e.out);
    for (std::string linha; std::getline(linhas, linha);) {
      std::vector<std::string> campos;
      std::stringstream ss(linha);
      for (std::string c; std::getline(ss, c, ',');) campos.push_back(c);
      std::vector<std::string>& v = r[campos[0]];
      v = {campos[1], "0"};
      v.insert(v.end(), campos.begin() + 2, campos.end());
    }
    return r;
  }

  static teste::PastaTemp* pasta_;
};
teste::PastaTemp* Externos::pasta_ = nullptr;

TEST_F(Externos, QuatroCaminhosDaoOMesmoMMAQueONumPy) {
  // The extractor sits in a folder whose name has a blank and a quote, as a
  // user's model folder may: the sweep still runs it and names it.
  const std::string pastaDoModelo = *pasta_ / "modelo d'ela";
  std::filesystem::create_directory(pastaDoModelo);
  std::filesystem::copy_file(kGera, pastaDoModelo + "/externos_gera.py");
  const std::string comando = tvm::aspasShell(kPython) + " " + tvm::aspasShell(pastaDoModelo + "/externos_gera.py") +
                              " --uma {imagem} {saida}";
  const teste::Execucao e = teste::roda({"Varre", "ds", "o", "feat=npz:sift-py,h5:feats.h5", "ext=" + comando,
                                         "mat=mutuo,h5:matches.h5", "graficos=0"},
                                        pasta_->caminho());
  ASSERT_EQ(e.status, 0) << e.err;
  const teste::Execucao sg =
      teste::roda({"Varre", "ds", "sg-o", "mat=npz:sg", "graficos=0"}, pasta_->caminho());
  ASSERT_EQ(sg.status, 0) << sg.err;
  // D2-Net's protocol alone (medidas=mma) gives the same rows.
  const teste::Execucao so = teste::roda({"Varre", "ds", "so-o", "feat=npz:sift-py", "mat=mutuo", "medidas=mma",
                                          "graficos=0"}, pasta_->caminho());
  ASSERT_EQ(so.status, 0) << so.err;
  const auto m = mma("o"), s = mma("sg-o"), soMMA = mma("so-o");
  for (const auto& [chave, valores] : soMMA) EXPECT_EQ(m.at(chave), valores) << chave;
  EXPECT_EQ(soMMA.size(), 3u);

  const auto esperados = ancora({});
  for (const auto& [divisao, esperado] : esperados) {
    SCOPED_TRACE(divisao);
    for (const char* config :
         {"npz:sift-py npz:sift-py mutuo", "h5:feats.h5 h5:feats.h5 mutuo", "h5:feats.h5 h5:feats.h5 h5:matches.h5",
          "ext:externos_gera.py ext:externos_gera.py mutuo"})
      EXPECT_EQ(m.at(std::string(config) + " " + divisao), esperado) << config;
    // SuperGlue's files hold only the keypoints of each pair: features per
    // image are not the file's, the rest is.
    std::vector<std::string> daSg = s.at("npz:sg npz:sg npz:sg " + divisao);
    daSg[2] = esperado[2];
    EXPECT_EQ(daSg, esperado);
  }
  EXPECT_EQ(esperados.size(), 3u);  // all, illumination, viewpoint
  // hloc's matches serve hloc's features only.
  EXPECT_EQ(m.count("npz:sift-py npz:sift-py h5:matches.h5 all"), 0u);
}

TEST_F(Externos, TopKForaERetomada) {
  const std::vector<std::string> base = {"Varre", "ds", "k", "feat=npz:sift-py", "mat=mutuo", "topk=150",
                                         "graficos=0"};
  ASSERT_EQ(teste::roda(base, pasta_->caminho()).status, 0);
  const auto m = mma("k").at("npz:sift-py npz:sift-py mutuo all");
  EXPECT_EQ(m, ancora({"--topk", "150"}).at("all"));
  EXPECT_EQ(m[2], "150.000000");

  // Run again: nothing to do. A feature file rewritten: its units again.
  EXPECT_NE(teste::roda(base, pasta_->caminho()).out.find("0 calculadas agora"), std::string::npos);
  const std::string arquivo = *pasta_ / "ds/v_giro/img2.png.sift-py";
  std::filesystem::copy_file(arquivo, arquivo + ".antes");
  std::filesystem::copy_file(*pasta_ / "ds/v_giro/img3.png.sift-py", arquivo,
                             std::filesystem::copy_options::overwrite_existing);
  const teste::Execucao mudou = teste::roda(base, pasta_->caminho());
  std::filesystem::rename(arquivo + ".antes", arquivo);
  EXPECT_NE(mudou.out.find("1 calculadas agora"), std::string::npos) << mudou.out;

  std::vector<std::string> semIluminacao = base;
  semIluminacao[2] = "f";
  semIluminacao.push_back("fora=i_luz,i_naoha");
  ASSERT_EQ(teste::roda(semIluminacao, pasta_->caminho()).status, 0);
  const auto f = mma("f");
  EXPECT_EQ(f.count("npz:sift-py npz:sift-py mutuo illumination"), 0u);
  EXPECT_EQ(f.at("npz:sift-py npz:sift-py mutuo viewpoint")[0], "2");
}

// What goes wrong in another program's files or command becomes the status
// of the rows it touches, named; the rest of the sweep goes on.
TEST_F(Externos, FalhasViramLinhas) {
  const std::string script = *pasta_ / "falha.sh";
  std::ofstream(script) << "echo \"modelo nao achado: $1\" >&2\nexit 3\n";
  const teste::Execucao e = teste::roda(
      {"Varre", "ds", "x", "feat=npz:naoha", "ext=sh " + tvm::aspasShell(script) + " {imagem} {saida}", "mat=mutuo", "graficos=0"},
      pasta_->caminho());
  EXPECT_EQ(e.status, 1);
  const formats::TabelaCSV t = formats::leTabelaCSV(*pasta_ / "x/resultados.csv");
  const int status = t.coluna("status"), det = t.coluna("detector");
  ASSERT_EQ(t.linhas.size(), 8u);
  for (const auto& l : t.linhas) {
    SCOPED_TRACE(l[status]);
    if (l[det] == "npz:naoha") {
      EXPECT_EQ(l[status].rfind("Erro abertura arquivo ", 0), 0u);
    } else {
      EXPECT_NE(l[status].find("status 3"), std::string::npos);
      EXPECT_NE(l[status].find("modelo nao achado"), std::string::npos);
    }
  }
}

// The single tools read the same files: keypoints, descriptors and matches.
TEST_F(Externos, FerramentasLeemOsArquivos) {
  const std::string d1 = "ds/i_luz/img1.png.sift-py", d2 = "ds/i_luz/img2.png.sift-py";
  ASSERT_EQ(teste::roda({"MatMutuo", d1, d2, "npz.txt"}, pasta_->caminho()).status, 0);
  ASSERT_EQ(teste::roda({"MatMutuo", "feats.h5:i_luz/img1.png", "feats.h5:i_luz/img2.png", "h5.txt"},
                        pasta_->caminho()).status, 0);
  EXPECT_EQ(teste::leTexto(*pasta_ / "npz.txt"), teste::leTexto(*pasta_ / "h5.txt"));
  const std::vector<std::string> img = {"ds/i_luz/img1.png", "ds/i_luz/img2.png"};
  const teste::Execucao a = teste::roda({"KeyRep", img[0], img[1], d1, d2, "ds/i_luz/H1to2p"}, pasta_->caminho());
  const teste::Execucao b = teste::roda(
      {"KeyRep", img[0], img[1], "feats.h5:i_luz/img1.png", "feats.h5:i_luz/img2.png", "ds/i_luz/H1to2p"},
      pasta_->caminho());
  ASSERT_EQ(a.status, 0) << a.err;
  EXPECT_EQ(teste::semTempo(a.out), teste::semTempo(b.out));
  // The same matches as SuperGlue's file and as hloc's: MatScore agrees.
  const std::string sg = "sg/i_luz/img1_img2_matches.npz";
  const std::string hloc = "matches.h5:i_luz/img1.png:i_luz/img2.png:feats.h5";
  std::string anterior;
  for (const std::string& m : {sg, hloc}) {
    const teste::Execucao s =
        teste::roda({"MatScore", img[0], img[1], d1, d2, m, "ds/i_luz/H1to2p", "dist=3"}, pasta_->caminho());
    ASSERT_EQ(s.status, 0) << s.err;
    // AP and the homography follow the list's order, which the files need not share.
    const std::string semMedidasDeOrdem = teste::semTempo(s.out).substr(0, teste::semTempo(s.out).find("ap="));
    if (!anterior.empty()) {
      EXPECT_EQ(semMedidasDeOrdem, anterior);
    }
    anterior = semMedidasDeOrdem;
  }
}

}  // namespace
