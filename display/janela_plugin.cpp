// Built as libquivelar_janela.so; loaded by MatVis.
#include "display/janela_plugin.hpp"

#include <opencv2/highgui.hpp>

extern "C" void quivelarAbreJanela(const char* nome) { cv::namedWindow(nome, cv::WINDOW_NORMAL); }

extern "C" int quivelarMostraEEspera(const char* nome, const cv::Mat* imagem) {
  cv::imshow(nome, *imagem);
  const int tecla = cv::waitKey(0);
  if (cv::getWindowProperty(nome, cv::WND_PROP_VISIBLE) < 1) return kJanelaFechada;
  return tecla;
}

extern "C" void quivelarFechaJanelas() { cv::destroyAllWindows(); }
