// How long our own readers and writers take on given files, for the share of
// store input and output in a tool's run: median of five reads, and of five
// writes of what was read into a scratch file beside /tmp.
//
//   es_stores arquivo...   (stores .xml/.yml[.gz]; match files .txt; images .png/.bmp)
// prints per file: "<arquivo> <leitura ms> <escrita ms>"; for an image, the
// size from its header and the whole decode instead.
#include "formats/match_file.hpp"
#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

double medianaMs(const std::function<void()>& passo) {
  std::vector<double> ms;
  for (int i = 0; i < 5; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    passo();
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
  }
  std::nth_element(ms.begin(), ms.begin() + 2, ms.end());
  return ms[2];
}

bool terminaCom(const std::string& s, const std::string& fim) {
  return s.size() >= fim.size() && s.compare(s.size() - fim.size(), fim.size(), fim) == 0;
}

// The scratch file keeps the extension, so the writer uses the same format.
std::string rascunho(const std::string& arquivo) {
  const size_t barra = arquivo.find_last_of('/');
  const std::string nome = barra == std::string::npos ? arquivo : arquivo.substr(barra + 1);
  return "/tmp/es_stores-" + std::to_string(::getpid()) + "-" + nome;
}

void mede(const std::string& arquivo) {
  const std::string saida = rascunho(arquivo);
  double le = 0, grava = 0;
  if (terminaCom(arquivo, ".png") || terminaCom(arquivo, ".bmp")) {
    cv::Mat_<uchar> imagem;
    le = medianaMs([&] { tvm::tamanho(arquivo); });
    grava = medianaMs([&] { tvm::le(imagem, arquivo); });
  } else if (terminaCom(arquivo, ".txt")) {
    std::vector<cv::DMatch> m;
    std::vector<cv::KeyPoint> k1, k2;
    le = medianaMs([&] { formats::leMatch(m, k1, k2, arquivo); });
    grava = medianaMs([&] { formats::impMatch(m, k1, k2, saida); });
  } else {
    std::vector<cv::KeyPoint> k;
    cv::Mat d;
    le = medianaMs([&] { formats::leDescritores(arquivo, k, d); });
    if (d.empty())
      grava = medianaMs([&] { formats::impKeyPoints(saida, k); });
    else
      grava = medianaMs([&] { formats::impDescritores(saida, k, d); });
  }
  std::remove(saida.c_str());
  std::printf("%s %.2f %.2f\n", arquivo.c_str(), le, grava);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("uso: es_stores arquivo...\n", stderr);
    return 2;
  }
  try {
    for (int i = 1; i < argc; ++i) mede(argv[i]);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
