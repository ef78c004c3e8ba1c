// The plug-in libquivelar_externos.so: the readers of other programs' files
// that need libzip and libhdf5. Linked into the program, those two libraries
// brought 32 more shared libraries (curl, ssl, kerberos...) and doubled the
// start of every tool; as a plug-in they load only when such a file is read.
// Failures come back as a message (false and *erro), never as an exception.
#pragma once

#include "formats/externos.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

extern "C" {
using LeD2Net = bool (*)(const char* arquivo, float tamanho, formats::Caracteristicas* c, std::string* erro);
using LeHloc = bool (*)(const char* arquivo, const char* imagem, float tamanho, formats::Caracteristicas* c,
                        std::string* erro);
using LeHlocCasamentos = bool (*)(const char* arquivo, const char* nome0, const char* nome1, size_t n0, size_t n1,
                                  std::vector<cv::DMatch>* m, std::string* erro);
using LeSuperGlue = bool (*)(const char* arquivo, float tamanho, formats::CasamentosDados* c, std::string* erro);
// The depth map as rows, columns (int32) and the floats.
using LeProfundidade = bool (*)(const char* arquivo, std::string* bytes, std::string* erro);
using EscreveProfundidade = bool (*)(const cv::Mat* d, const char* temporario, const char* destino, std::string* erro);
}

constexpr const char* kPluginExternos = "libquivelar_externos.so";

namespace formats {

// The plug-in's entry points, loaded and resolved once, on the first call
// (a sweep makes it before its workers start). Its HDF5 readers are called
// by the reader helper, quivelar-leitor (formats/leitor.hpp), not here.
struct Externos {
  LeD2Net d2net;
  LeHloc hloc;
  LeHlocCasamentos hlocCasamentos;
  LeSuperGlue superGlue;
  LeProfundidade profundidade;
  EscreveProfundidade escreveProfundidade;
};
const Externos& externos();

}  // namespace formats
