#include "formats/profundidade.hpp"

#include "formats/externos_plugin.hpp"
#include "support/erro.hpp"
#include "support/plugin.hpp"

namespace formats {

void escreveProfundidade(const cv::Mat_<float>& d, tvm::SaidaSegura& saida) {
  const EscreveProfundidade f = externos().escreveProfundidade;
  const cv::Mat m = d;
  std::string erro;
  if (!f(&m, saida.temporario().c_str(), saida.destino().c_str(), &erro)) throw tvm::Erro(erro);
}

}  // namespace formats
