// The posed-dataset readers on small files in each of the three layouts.
#include "datasets/posados.hpp"
#include "formats/profundidade.hpp"
#include "support/limites.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>

#include <cstdlib>
#include <filesystem>
#include <map>

namespace {

enum Layout { kSuperGlue, kGlue, kColmap };

// Two cameras, world to camera, and K with the top-left pixel's centre at 0.
cv::Matx33d rodrigues(cv::Vec3d r) {
  cv::Matx33d R;
  cv::Rodrigues(r, R);
  return R;
}
const cv::Matx33d kR0 = rodrigues({0.1, -0.2, 0.05}), kR1 = rodrigues({-0.15, 0.25, 0.1});
const cv::Vec3d kT0(0.3, -0.1, 2), kT1(-0.5, 0.2, 1.5);
const cv::Matx33d kK0(500, 0, 320, 0, 510, 240, 0, 0, 1), kK1(600, 0, 300, 0, 600, 200, 0, 0, 1);

template <typename M>
std::string numeros(const M& m) {
  std::string s;
  char b[40];
  for (double v : m.val) s += (std::snprintf(b, sizeof b, " %.17g", v), b);
  return s;
}

std::string quaternio(const cv::Matx33d& R) {
  cv::Vec3d r;
  cv::Rodrigues(R, r);
  const double a = cv::norm(r);
  return numeros(cv::Vec4d(std::cos(a / 2), std::sin(a / 2) * r[0] / a, std::sin(a / 2) * r[1] / a,
                           std::sin(a / 2) * r[2] / a));
}

std::map<std::string, std::string> arquivos(Layout l) {
  const cv::Matx33d R = kR1 * kR0.t();
  const cv::Vec3d t = kT1 - R * kT0;
  const cv::Matx44d T(R(0, 0), R(0, 1), R(0, 2), t[0], R(1, 0), R(1, 1), R(1, 2), t[1], R(2, 0), R(2, 1), R(2, 2), t[2],
                      0, 0, 0, 1);
  const std::string cam0 = "PINHOLE 640 480 500 510 320.5 240.5", cam1 = " 640 480 600 300.5 200.5";
  switch (l) {
    case kSuperGlue:
      return {{"lista.txt", "\na.png b.png 0 0" + numeros(kK0) + numeros(kK1) + numeros(T) + "\n"}};
    case kGlue:
      return {{"views.txt", "a.png" + numeros(kR0) + numeros(kT0) + " " + cam0 + "\nb.png" + numeros(kR1) +
                                numeros(kT1) + " SIMPLE_PINHOLE" + cam1 + "\n"},
              {"pairs.txt", "a.png b.png\n"}};
    default:
      return {{"cameras.txt", "# CAMERA_ID MODEL WIDTH HEIGHT PARAMS[]\n1 " + cam0 + "\n2 SIMPLE_RADIAL" + cam1 + " 0\n"},
              {"images.txt", "# IMAGE_ID ...\n5" + quaternio(kR0) + numeros(kT0) + " 1 a.png\n10 20 -1 30.5 1 -1\n6" +
                                 quaternio(kR1) + numeros(kT1) + " 2 b.png\n\n"},
              {"pairs.txt", "# pares\na.png b.png\n"}};
  }
}

std::string escreve(const teste::PastaTemp& p, Layout l) {
  for (const auto& [nome, texto] : arquivos(l)) teste::escreveTexto(p / nome, texto);
  return l == kSuperGlue ? p / "lista.txt" : p.caminho();
}

// Same relative pose, cameras in the right fields, from every layout: a
// world point carried by camera 0 then the pair's pose lands where camera 1
// puts it.
TEST(Posados, PoseRelativaDeCadaLayout) {
  for (const Layout l : {kSuperGlue, kGlue, kColmap}) {
    SCOPED_TRACE(l);
    teste::PastaTemp p;
    const std::vector<datasets::ParPosado> pares = datasets::leDatasetPosado(escreve(p, l));
    ASSERT_EQ(pares.size(), 1u);
    const datasets::ParPosado& par = pares[0];
    EXPECT_EQ(par.imagem0, l == kSuperGlue ? p / "a.png" : p / "images/a.png");
    EXPECT_EQ(par.imagem1, l == kSuperGlue ? p / "b.png" : p / "images/b.png");
    EXPECT_LT(cv::norm(par.cameras.K0 - kK0, cv::NORM_INF), 1e-12);
    EXPECT_LT(cv::norm(par.cameras.K1 - kK1, cv::NORM_INF), 1e-12);
    for (const cv::Vec3d& X : {cv::Vec3d(0, 0, 0), cv::Vec3d(1, -2, 5), cv::Vec3d(-3, 0.5, 8)}) {
      const cv::Vec3d X1 = kR1 * X + kT1;
      EXPECT_LT(cv::norm(par.cameras.R * (kR0 * X + kT0) + par.cameras.t - X1), 1e-9);
    }
  }
}

// glue-factory's depth files, written by h5py as other programs write them.
TEST(Posados, ProfundidadeDeH5py) {
  teste::PastaTemp p;
  escreve(p, kGlue);
  std::filesystem::create_directory(p / "depths");
  const std::string comando = "/usr/bin/python3 -c \"import h5py, numpy as np; h5py.File('" + p / "depths/a.h5" +
                              "', 'w').create_dataset('depth', data=np.arange(12.0).reshape(3, 4) / 4)\"";
  ASSERT_EQ(std::system(comando.c_str()), 0);
  const datasets::ParPosado par = datasets::leDatasetPosado(p.caminho())[0];
  EXPECT_EQ(par.profundidade0, p / "depths/a.h5");
  EXPECT_EQ(par.profundidade1, "");
  const cv::Mat_<float> d = formats::leProfundidade(par.profundidade0);
  ASSERT_EQ(d.size(), cv::Size(4, 3));
  for (int k = 0; k < 12; ++k) EXPECT_EQ(d(k / 4, k % 4), k / 4.0f);
}

// Where cv::rotate takes point q of an image of size s turned g times: the
// marked nearest pixel, plus the rest turned as the image turns.
cv::Point2d girado(cv::Point2d q, cv::Size s, int g) {
  cv::Mat_<uchar> marca = cv::Mat_<uchar>::zeros(s);
  const cv::Point perto(cvRound(q.x), cvRound(q.y));
  marca(perto) = 1;
  cv::Point2d resto = q - cv::Point2d(perto);
  for (int k = 0; k < g; ++k) {
    cv::rotate(marca, marca, cv::ROTATE_90_COUNTERCLOCKWISE);
    resto = cv::Point2d(resto.y, -resto.x);
  }
  cv::Point onde;
  cv::minMaxLoc(marca, nullptr, nullptr, nullptr, &onde);
  return cv::Point2d(onde) + resto;
}

cv::Point2d projeta(const cv::Matx33d& K, const cv::Vec3d& X) {
  const cv::Vec3d x = K * X;
  return cv::Point2d(x[0] / x[2], x[1] / x[2]);
}

// A point seen in turned image 0, carried by the turned cameras, lands in
// turned image 1 where the turn takes its stored pixel, at the same depth.
TEST(Posados, GirosDoSuperGlue) {
  teste::PastaTemp p;
  datasets::ParPosado par = datasets::leDatasetPosado(escreve(p, kSuperGlue))[0];
  const cv::Size s0(640, 480), s1(600, 400);
  const cv::Vec3d X0(0.3, -0.2, 3), X1 = par.cameras.R * X0 + par.cameras.t;
  for (const auto& [g0, g1] : {std::pair{1, 0}, {0, 1}, {2, 3}, {3, 1}}) {
    par.giro0 = g0;
    par.giro1 = g1;
    const measures::Cameras c = datasets::camerasGiradas(par, s0, s1);
    const cv::Point2d q0 = girado(projeta(par.cameras.K0, X0), s0, g0);
    const cv::Vec3d X = c.R * (X0[2] * (c.K0.inv() * cv::Vec3d(q0.x, q0.y, 1))) + c.t;
    EXPECT_LT(cv::norm(projeta(c.K1, X) - girado(projeta(par.cameras.K1, X1), s1, g1)), 1e-9) << g0 << g1;
    EXPECT_NEAR(X[2], X1[2], 1e-12);
  }
}

struct Hostil {
  Layout layout;
  const char* arquivo;
  std::string texto;
  std::string mensagem;  // "" when it names no line
  int linha;
  const char* citado = nullptr;  // the file the message names, when not `arquivo`
};

TEST(Posados, ArquivosHostis) {
  const std::string K = " 500 0 320 0 510 240 0 0 1", I = " 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1";
  const std::string v = "a.png 1 0 0 0 1 0 0 0 1 0 0 0 PINHOLE 640 480 500 510 320 240\n";
  const std::string S = " 500 1.5 320 0 510 240 0 0 1", q = " 1 0 0 0 0 0 0 ", elf("\x7f" "ELF\x02\x01\x01\0\0\0", 10);
  const Hostil casos[] = {
      {kSuperGlue, "lista.txt", "a.png b.png 0 0" + K + K + " 1 0 0\n", "esperados 38 campos, lidos 25", 1},
      {kSuperGlue, "lista.txt", "\na.png b.png 0 0 nan" + K.substr(4) + K + I + "\n", "numero invalido nan", 2},
      {kSuperGlue, "lista.txt", "a.png b.png 4 0" + K + K + I + "\n", "inteiro invalido 4", 1},
      {kSuperGlue, "lista.txt", "a.png b.png 0 0 0" + K.substr(4) + K + I + "\n", "K singular ou invalida", 1},
      {kSuperGlue, "lista.txt", "a.png b.png 0 0" + K + K + " 1.01" + I.substr(2) + "\n", "matriz de rotacao invalida", 1},
      {kSuperGlue, "lista.txt", "a.png b.png 0 0" + K + K + " -1" + I.substr(2) + "\n", "matriz de rotacao invalida", 1},
      {kSuperGlue, "lista.txt", "a.png b.png 0 0" + K + K + I.substr(0, 24) + " 0 0 1 1\n", "T_0to1 sem ultima linha 0 0 0 1", 1},
      {kSuperGlue, "lista.txt", "\n\n", "", 0},
      {kSuperGlue, "lista.txt", "", "", 0},
      {kSuperGlue, "lista.txt", elf + "\n", "esperados 38 campos, lidos 1", 1},
      // A turn moves the skew below K's diagonal; unturned it is harmless.
      {kSuperGlue, "lista.txt", "a.png b.png 0 0" + S + S + I + "\nb.png a.png 0 2" + K + S + I + "\n",
       "K inclinada (skew != 0) numa imagem girada", 2},
      {kSuperGlue, "lista.txt", "../a.png b.png 0 0" + K + K + I + "\n", "nome de imagem fora da pasta ../a.png", 1},
      {kSuperGlue, "lista.txt", "a.png /b.png 0 0" + K + K + I + "\n", "nome de imagem fora da pasta /b.png", 1},
      {kSuperGlue, "lista.txt", std::string("a\0.png b.png 0 0", 17) + K + K + I + "\n", "byte nulo num nome de imagem",
       1},
      {kGlue, "views.txt", v + v, "nome repetido a.png", 2},
      {kGlue, "views.txt", v.substr(0, v.size() - 1) + " 3\n", "campos a mais", 1},
      {kGlue, "views.txt", "a.png 1 0 0 0 1 0 0 0 1 0 0 0 OPENCV 640 480 500 510 320 240 0 0 0 0\n",
       "modelo de camera desconhecido OPENCV", 1},
      {kGlue, "views.txt", "a.png 1 0 0 0 1 0 0 0 1 0 0 0 RADIAL 640 480 500 320 240 0 0.1\n",
       "distorcao radial nao suportada (k != 0)", 1},
      {kGlue, "views.txt", "a.png 1 0 0 0 1 0 0 0 1 0 0 0 PINHOLE 1000000000 480 500 510 320 240\n",
       "inteiro invalido 1000000000", 1},
      {kGlue, "views.txt", "a.png 1 0 0 0 1 0 0 0 1 0 0 0 PINHOLE 640 480 500\n", "campos faltando", 1},
      {kGlue, "pairs.txt", "a.png c.png\n", "imagem desconhecida c.png", 1},
      {kGlue, "views.txt", "", "imagem desconhecida a.png", 1, "pairs.txt"},
      {kGlue, "views.txt", elf, "byte nulo num nome de imagem", 1},
      {kGlue, "views.txt", "a.png 1 0 0 0 1 0 0 0 1 0 inf 0 PINHOLE 640 480 5 5 3 3\n", "numero invalido inf", 1},
      {kGlue, "views.txt", "s/../../a.png 1 0 0 0 1 0 0 0 1 0 0 0 PINHOLE 640 480 5 5 3 3\n",
       "nome de imagem fora da pasta s/../../a.png", 1},
      // Each translation finite, their difference not.
      {kGlue, "views.txt",
       "a.png 1 0 0 0 1 0 0 0 1 1e308 0 0 PINHOLE 640 480 5 5 3 3\n"
       "b.png 1 0 0 0 1 0 0 0 1 -1e308 0 0 PINHOLE 640 480 5 5 3 3\n",
       "translacao relativa nao finita", 1, "pairs.txt"},
      {kColmap, "cameras.txt", "1 PINHOLE 640 480 5 5 3 3\n1 PINHOLE 640 480 5 5 3 3\n", "camera repetida 1", 2},
      {kColmap, "images.txt", "5 1 0 0 0 0 0 0 7 a.png\n\n", "camera desconhecida 7", 1},
      {kColmap, "images.txt", "5 1 0.1 0 0 0 0 0 1 a.png\n\n", "quaternio nao unitario", 1},
      {kColmap, "images.txt", "5 0 0 0 0 0 0 0 1 a.png\n\n", "quaternio nao unitario", 1},
      {kColmap, "images.txt", "5 1 0 0 0 0 0 0 1 a.png\n\n6 1 0 0 0 0 0 1 b.png\n", "esperados 10 campos, lidos 9", 3},
      {kColmap, "images.txt", "5" + q + "1 a.png\n\n6" + q + "2 ..\n", "nome de imagem fora da pasta ..", 3},
      {kColmap, "cameras.txt", "", "camera desconhecida 1", 2, "images.txt"},
      {kColmap, "cameras.txt", "1 SIMPLE_RADIAL 640 480 5 3 3 -0.02\n", "distorcao radial nao suportada (k != 0)", 1},
      {kColmap, "images.txt", "5 1 0 0 0 0 0 0 1 a.png\n\n5 1 0 0 0 0 0 0 1 b.png\n\n", "imagem repetida 5", 3},
      {kColmap, "images.txt", "5 1 0 0 0 0 0 0 1 a.png\n1 2 3\n6 1 0 0 0 0 0 0 1 a.png\n\n", "nome repetido a.png", 3},
  };
  for (const Hostil& c : casos) {
    SCOPED_TRACE(c.texto);
    teste::PastaTemp p;
    const std::string caminho = escreve(p, c.layout);
    teste::escreveTexto(p / c.arquivo, c.texto);
    const std::string citado = p / (c.citado ? c.citado : c.arquivo);
    const std::string onde = c.mensagem.empty()
                                 ? "Erro: nenhum par em " + caminho
                                 : "Erro: " + c.mensagem + " em " + citado + ":" + std::to_string(c.linha);
    EXPECT_EQ(teste::mensagemDe([&] { datasets::leDatasetPosado(caminho); }), onde);
  }
}

// Names that only look like they leave the image folder are names like any other.
TEST(Posados, NomesDentroDaPasta) {
  teste::PastaTemp p;
  escreve(p, kSuperGlue);
  const std::string texto = teste::leTexto(p / "lista.txt");
  for (const std::string nome : {"..a.png", "a../b..png", "./s/.../c.png", "s/..png"}) {
    teste::escreveTexto(p / "lista.txt", nome + texto.substr(texto.find(' ')));
    const datasets::ParPosado par = datasets::leDatasetPosado(p / "lista.txt")[0];
    EXPECT_EQ(par.nome0, nome);
    EXPECT_EQ(par.imagem0, p / nome);
  }
}

// A file past the store limit is refused before it is read.
TEST(Posados, TextoGrandeDemaisENenhumLayout) {
  teste::PastaTemp p;
  escreve(p, kGlue);
  teste::escreveTexto(p / "pairs.txt", std::string(1000001, '\n'));
  ::setenv("QUIVELAR_MAX_STORE_MB", "1", 1);
  EXPECT_EQ(teste::mensagemDe([&] { datasets::leDatasetPosado(p.caminho()); }),
            "Erro: texto de " + p / "pairs.txt" + " passa do limite de 1 MB (QUIVELAR_MAX_STORE_MB muda o limite)");
  ::unsetenv("QUIVELAR_MAX_STORE_MB");
  // 2 GB under the default limit, sparse: reading it would take that much memory.
  std::filesystem::resize_file(p / "pairs.txt", int64_t(2) << 30);
  EXPECT_EQ(teste::mensagemDe([&] { datasets::leDatasetPosado(p.caminho()); }),
            "Erro: texto de " + p / "pairs.txt" + " passa do limite de " + std::to_string(tvm::kStoreMbPadrao) +
                " MB (QUIVELAR_MAX_STORE_MB muda o limite)");
  std::filesystem::remove(p / "views.txt");
  EXPECT_EQ(teste::mensagemDe([&] { datasets::leDatasetPosado(p.caminho()); }),
            "Erro: nenhum dataset posado (lista de pares, views.txt ou cameras.txt e images.txt) em " + p.caminho());
}

}  // namespace
