// The posed-dataset readers on arbitrary bytes. The first byte chooses the
// layout (its value mod 3: a SuperGlue pair list, a glue-factory scene, a
// COLMAP model); the rest, cut at NUL bytes, fills that layout's files in
// order (views.txt, pairs.txt; cameras.txt, images.txt, pairs.txt). No image
// is opened, so none is written.
//
// A tvm::Erro is the one way to refuse. What is accepted must be the ground
// truth the header promises: at least one pair, finite cameras, K upper
// triangular with positive focal lengths, R a rotation, and so too once the
// images are turned; anything else aborts.
#include "datasets/posados.hpp"
#include "tests/fuzz/fuzz_comum.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

namespace {

bool finitos(const double* v, int n) {
  for (int k = 0; k < n; ++k)
    if (!std::isfinite(v[k])) return false;
  return true;
}

bool camerasBoas(const measures::Cameras& c) {
  for (const cv::Matx33d& K : {c.K0, c.K1})
    if (!finitos(K.val, 9) || !(K(0, 0) > 0 && K(1, 1) > 0) || K(1, 0) != 0 || K(2, 0) != 0 || K(2, 1) != 0 ||
        K(2, 2) != 1)
      return false;
  return finitos(c.R.val, 9) && finitos(c.t.val, 3) && cv::norm(c.R.t() * c.R - cv::Matx33d::eye()) < 1e-3 &&
         std::fabs(cv::determinant(c.R) - 1) < 1e-3;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char* const kArquivos[3][3] = {
      {"lista.txt"}, {"views.txt", "pairs.txt"}, {"cameras.txt", "images.txt", "pairs.txt"}};
  if (size == 0) return 0;
  const int layout = data[0] % 3;
  const std::string pasta = "/tmp/quivelar-fuzz-" + std::to_string(::getpid()) + "-posados" + std::to_string(layout);
  ::mkdir(pasta.c_str(), 0777);
  const std::string texto(reinterpret_cast<const char*>(data + 1), size - 1);
  size_t i = 0;
  for (const char* nome : kArquivos[layout]) {
    if (!nome) break;
    const size_t fim = layout == 0 ? texto.size() : std::min(texto.find('\0', i), texto.size());
    std::ofstream(pasta + "/" + nome, std::ios::binary) << texto.substr(i, fim - i);
    i = std::min(fim + 1, texto.size());
  }
  fuzz::aceitaErro([&] {
    const auto pares = datasets::leDatasetPosado(layout == 0 ? pasta + "/lista.txt" : pasta);
    if (pares.empty()) __builtin_trap();
    for (const datasets::ParPosado& p : pares) {
      if (p.giro0 < 0 || p.giro0 > 3 || p.giro1 < 0 || p.giro1 > 3 || !camerasBoas(p.cameras) ||
          !camerasBoas(datasets::camerasGiradas(p, cv::Size(640, 480), cv::Size(3, 5))))
        __builtin_trap();
    }
  });
  return 0;
}
