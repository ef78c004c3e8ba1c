// The HDF5 reader on files written by h5py itself (Debian's python3-h5py).
#include "formats/hdf5.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

// Runs `codigo` with h5py and NumPy imported and `d` the test's folder.
void python(const teste::PastaTemp& pasta, const std::string& codigo) {
  teste::escreveTexto(pasta / "gera.py", "import sys, zlib, h5py, numpy as np\nd = sys.argv[1]\n" + codigo);
  const std::string comando = "/usr/bin/python3 '" + pasta / "gera.py" + "' '" + pasta.caminho() + "'";
  ASSERT_EQ(std::system(comando.c_str()), 0) << codigo;
}

size_t descritoresAbertos() {
  const std::filesystem::directory_iterator fds("/proc/self/fd");
  return static_cast<size_t>(std::distance(fds, std::filesystem::directory_iterator()));
}

// Element k of every dataset below, on both sides.
double valor(const std::string& tipo, int k) {
  const double v = k * 37 % 101 - (tipo[1] == 'u' ? 0 : 50);
  return tipo[1] == 'f' ? v / 4 : v;
}

const char* const kTipos[] = {"<f2", "<f4", "<f8", ">f8", "|u1", "|i1", "<i2", "<u2", "<i4", "<u4", "<i8", "<u8"};

// Every type x rank x storage, read into every matrix type: equal to what
// h5py wrote when the values survive, refused when they would not.
TEST(H5, TiposFormasEArmazenamentos) {
  teste::PastaTemp pasta;
  python(pasta,
         "with h5py.File(d + '/t.h5', 'w') as f:\n"
         "  for t in ['<f2', '<f4', '<f8', '>f8', '|u1', '|i1', '<i2', '<u2', '<i4', '<u4', '<i8', '<u8']:\n"
         "    for forma in [(), (7,), (5, 3)]:\n"
         "      k = np.arange(int(np.prod(forma))).reshape(forma)\n"
         "      v = k * 37 % 101 - (0 if t[1] == 'u' else 50)\n"
         "      v = v / 4 if t[1] == 'f' else v\n"
         "      for gz in [0, 1] if forma else [0]:\n"
         "        f.create_dataset(f'{t}/{len(forma)}/{gz}', data=np.array(v, dtype=t),\n"
         "                         chunks=(2,) * len(forma) if gz else None, compression='gzip' if gz else None)\n");
  const formats::H5 h(pasta / "t.h5");
  const std::vector<int64_t> formas[] = {{}, {7}, {5, 3}};
  for (const std::string tipo : kTipos)
    for (int rank = 0; rank < 3; ++rank)
      for (int gz = 0; gz < (rank ? 2 : 1); ++gz) {
        const std::string caminho = tipo + "/" + std::to_string(rank) + "/" + std::to_string(gz);
        SCOPED_TRACE(caminho);
        const formats::InfoArranjo info = h.info(caminho);
        EXPECT_EQ(info.forma, formas[rank]);
        EXPECT_EQ(info.tipo, tipo);
        const int linhas = rank ? static_cast<int>(formas[rank][0]) : 1, colunas = rank == 2 ? 3 : 1;
        cv::Mat esperada(linhas, colunas, CV_64F);
        for (int k = 0; k < linhas * colunas; ++k) esperada.at<double>(k) = valor(tipo, k);
        for (const int cv : {CV_8U, CV_32S, CV_32F, CV_64F}) {
          const bool real = tipo[1] == 'f', inteiro = cv == CV_8U || cv == CV_32S;
          if ((real && inteiro) || (tipo[1] == 'i' && cv == CV_8U)) {
            const std::string mensagem = teste::mensagemDe([&] { h.le(caminho, cv); });
            EXPECT_EQ(mensagem.rfind("Erro: conversao com perda para ", 0), 0u) << cv;
            continue;
          }
          const cv::Mat m = h.le(caminho, cv);
          ASSERT_EQ(m.type(), cv);
          ASSERT_EQ(m.size(), esperada.size());
          cv::Mat lida;
          m.convertTo(lida, CV_64F);
          EXPECT_EQ(cv::norm(lida, esperada, cv::NORM_INF), 0.0) << cv;
        }
      }
}

// hloc's layout: image names with '/' as nested groups, written as hloc
// writes them (libver='latest'); a soft link is not followed.
TEST(H5, NomesAninhadosEFilhos) {
  teste::PastaTemp pasta;
  python(pasta,
         "with h5py.File(d + '/f.h5', 'w', libver='latest') as f:\n"
         "  for n in ['i_ajuntament/1.ppm', 'i_ajuntament/2.ppm', 'v_home/1.ppm']:\n"
         "    f[n + '/keypoints'] = np.zeros((4, 2), 'f4')\n"
         "    f[n + '/descriptors'] = np.zeros((8, 4), 'f4')\n"
         "  f['v_home/2.ppm/keypoints'] = np.zeros((0, 2), 'f4')\n"
         "  f['i_ajuntament-1.ppm/i_ajuntament-2.ppm/matches0'] = np.array([1, -1, 0], 'i2')\n"
         "  f['atalho'] = h5py.SoftLink('/v_home')\n");
  const std::string arquivo = pasta / "f.h5";
  ::testing::internal::CaptureStderr();
  const formats::H5 h(arquivo);
  const struct {
    const char* caminho;
    bool dataset, grupo;
  } casos[] = {{"", false, true}, {"/", false, true}, {"i_ajuntament/1.ppm", false, true},
               {"i_ajuntament/1.ppm/keypoints", true, false}, {"/i_ajuntament//2.ppm/descriptors/", true, false},
               {"i_ajuntament/9.ppm/keypoints", false, false}, {"i_ajuntament/1.ppm/keypoints/x", false, false},
               {"atalho/1.ppm/keypoints", false, false}, {"atalho", false, false}};
  for (const auto& c : casos) {
    EXPECT_EQ(h.tem(c.caminho), c.dataset) << c.caminho;
    EXPECT_EQ(h.temGrupo(c.caminho), c.grupo) << c.caminho;
  }
  using Nomes = std::vector<std::string>;
  EXPECT_EQ(h.filhos(""), (Nomes{"i_ajuntament", "i_ajuntament-1.ppm", "v_home"}));
  EXPECT_EQ(h.filhos("/i_ajuntament"), (Nomes{"1.ppm", "2.ppm"}));
  EXPECT_EQ(h.filhos("v_home/1.ppm"), (Nomes{"descriptors", "keypoints"}));
  EXPECT_EQ(h.le("v_home/2.ppm/keypoints", CV_32F).size(), cv::Size(2, 0));  // an image without keypoints
  EXPECT_EQ(teste::mensagemDe([&] { h.filhos("v_home/1.ppm/keypoints"); }),
            "Erro: grupo ausente em " + arquivo + " (v_home/1.ppm/keypoints)");
  const cv::Mat m = h.le("i_ajuntament-1.ppm/i_ajuntament-2.ppm/matches0", CV_32S);
  EXPECT_EQ(std::vector<int>(m), (std::vector<int>{1, -1, 0}));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// Files and datasets the reader refuses, each with one message naming the
// file and the path, nothing from HDF5 on stderr and no handle left open.
TEST(H5, EntradasHostisParamComMensagem) {
  teste::PastaTemp pasta;
  python(pasta,
         "open(d + '/texto.h5', 'w').write('nao sou hdf5')\n"
         "open(d + '/vazio.h5', 'w')\n"
         "with h5py.File(d + '/r.h5', 'w') as f:\n"
         "  f['g/x'] = np.zeros(3)\n"
         "  f['rank3'] = np.zeros((2, 2, 2), 'f4')\n"
         "  f['texto'] = 'abc'\n"
         "  f['i8'] = np.array([2**40, 1])\n"
         "  for t, v in [('u4', 2**32 - 1), ('i4', 2**24 + 1), ('u8', 2**64 - 1)]: f[t] = np.array([0, v], t)\n"
         "  f['f8'] = np.array([1e300])\n"
         "  f.create_dataset('zeros', data=np.zeros(2 * 10**6, 'u1'), chunks=(10**5,), compression='gzip')\n"
         "  f.create_dataset('enorme', shape=(10**6, 10**6), dtype='f4', chunks=(100, 100), compression='gzip')\n"
         "  f.create_dataset('pedaco', shape=(10,), maxshape=(None,), dtype='u1', chunks=(2 * 10**6,))\n"
         "  f.create_dataset('lzf', data=np.zeros(10), compression='lzf')\n"
         "  f.create_dataset('externo', data=np.zeros(4, 'u1'), external=[(d + '/fora', 0, 4)])\n"
         "  f.create_dataset('bomba', shape=(1000,), dtype='u1', chunks=(1000,), compression='gzip')\n"
         "  f['bomba'].id.write_direct_chunk((0,), zlib.compress(bytes(3 * 10**6)))\n"
         "open(d + '/truncado.h5', 'wb').write(open(d + '/r.h5', 'rb').read()[:3000])\n");
  const std::string limite = " MB (QUIVELAR_MAX_STORE_MB muda o limite)";
  const struct {
    const char *arquivo, *caminho;
    int tipo;
    std::string esperada;  // @ stands for the file's name
    const char* limiteMb = nullptr;
  } casos[] = {
      {"falta.h5", "x", CV_32F, "Erro abertura arquivo @"},
      {"texto.h5", "x", CV_32F, "Erro abertura arquivo @"},
      {"vazio.h5", "x", CV_32F, "Erro abertura arquivo @"},
      {"truncado.h5", "g/x", CV_32F, "Erro abertura arquivo @"},
      {"r.h5", "g/nada", CV_32F, "Erro: dataset ausente em @ (g/nada)"},
      {"r.h5", "nada/x", CV_32F, "Erro: dataset ausente em @ (nada/x)"},
      {"r.h5", "g", CV_32F, "Erro: objeto nao e dataset em @ (g)"},
      {"r.h5", "g/x", CV_16S, "Erro: tipo de matriz pedido invalido para @ (g/x)"},
      {"r.h5", "rank3", CV_32F, "Erro: forma nao suportada em @ (rank3)"},
      {"r.h5", "texto", CV_8U, "Erro: tipo de dataset nao suportado em @ (texto)"},
      {"r.h5", "i8", CV_32S, "Erro: conversao com perda para int32 em @ (i8)"},
      {"r.h5", "u4", CV_32S, "Erro: conversao com perda para int32 em @ (u4)"},
      {"r.h5", "i4", CV_32F, "Erro: conversao com perda para float32 em @ (i4)"},
      {"r.h5", "u8", CV_64F, "Erro: conversao com perda para float64 em @ (u8)"},
      {"r.h5", "f8", CV_32F, "Erro: conversao com perda para float32 em @ (f8)"},
      {"r.h5", "zeros", CV_8U, "Erro: dataset @ (zeros) passa do limite de 1" + limite, "1"},
      {"r.h5", "enorme", CV_32F, "Erro: dataset @ (enorme) passa do limite de 512" + limite},
      {"r.h5", "pedaco", CV_8U, "Erro: dataset @ (pedaco) passa do limite de 1" + limite, "1"},
      {"r.h5", "lzf", CV_64F, "Erro: filtro nao suportado em @ (lzf)"},
      {"r.h5", "externo", CV_8U, "Erro: dados fora do arquivo em @ (externo)"},
      {"r.h5", "bomba", CV_8U, "Erro: leitura falhou em @ (bomba)", "1"},
  };
  const size_t abertos = descritoresAbertos();
  ::testing::internal::CaptureStderr();
  for (const auto& c : casos) {
    const std::string arquivo = pasta / c.arquivo, caminho = c.caminho;
    std::string esperada = c.esperada;
    esperada.replace(esperada.find('@'), 1, arquivo);
    if (c.limiteMb) ::setenv("QUIVELAR_MAX_STORE_MB", c.limiteMb, 1);
    EXPECT_EQ(teste::mensagemDe([&] { formats::H5(arquivo).le(caminho, c.tipo); }), esperada);
    ::unsetenv("QUIVELAR_MAX_STORE_MB");
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(descritoresAbertos(), abertos);
}

}  // namespace
