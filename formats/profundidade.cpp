#include "formats/profundidade.hpp"

#include "formats/hdf5.hpp"
#include "support/erro.hpp"
#include "support/filho.hpp"

#include <hdf5.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace formats {

namespace {

// Rows and columns, then the floats: how the child hands the map back.
std::string leAqui(const std::string& arquivo) {
  const H5 h(arquivo);
  const std::string onde = arquivo + " (depth)";
  if (!h.tem("depth")) tvm::erro("Erro: dataset depth ausente em ", arquivo);
  if (h.info("depth").forma.size() != 2) tvm::erro("Erro: profundidade deve ser H x W em ", onde);
  const cv::Mat d = h.le("depth", CV_32F);
  if (d.empty()) tvm::erro("Erro: profundidade vazia em ", onde);
  for (int y = 0; y < d.rows; ++y)
    for (int x = 0; x < d.cols; ++x)
      if (!(d.at<float>(y, x) >= 0) || !std::isfinite(d.at<float>(y, x)))
        tvm::erro("Erro: profundidade negativa ou nao finita em ", onde);
  std::string s(2 * sizeof(int32_t) + d.total() * sizeof(float), '\0');
  const int32_t forma[2] = {d.rows, d.cols};
  std::memcpy(&s[0], forma, sizeof forma);
  std::memcpy(&s[sizeof forma], d.data, d.total() * sizeof(float));
  return s;
}

}  // namespace

cv::Mat_<float> leProfundidade(const std::string& arquivo) {
  const std::string s = tvm::emFilho([&] { return leAqui(arquivo); }, "a leitura de " + arquivo);
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
  if (d.empty()) tvm::erro("Erro: profundidade vazia para ", saida.destino());
  const cv::Mat_<float> c = d.isContinuous() ? d : d.clone();
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  const hsize_t forma[2] = {static_cast<hsize_t>(c.rows), static_cast<hsize_t>(c.cols)};
  // Each handle is closed whatever failed before it; one failure of any
  // step fails the file.
  const hid_t f = H5Fcreate(saida.temporario().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  const hid_t espaco = f < 0 ? -1 : H5Screate_simple(2, forma, nullptr);
  const hid_t ds = espaco < 0 ? -1
                              : H5Dcreate2(f, "depth", H5T_IEEE_F32LE, espaco, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  bool ok = ds >= 0 && H5Dwrite(ds, H5T_NATIVE_FLOAT, H5S_ALL, H5S_ALL, H5P_DEFAULT, c.ptr<float>()) >= 0;
  if (ds >= 0) ok = H5Dclose(ds) >= 0 && ok;
  if (espaco >= 0) ok = H5Sclose(espaco) >= 0 && ok;
  if (f >= 0) ok = H5Fclose(f) >= 0 && ok;
  if (!ok) tvm::erro("Erro: falha ao gravar ", saida.destino());
}

}  // namespace formats
