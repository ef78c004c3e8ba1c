#include "evaluation/curvas.hpp"
#include "evaluation/tools.hpp"

#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <string>
#include <vector>

void SobrROC(int argc, char** argv) {
  if (argc < 3) tvm::falhaUso({"SobrROC sai.ppm r1.png r2.png ..."});
  std::vector<std::string> nomes;
  for (int i = 2; i < argc; ++i) tvm::vsWildCard(argv[i], nomes, false);
  // Patterns that matched nothing leave no canvas: report the first as missing.
  if (nomes.empty()) tvm::erro("Erro abertura arquivo ", argv[2]);

  cv::Mat_<cv::Vec3b> tela;
  tvm::le(tela, nomes[0]);
  for (size_t i = 1; i < nomes.size(); ++i) {
    cv::Mat_<cv::Vec3b> img;
    tvm::le(img, nomes[i]);
    evaluation::sobrepoe(tela, img);
  }
  tvm::imp(tela, argv[1]);
}
