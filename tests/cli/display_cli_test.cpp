// The display tools through the real binary: the image files they write, and MatVis in a real window on a private Xvfb server,
// driven with xdotool and photographed with xwd.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// ---- files shared by the cases ----------------------------------------------

// img1/img2: 120 x 160 textures; k.xml: three keypoints; m2.txt: match 0
// correct under the identity (same point), match 1 wrong (80 pixels apart);
// id.txt: identity.
void criaArquivos(const teste::PastaTemp& p) {
  teste::salva(teste::textura(120, 160, 3), p / "img1.png");
  teste::salva(teste::textura(100, 140, 4), p / "img2.png");
  const std::vector<cv::KeyPoint> k1 = {cv::KeyPoint(80, 60, 40, 30), cv::KeyPoint(40, 30, 30, 200)};
  const std::vector<cv::KeyPoint> k2 = {cv::KeyPoint(80, 60, 40, 45), cv::KeyPoint(120, 30, 30, 10)};
  const std::vector<cv::DMatch> m = {cv::DMatch(0, 0, 1.0f), cv::DMatch(1, 1, 2.0f)};
  formats::impKeyPoints(p / "k.xml", {k1[0], k1[1], cv::KeyPoint(20, 100, 12, 0)});
  formats::impKeyPoints(p / "k0.xml", {});
  formats::impMatch(m, k1, k2, p / "m2.txt");
  teste::salvaMat33(cv::Matx33d::eye(), p / "id.txt");
}

// Pixels whose channels differ, in a colour image file.
int coloridos(const std::string& arquivo) {
  const cv::Mat_<cv::Vec3b> img = cv::imread(arquivo, cv::IMREAD_COLOR);
  int n = 0;
  for (const cv::Vec3b& px : img) n += px[0] != px[1] || px[1] != px[2];
  return n;
}

const std::string kAperte = "Aperte ESC para sair\n";

// ---- image files ------------------------------------------------------------

struct CasoImagem {
  std::string nome;
  std::vector<std::string> args;  // the output is s.png
  cv::Size tamanho;
  bool marcas;  // colour marks expected over the grey input
};

void PrintTo(const CasoImagem& c, std::ostream* os) { *os << c.nome; }

class DisplayImagens : public testing::TestWithParam<CasoImagem> {};

TEST_P(DisplayImagens, TamanhoEMarcas) {
  teste::PastaTemp pasta;
  criaArquivos(pasta);
  const CasoImagem& c = GetParam();
  const teste::Execucao e = teste::roda(c.args, pasta.caminho(), 30);
  ASSERT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(teste::semTempo(e.out), "");
  EXPECT_EQ(e.err, "");
  const cv::Mat s = cv::imread(pasta / "s.png", cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(s.empty());
  EXPECT_EQ(s.type(), CV_8UC3);
  EXPECT_EQ(s.size(), c.tamanho);
  EXPECT_EQ(coloridos(pasta / "s.png") > 0, c.marcas);
}

INSTANTIATE_TEST_SUITE_P(
    Casos, DisplayImagens,
    testing::Values(
        CasoImagem{"KeyShow", {"keyshow", "img1.png", "k.xml", "s.png"}, {160, 120}, true},
        CasoImagem{"KeyShowN", {"KEYSHOW", "img1.png", "k.xml", "s.png", "N"}, {160, 120}, true},
        CasoImagem{"KeyMyShow", {"keymyshow", "img1.png", "k.xml", "s.png"}, {160, 120}, true},
        CasoImagem{"MatShow", {"matshow", "img1.png", "img2.png", "m2.txt", "s.png"}, {300, 120}, true},
        CasoImagem{"MatMyShow", {"matmyshow", "img1.png", "img2.png", "m2.txt", "s.png"}, {300, 120}, true}),
    [](const testing::TestParamInfo<CasoImagem>& i) { return i.param.nome; });

TEST(KeyShowCli, VazioEAImagemEmCor) {
  teste::PastaTemp pasta;
  criaArquivos(pasta);
  for (const char* tool : {"keyshow", "keymyshow"}) {
    ASSERT_EQ(teste::roda({tool, "img1.png", "k0.xml", "s.png"}, pasta.caminho(), 30).status, 0) << tool;
    const cv::Mat s = cv::imread(pasta / "s.png", cv::IMREAD_COLOR);
    cv::Mat esperado;
    cv::cvtColor(teste::textura(120, 160, 3), esperado, cv::COLOR_GRAY2BGR);
    EXPECT_EQ(cv::norm(s, esperado, cv::NORM_INF), 0) << tool;
  }
}

// ---- MatVis in a real window ------------------------------------------------

// A child process; its output goes to files. Killed (by its own id) if still
// running when the object goes away, so no test leaves one behind.
class Processo {
 public:
  // `ambiente`: variables to set; an empty value removes the variable.
  Processo(const std::vector<std::string>& args, const std::map<std::string, std::string>& ambiente,
           const std::string& saida, const std::string& erros) {
    pid_ = ::fork();
    if (pid_ != 0) return;
    for (const auto& [nome, valor] : ambiente) {
      if (valor.empty())
        ::unsetenv(nome.c_str());
      else
        ::setenv(nome.c_str(), valor.c_str(), 1);
    }
    const int nada = ::open("/dev/null", O_RDONLY);
    const int out = ::open(saida.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(erros.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (nada < 0 || out < 0 || err < 0) ::_exit(126);
    ::dup2(nada, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ~Processo() {
    if (pid_ > 0 && !terminou_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  Processo(const Processo&) = delete;
  Processo& operator=(const Processo&) = delete;

  // True when the process ended within `segundos`.
  bool espera(double segundos) {
    const auto fim = std::chrono::steady_clock::now() + std::chrono::duration<double>(segundos);
    while (!terminou_) {
      int st = 0;
      const pid_t r = ::waitpid(pid_, &st, WNOHANG);
      if (r == pid_) {
        terminou_ = true;
        status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
        break;
      }
      if (std::chrono::steady_clock::now() > fim) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }
  int status() const { return status_; }

 private:
  pid_t pid_ = -1;
  bool terminou_ = false;
  int status_ = -1;
};

// xwd's dump of a 24- or 32-bit TrueColor window, as a BGR image; empty if
// the file is anything else.
cv::Mat_<cv::Vec3b> leXwd(const std::string& arquivo) {
  const std::string b = teste::leTexto(arquivo);
  auto campo = [&](size_t i) -> uint32_t {
    if (b.size() < 4 * (i + 1)) return 0;
    const auto* p = reinterpret_cast<const unsigned char*>(b.data() + 4 * i);
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
  };
  const uint32_t cabecalho = campo(0), formato = campo(2), largura = campo(4), altura = campo(5);
  const uint32_t ordem = campo(7), bpp = campo(11), porLinha = campo(12), cores = campo(19);
  const uint32_t mascaraR = campo(14), mascaraG = campo(15), mascaraB = campo(16);
  const size_t inicio = size_t(cabecalho) + size_t(cores) * 12;
  if (formato != 2 || bpp != 32 || largura == 0 || largura > 10000 || altura > 10000 ||
      b.size() < inicio + size_t(porLinha) * altura)
    return {};
  auto canal = [](uint32_t px, uint32_t mascara) {
    if (mascara == 0) return uchar(0);
    int desloca = 0;
    while (!((mascara >> desloca) & 1u)) ++desloca;
    return uchar((px & mascara) >> desloca);
  };
  cv::Mat_<cv::Vec3b> img(static_cast<int>(altura), static_cast<int>(largura));
  for (uint32_t r = 0; r < altura; ++r)
    for (uint32_t c = 0; c < largura; ++c) {
      const auto* p = reinterpret_cast<const unsigned char*>(b.data() + inicio + size_t(r) * porLinha + 4 * c);
      const uint32_t px = ordem == 0
                              ? uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24
                              : uint32_t(p[3]) | uint32_t(p[2]) << 8 | uint32_t(p[1]) << 16 | uint32_t(p[0]) << 24;
      img(int(r), int(c)) = cv::Vec3b(canal(px, mascaraB), canal(px, mascaraG), canal(px, mascaraR));
    }
  return img;
}

struct Contagem {
  int verdes = 0, vermelhos = 0;
};

Contagem contaMarcas(const cv::Mat_<cv::Vec3b>& img) {
  Contagem c;
  for (const cv::Vec3b& p : img) {
    c.verdes += p[1] > 200 && p[0] < 60 && p[2] < 60;
    c.vermelhos += p[2] > 200 && p[0] < 60 && p[1] < 60;
  }
  return c;
}

// One private X server for the whole suite; -displayfd lets it pick a free
// display number and tells it once it accepts clients.
class MatVisJanela : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    int canal[2];
    if (::pipe(canal) != 0) return;
    pasta_ = new teste::PastaTemp;
    // The pipe's write end survives exec: pipes are not close-on-exec.
    xvfb_ = new Processo(
        {"Xvfb", "-displayfd", std::to_string(canal[1]), "-screen", "0", "800x600x24", "-nolisten", "tcp", "-noreset"},
        {}, *pasta_ / "xvfb.out", *pasta_ / "xvfb.err");
    ::close(canal[1]);
    std::string numero;
    pollfd p{canal[0], POLLIN, 0};
    const auto fim = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (numero.find('\n') == std::string::npos && std::chrono::steady_clock::now() < fim) {
      if (::poll(&p, 1, 200) <= 0) continue;
      char buf[32];
      const ssize_t n = ::read(canal[0], buf, sizeof buf);
      if (n <= 0) break;
      numero.append(buf, size_t(n));
    }
    ::close(canal[0]);
    if (numero.find('\n') != std::string::npos) tela_ = ":" + numero.substr(0, numero.find('\n'));
  }
  static void TearDownTestSuite() {
    delete xvfb_;
    delete pasta_;
    xvfb_ = nullptr;
    pasta_ = nullptr;
  }
  void SetUp() override {
    ASSERT_FALSE(tela_.empty()) << "Xvfb nao iniciou; instale xvfb, xdotool e x11-apps (scripts/install-deps). "
                                << (pasta_ ? teste::leTexto(*pasta_ / "xvfb.err") : "");
    criaArquivos(pasta);
  }

  std::map<std::string, std::string> ambiente() const {
    // Qt wants a private runtime folder; without one it warns on stderr.
    return {{"DISPLAY", tela_}, {"XDG_RUNTIME_DIR", pasta.caminho()}};
  }

  // An X client to its end (at most `segundos`); its stdout, or "<falhou>".
  std::string x(const std::vector<std::string>& args, double segundos = 10) {
    Processo p(args, ambiente(), pasta / "x.out", pasta / "x.err");
    if (!p.espera(segundos) || p.status() != 0) return "<falhou>" + teste::leTexto(pasta / "x.err");
    return teste::leTexto(pasta / "x.out");
  }

  std::unique_ptr<Processo> iniciaMatVis(const std::vector<std::string>& extra) {
    std::vector<std::string> args = {QUIVELAR_BIN, "matvis", pasta / "img1.png", pasta / "img2.png"};
    args.insert(args.end(), extra.begin(), extra.end());
    return std::make_unique<Processo>(args, ambiente(), pasta / "mv.out", pasta / "mv.err");
  }

  std::string achaJanela() {
    const std::string id = x({"xdotool", "search", "--sync", "--name", "^janela$"}, 15);
    return id.substr(0, id.find('\n'));
  }

  // Screenshots of the window until `pronta` accepts one (at most 10 s).
  cv::Mat_<cv::Vec3b> fotografa(const std::string& janela, const std::function<bool(const Contagem&)>& pronta) {
    cv::Mat_<cv::Vec3b> foto;
    const auto fim = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < fim) {
      if (x({"xwd", "-silent", "-id", janela, "-out", pasta / "tela.xwd"}).rfind("<falhou>", 0) != 0) {
        foto = leXwd(pasta / "tela.xwd");
        if (!foto.empty() && pronta(contaMarcas(foto))) return foto;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return foto;
  }

  void tecla(const std::string& janela, const std::string& nome) {
    EXPECT_EQ(x({"xdotool", "windowfocus", "--sync", janela}), "");
    EXPECT_EQ(x({"xdotool", "key", nome}), "");
  }

  void confereFim(Processo& mv) {
    ASSERT_TRUE(mv.espera(10)) << "MatVis nao terminou";
    EXPECT_EQ(mv.status(), 0) << teste::leTexto(pasta / "mv.err");
    EXPECT_EQ(teste::semTempo(teste::leTexto(pasta / "mv.out")), kAperte);
    EXPECT_EQ(teste::leTexto(pasta / "mv.err"), "");
  }

  teste::PastaTemp pasta;
  static inline teste::PastaTemp* pasta_ = nullptr;
  static inline Processo* xvfb_ = nullptr;
  static inline std::string tela_;
};

TEST_F(MatVisJanela, UmCasamentoPorTeclaVerdeDepoisVermelhoEsc) {
  auto mv = iniciaMatVis({pasta / "m2.txt", pasta / "id.txt"});
  const std::string janela = achaJanela();
  ASSERT_FALSE(janela.empty() || janela[0] == '<') << janela << teste::leTexto(pasta / "mv.err");

  const cv::Mat_<cv::Vec3b> certo = fotografa(janela, [](const Contagem& c) { return c.verdes > 20; });
  const Contagem c1 = contaMarcas(certo);
  EXPECT_GT(c1.verdes, 20);
  EXPECT_LT(c1.vermelhos, 5);
  // Kept for a look when asked for: QUIVELAR_CAPTURA=/some/file.png.
  if (const char* captura = std::getenv("QUIVELAR_CAPTURA")) cv::imwrite(captura, certo);

  tecla(janela, "space");
  const Contagem c2 = contaMarcas(fotografa(janela, [](const Contagem& c) { return c.vermelhos > 20; }));
  EXPECT_GT(c2.vermelhos, 20);
  EXPECT_LT(c2.verdes, 5);
  ASSERT_FALSE(mv->espera(0.3)) << "MatVis terminou antes do Esc";

  tecla(janela, "Escape");
  confereFim(*mv);
}

TEST_F(MatVisJanela, SemTelaErroClaro) {
  struct Caso {
    std::string display;
    std::string erro;
  };
  const Caso casos[] = {
      {"", "Erro: MatVis precisa de uma tela grafica e a variavel DISPLAY nao esta definida\n"},
      {":9931", "Erro: nao foi possivel abrir a tela grafica DISPLAY=:9931\n"},
  };
  for (const Caso& c : casos) {
    Processo mv({QUIVELAR_BIN, "matvis", pasta / "img1.png", pasta / "img2.png", pasta / "m2.txt", pasta / "id.txt"},
                {{"DISPLAY", c.display}}, pasta / "mv.out", pasta / "mv.err");
    ASSERT_TRUE(mv.espera(10));
    EXPECT_EQ(mv.status(), 1) << c.display;
    EXPECT_EQ(teste::leTexto(pasta / "mv.out"), kAperte);
    EXPECT_EQ(teste::leTexto(pasta / "mv.err"), c.erro);
  }
}

}  // namespace
