#include "formats/profundidade.hpp"

#include "formats/externos_plugin.hpp"
#include "support/erro.hpp"
#include "support/filho.hpp"
#include "support/plugin.hpp"

#include <cstdint>
#include <cstring>

namespace formats {

cv::Mat_<float> leProfundidade(const std::string& arquivo) {
  const LeProfundidade f = externos().profundidade;
  const std::string s = tvm::emFilho(
      [&] {
        std::string bytes, erro;
        if (!f(arquivo.c_str(), &bytes, &erro)) throw tvm::Erro(erro);
        return bytes;
      },
      "a leitura de " + arquivo);
  int32_t forma[2];
  if (s.size() < sizeof forma) tvm::erro("Erro: resposta truncada do leitor de HDF5");
  std::memcpy(forma, s.data(), sizeof forma);
  if (forma[0] <= 0 || forma[1] <= 0 ||
      s.size() - sizeof forma != static_cast<size_t>(forma[0]) * static_cast<size_t>(forma[1]) * sizeof(float))
    tvm::erro("Erro: resposta truncada do leitor de HDF5");
  cv::Mat_<float> d(forma[0], forma[1]);
  std::memcpy(d.data, s.data() + sizeof forma, s.size() - sizeof forma);
  return d;
}

void escreveProfundidade(const cv::Mat_<float>& d, tvm::SaidaSegura& saida) {
  const EscreveProfundidade f = externos().escreveProfundidade;
  const cv::Mat m = d;
  std::string erro;
  if (!f(&m, saida.temporario().c_str(), saida.destino().c_str(), &erro)) throw tvm::Erro(erro);
}

}  // namespace formats
