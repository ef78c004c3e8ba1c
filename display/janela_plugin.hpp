// The window plug-in (libquivelar_janela.so): OpenCV's highgui behind three
// C functions, loaded only by MatVis, the one tool that opens a window.
#pragma once

#include <opencv2/core.hpp>

extern "C" {
// A resizable window named `nome`.
using AbreJanela = void (*)(const char* nome);
// Shows `imagem` and waits for a key: its code, or kJanelaFechada when the
// user closed the window (every later wait would return at once).
using MostraEEspera = int (*)(const char* nome, const cv::Mat* imagem);
using FechaJanelas = void (*)();
}

constexpr const char* kPluginJanela = "libquivelar_janela.so";
constexpr int kJanelaFechada = -2;
