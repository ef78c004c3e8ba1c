// The only tool that opens a window; the window library comes from our
// plug-in (display/janela_plugin.hpp), loaded only here.
#include "display/tools.hpp"
#include "display/desenhos.hpp"
#include "display/janela_plugin.hpp"

#include "formats/transform.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/plugin.hpp"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const char* const kJanela = "janela";
constexpr int kEsc = 27;

// OpenCV's Qt window library aborts the whole process when it cannot reach
// the X server, so ask the server first through libxcb (always present where
// that library runs), loaded by name so that building needs no X headers.
void exigeTela() {
  const char* tela = std::getenv("DISPLAY");
  if (tela == nullptr || *tela == '\0')
    tvm::erro("Erro: MatVis precisa de uma tela grafica e a variavel DISPLAY nao esta definida");
  void* xcb = ::dlopen("libxcb.so.1", RTLD_LAZY | RTLD_LOCAL);
  if (xcb == nullptr) return;  // cannot ask; the window library will try
  using Conecta = void* (*)(const char*, int*);
  using TemErro = int (*)(void*);
  using Desconecta = void (*)(void*);
  const auto conecta = reinterpret_cast<Conecta>(::dlsym(xcb, "xcb_connect"));
  const auto temErro = reinterpret_cast<TemErro>(::dlsym(xcb, "xcb_connection_has_error"));
  const auto desconecta = reinterpret_cast<Desconecta>(::dlsym(xcb, "xcb_disconnect"));
  if (conecta == nullptr || temErro == nullptr || desconecta == nullptr) return;
  void* conexao = conecta(tela, nullptr);
  const bool falhou = temErro(conexao) != 0;
  desconecta(conexao);
  if (falhou) tvm::erro("Erro: nao foi possivel abrir a tela grafica DISPLAY=", tela);
}

}  // namespace

void MatVis(int argc, char** argv) {
  if (argc != 5 && argc != 6)
    tvm::falhaUso({"MatVis: Mostra um a um os casamentos, tendo matriz 3x3",
                   "MatVis img1.pgm img2.pgm match.txt mat33.txt [a/e/t]",
                   "  Acerto: quando distancia(inv(mat33)*k2,k1)<=15",
                   "  a: so acertos, e: so erros, t: todos(default)"});
  std::puts("Aperte ESC para sair");
  std::fflush(stdout);
  cv::Mat_<uchar> img1, img2;
  tvm::le(img1, argv[1]);
  tvm::le(img2, argv[2]);
  const formats::Casamentos casamentos = formats::leCasamentos(argv[3]);
  const std::vector<bool> certos = formats::julgaComArquivo(casamentos, argv[4], display::kToleranciaVis);
  const display::ModoVis modo = display::modoVis(argc == 6 ? argv[5] : "t");

  exigeTela();
  const auto abre = tvm::funcaoPlugin<AbreJanela>(kPluginJanela, "quivelarAbreJanela");
  const auto mostra = tvm::funcaoPlugin<MostraEEspera>(kPluginJanela, "quivelarMostraEEspera");
  const auto fecha = tvm::funcaoPlugin<FechaJanelas>(kPluginJanela, "quivelarFechaJanelas");
  abre(kJanela);
  const cv::Mat_<cv::Vec3b> tela = display::telaVis(img1, img2);
  for (const display::CasamentoVis& v : display::casamentosVisiveis(certos, modo)) {
    const cv::Mat quadro = display::quadroVis(tela, img1.rows, casamentos.keypoints1[v.indice],
                                              casamentos.keypoints2[v.indice], v.correto);
    const int tecla = mostra(kJanela, &quadro);
    if (tecla == kEsc || tecla == kJanelaFechada) break;
  }
  fecha();
}
