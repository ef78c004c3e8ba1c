// The display tools through the real binary: the image files they write, and
// MatVis in a real window on a private Xvfb server, driven with xdotool and
// photographed with xwd.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// img1/img2: textures; k.xml: three keypoints, k0.xml: none; m2.txt: match 0
// correct under the identity id.txt (same point), match 1 wrong (80 pixels apart).
void criaArquivos(const teste::PastaTemp& p) {
  teste::salva(teste::textura(120, 160, 3), p / "img1.png");
  teste::salva(teste::textura(100, 140, 4), p / "img2.png");
  const std::vector<cv::KeyPoint> k1 = {cv::KeyPoint(80, 60, 40, 30), cv::KeyPoint(40, 30, 30, 200)};
  const std::vector<cv::KeyPoint> k2 = {cv::KeyPoint(80, 60, 40, 45), cv::KeyPoint(120, 30, 30, 10)};
  formats::impKeyPoints(p / "k.xml", {k1[0], k1[1], cv::KeyPoint(20, 100, 12, 0)});
  formats::impKeyPoints(p / "k0.xml", {});
  formats::impMatch({cv::DMatch(0, 0, 1.0f), cv::DMatch(1, 1, 2.0f)}, k1, k2, p / "m2.txt");
  teste::salvaMat33(cv::Matx33d::eye(), p / "id.txt");
}

// The grey input in colour with colour marks over it, MatShow's two images
// side by side; with no keypoint, exactly the input in colour.
TEST(DisplayImagens, TamanhoEMarcas) {
  cv::Mat entrada;
  cv::cvtColor(teste::textura(120, 160, 3), entrada, cv::COLOR_GRAY2BGR);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"keyshow", "img1.png", "k.xml", "s.png"}, {"KEYSHOW", "img1.png", "k.xml", "s.png", "N"},
           {"keymyshow", "img1.png", "k.xml", "s.png"}, {"keyshow", "img1.png", "k0.xml", "s.png"},
           {"keymyshow", "img1.png", "k0.xml", "s.png"}, {"matshow", "img1.png", "img2.png", "m2.txt", "s.png"},
           {"matmyshow", "img1.png", "img2.png", "m2.txt", "s.png"}}) {
    SCOPED_TRACE(testing::PrintToString(args));
    teste::PastaTemp pasta;
    criaArquivos(pasta);
    EXPECT_EQ(teste::rodaBem(args, pasta.caminho()), "");
    const cv::Mat s = cv::imread(pasta / "s.png", cv::IMREAD_UNCHANGED);
    ASSERT_EQ(s.type(), CV_8UC3);
    EXPECT_EQ(s.size(), cv::Size(args[0].find("mat") == 0 ? 300 : 160, 120));
    int coloridos = 0;
    for (const cv::Vec3b& px : cv::Mat_<cv::Vec3b>(s)) coloridos += px[0] != px[1] || px[1] != px[2];
    EXPECT_EQ(coloridos > 0, args[2] != "k0.xml");
    EXPECT_TRUE(args[2] != "k0.xml" || cv::norm(s, entrada, cv::NORM_INF) == 0);
  }
}

// xwd's dump of a window of Xvfb's 24-bit screen (32-bit pixels, blue in
// the low byte, least significant byte first) as a BGR image; empty if the
// file is anything else.
cv::Mat_<cv::Vec3b> leXwd(const std::string& arquivo) {
  const std::string b = teste::leTexto(arquivo);
  const auto campo = [&](size_t i) {
    const auto* p = reinterpret_cast<const unsigned char*>(b.data()) + 4 * i;
    return b.size() < 4 * i + 4 ? 0u : uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
  };
  const size_t inicio = campo(0) + size_t(campo(19)) * 12, porLinha = campo(12), altura = campo(5);
  cv::Mat_<cv::Vec3b> img;
  if (campo(2) == 2 && campo(7) == 0 && campo(11) == 32 && campo(14) == 0xff0000 && campo(16) == 0xff &&
      altura < 10000 && b.size() >= inicio + porLinha * altura)
    cv::cvtColor(cv::Mat(int(altura), int(campo(4)), CV_8UC4, const_cast<char*>(b.data() + inicio), porLinha), img,
                 cv::COLOR_BGRA2BGR);
  return img;
}

// Green and red pixels.
std::pair<int, int> contaMarcas(const cv::Mat_<cv::Vec3b>& img) {
  std::pair<int, int> c;
  for (const cv::Vec3b& p : img) {
    c.first += p[1] > 200 && p[0] < 60 && p[2] < 60;
    c.second += p[2] > 200 && p[0] < 60 && p[1] < 60;
  }
  return c;
}

// One private X server for the suite, its display name ("" if it did not
// start): -displayfd makes it pick a free number and print it once it
// accepts clients. Killed with the test program.
const std::string& tela() {
  static teste::Processo xvfb(
      {"Xvfb", "-displayfd", "1", "-screen", "0", "800x600x24", "-nolisten", "tcp", "-noreset"});
  static const std::string nome = [] {
    for (int i = 0; i < 150 && xvfb.lido().out.find('\n') == std::string::npos; ++i) xvfb.espera(0.1);
    const std::string n = xvfb.lido().out;
    return n.find('\n') == std::string::npos ? "" : ":" + n.substr(0, n.find('\n'));
  }();
  return nome;
}

TEST(MatVisJanela, UmCasamentoPorTeclaVerdeDepoisVermelhoEsc) {
  ASSERT_FALSE(tela().empty()) << "Xvfb nao iniciou; instale xvfb, xdotool e x11-apps (scripts/install-deps)";
  teste::PastaTemp pasta;
  criaArquivos(pasta);
  // Qt wants a private runtime folder; without one it warns on stderr.
  const std::map<std::string, std::string> ambiente = {{"DISPLAY", tela()}, {"XDG_RUNTIME_DIR", pasta.caminho()}};
  // An X client to its end; its stdout, or "<falhou>".
  const auto x = [&](const std::vector<std::string>& args) {
    teste::Processo p(args, pasta.caminho(), ambiente);
    const bool terminou = p.espera(15);
    const teste::Execucao e = p.fim();
    return terminou && e.status == 0 ? e.out : "<falhou>" + e.err;
  };
  // Screenshots until one shows more than 20 pixels of the mark wanted (at most about 10 s).
  const auto fotografa = [&](const std::string& janela, bool verde) {
    std::pair<int, int> c;
    for (int i = 0; i < 100 && (verde ? c.first : c.second) <= 20; ++i) {
      if (x({"xwd", "-silent", "-id", janela, "-out", "tela.xwd"}).rfind("<falhou>", 0) != 0)
        c = contaMarcas(leXwd(pasta / "tela.xwd"));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return c;
  };
  const auto tecla = [&](const std::string& janela, const std::string& nome) {
    EXPECT_EQ(x({"xdotool", "windowfocus", "--sync", janela}), "");
    EXPECT_EQ(x({"xdotool", "key", nome}), "");
  };

  teste::Processo mv({QUIVELAR_BIN, "matvis", "img1.png", "img2.png", "m2.txt", "id.txt"}, pasta.caminho(), ambiente);
  const std::string busca = x({"xdotool", "search", "--sync", "--name", "^janela$"});
  const std::string janela = busca.substr(0, busca.find('\n'));
  ASSERT_FALSE(janela.empty() || janela[0] == '<') << busca << mv.lido().err;
  const auto [verdes, vermelhos] = fotografa(janela, true);
  EXPECT_GT(verdes, 20);
  EXPECT_LT(vermelhos, 5);
  tecla(janela, "space");
  const auto [verdes2, vermelhos2] = fotografa(janela, false);
  EXPECT_GT(vermelhos2, 20);
  EXPECT_LT(verdes2, 5);
  ASSERT_FALSE(mv.espera(0.3)) << "MatVis terminou antes do Esc";
  tecla(janela, "Escape");
  ASSERT_TRUE(mv.espera(10)) << "MatVis nao terminou";
  const teste::Execucao e = mv.fim();
  EXPECT_EQ(e.status, 0) << e.err;
  EXPECT_EQ(teste::semTempo(e.out), "Aperte ESC para sair\n");
  EXPECT_EQ(e.err, "");
}

}  // namespace
