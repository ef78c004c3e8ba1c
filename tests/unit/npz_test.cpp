// The .npy/.npz readers on files NumPy itself wrote (Debian's /usr/bin/python3
// has numpy), and on hostile files made with NumPy and Python's zipfile.
#include "formats/npz.hpp"
#include "support/processo.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace {

const char* const kTipos[] = {"<f4", "<f8", "<f2", "|u1", "<i4", "<i8"};
const char* const kFormas[] = {"0", "1", "2", "vazia"};
const std::vector<int64_t> kDims[] = {{}, {6}, {3, 5}, {0, 4}};

// Element k (C order) is k % 97 + 3, a quarter of that in the float types:
// exact in float16, and a transposition changes it.
double valor(const std::string& tipo, int k) { return (k % 97 + 3) / (tipo[1] == 'f' ? 4.0 : 1.0); }

const char* const kValidos = R"(
import sys, numpy as np
p, todos = sys.argv[1], {}
for t in ("<f4", "<f8", "<f2", "|u1", "<i4", "<i8"):
    for nome, forma in (("0", ()), ("1", (6,)), ("2", (3, 5)), ("vazia", (0, 4))):
        a = ((np.arange(int(np.prod(forma))) % 97 + 3) / (4 if t[1] == "f" else 1)).astype(t).reshape(forma)
        for ordem in "CF":
            todos["%s_%s_%s" % (t[1:], ordem, nome)] = np.array(a, order=ordem)
for nome, a in todos.items(): np.save("%s/%s.npy" % (p, nome), a)
np.savez(p + "/guardado.npz", **todos)
np.savez_compressed(p + "/comprimido.npz", **todos)
)";

bool python(const std::string& programa, const teste::PastaTemp& pasta) {
  teste::escreveTexto(pasta / "grava.py", programa);
  return std::system(("/usr/bin/python3 " + tvm::aspasShell(pasta / "grava.py") + " " + tvm::aspasShell(pasta.caminho())).c_str()) == 0;
}

// Every dtype x order x shape x writer (np.save, np.savez,
// np.savez_compressed), read as every matrix type: one loop, so that NumPy
// starts once.
TEST(NpyNpz, LidosComoNumPyGravou) {
  teste::PastaTemp pasta;
  ASSERT_TRUE(python(kValidos, pasta));
  for (const std::string tipo : kTipos)
    for (const char* ordem : {"C", "F"})
      for (int forma = 0; forma < 4; ++forma)
        for (const std::string escritor : {"npy", "guardado", "comprimido"}) {
          const std::string nome = tipo.substr(1) + "_" + ordem + "_" + kFormas[forma];
          SCOPED_TRACE(nome + " em " + escritor);
          const std::string arquivo = pasta / (escritor == "npy" ? nome + ".npy" : escritor + ".npz");
          const auto le = [&](int cv) {
            return escritor == "npy" ? formats::leNpy(arquivo, cv) : formats::Npz(arquivo).le(nome, cv);
          };
          const formats::InfoArranjo info =
              escritor == "npy" ? formats::infoNpy(arquivo) : formats::Npz(arquivo).info(nome);
          EXPECT_EQ(info.tipo, tipo);
          EXPECT_EQ(info.forma, kDims[forma]);
          for (const int cv : {CV_64F, CV_32F, CV_32S, CV_8U}) {
            if (tipo[1] == 'f' && (cv == CV_32S || cv == CV_8U)) {
              EXPECT_EQ(teste::mensagemDe([&] { le(cv); }),
                        "Erro: " + arquivo + (escritor == "npy" ? "" : " (" + nome + ")") + " tem tipo " + tipo +
                            ", que nao passa a inteiro sem perda");
              continue;
            }
            const cv::Mat m = le(cv);
            ASSERT_EQ(m.type(), cv);
            ASSERT_EQ(m.rows, forma == 0 ? 1 : kDims[forma][0]);
            ASSERT_EQ(m.cols, forma < 2 ? 1 : kDims[forma][1]);
            cv::Mat d;
            m.convertTo(d, CV_64F);
            for (int k = 0; k < static_cast<int>(d.total()); ++k)
              ASSERT_EQ(d.at<double>(k / d.cols, k % d.cols), valor(tipo, k)) << k;
          }
        }
}

TEST(Npz, NomesNaOrdemDoArquivo) {
  teste::PastaTemp pasta;
  ASSERT_TRUE(python("import sys, zipfile, numpy as np\n"
                     "np.savez(sys.argv[1] + '/a.npz', zeta=np.zeros(1), alfa=np.ones(2))\n"
                     "with zipfile.ZipFile(sys.argv[1] + '/a.npz', 'a') as z: z.writestr('leia.txt', 'x')",
                     pasta));
  const formats::Npz z(pasta / "a.npz");
  EXPECT_EQ(z.nomes(), (std::vector<std::string>{"zeta", "alfa"}));
  EXPECT_TRUE(z.tem("alfa"));
  EXPECT_FALSE(z.tem("alfa.npy"));
  EXPECT_FALSE(z.tem("leia"));
}

// Conversions on bytes in memory: those that keep every value, and those
// refused for the one value that would change.
TEST(ComoMatriz, ConversoesSoSemPerda) {
  struct Caso {
    const char* tipo;
    std::vector<int64_t> valores;  // the array, stored as `tipo`
    int alvo;
    const char* mensagem;          // nullptr: read back equal
  } casos[] = {
      {"<i8", {INT32_MAX, INT32_MIN, 0}, CV_32S, nullptr},
      {"<i8", {1, int64_t{INT32_MAX} + 1}, CV_32S, "Erro: valor 2147483648 de x nao cabe em int32"},
      {"<i8", {int64_t{INT32_MIN} - 1}, CV_32S, "Erro: valor -2147483649 de x nao cabe em int32"},
      {"<i8", {-1}, CV_8U, "Erro: valor -1 de x nao cabe em uint8"},
      {"<i8", {-5, int64_t{1} << 40}, CV_64F, nullptr},
      {"<i4", {0, 255}, CV_8U, nullptr},
      {"<i4", {7, 256}, CV_8U, "Erro: valor 256 de x nao cabe em uint8"},
      {"<i4", {-3}, CV_8U, "Erro: valor -3 de x nao cabe em uint8"},
      {"|u1", {0, 255}, CV_32S, nullptr},
      {"<f8", {1}, CV_32S, "Erro: x tem tipo <f8, que nao passa a inteiro sem perda"},
      {"|i1", {1}, CV_32F, "Erro: tipo '|i1' de x nao e lido (so <f4 <f8 <f2 |u1 <i4 <i8)"},
  };
  for (const Caso& c : casos) {
    const size_t t = c.tipo[2] - '0';
    std::vector<unsigned char> bytes(c.valores.size() * 8);
    for (size_t i = 0; i < c.valores.size(); ++i) {
      const int32_t v4 = static_cast<int32_t>(c.valores[i]);
      const double v8 = static_cast<double>(c.valores[i]);
      std::memcpy(&bytes[i * t], c.tipo[1] == 'f' ? static_cast<const void*>(&v8)
                                 : t == 4 ? static_cast<const void*>(&v4) : &c.valores[i], t);
    }
    const formats::InfoArranjo info{{static_cast<int64_t>(c.valores.size())}, c.tipo};
    if (c.mensagem) {
      EXPECT_EQ(teste::mensagemDe([&] { formats::comoMatriz(bytes.data(), info, c.alvo, "x"); }), c.mensagem);
      continue;
    }
    cv::Mat d;
    formats::comoMatriz(bytes.data(), info, c.alvo, "x").convertTo(d, CV_64F);
    for (size_t i = 0; i < c.valores.size(); ++i) EXPECT_EQ(d.at<double>(static_cast<int>(i)), c.valores[i]) << c.tipo;
  }
}

const char* const kHostis = R"(
import io, struct, sys, zipfile, numpy as np
p = sys.argv[1]
def cab(forma, t="<f4"):
    b = io.BytesIO()
    np.lib.format.write_array_header_1_0(b, {"descr": t, "fortran_order": False, "shape": forma})
    return b.getvalue()
def npz(nome, dados, metodo=zipfile.ZIP_DEFLATED, declarado=None, bits=0):
    with zipfile.ZipFile(p + "/" + nome, "w", metodo) as z: z.writestr("x.npy", dados)
    b = bytearray(open(p + "/" + nome, "rb").read())
    c = b.rfind(b"PK\x01\x02")
    if declarado is not None: b[22:26] = b[c + 24:c + 28] = struct.pack("<I", declarado)
    b[6] |= bits; b[c + 8] |= bits
    open(p + "/" + nome, "wb").write(b)
def npy(nome, a, **k): np.save(p + "/" + nome, a, **k)
h = cab((10,))
npz("bomba.npz", h + bytes(20 << 20))
npz("bomba_forjada.npz", h + bytes(20 << 20), declarado=len(h) + 40)
npz("curta_forjada.npz", h + bytes(8), declarado=len(h) + 40)
npz("grande.npz", cab((200000000,)) + bytes(8), declarado=len(cab((200000000,))) + 800000000)
npz("cifrada.npz", h + bytes(40), zipfile.ZIP_STORED, bits=1)
npz("lzma.npz", h + bytes(40), zipfile.ZIP_LZMA)
npz("crc.npz", h + bytes(40), zipfile.ZIP_STORED); b = bytearray(open(p + "/crc.npz", "rb").read())
b[b.find(h) + len(h) + 7] ^= 1; open(p + "/crc.npz", "wb").write(b)
np.savez(p + "/objeto.npz", x=np.array([{}], dtype=object))
npy("objeto.npy", np.array([{}], dtype=object), allow_pickle=True)
npy("maior.npy", np.zeros(10, "<f4")); open(p + "/maior.npy", "ab").write(b"1234")
npy("menor.npy", np.zeros(10, "<f4")); open(p + "/menor.npy", "r+b").truncate(len(h) + 20)
npy("sem_cabecalho.npy", np.zeros(10, "<f4")); open(p + "/sem_cabecalho.npy", "r+b").truncate(30)
npy("big_endian.npy", np.zeros(10, ">f4"))
npy("rank3.npy", np.zeros((2, 2, 2), "<f4"))
np.savez(p + "/cortada.npz", x=np.zeros(1000)); open(p + "/cortada.npz", "r+b").truncate(4000)
open(p + "/texto.npz", "w").write("x,y\n1,2\n")
b = io.BytesIO(); np.lib.format.write_array_header_2_0(b, {"descr": "<f4", "fortran_order": False, "shape": (10,)})
open(p + "/v2.npy", "wb").write(b.getvalue() + np.arange(10, dtype="<f4").tobytes())
)";

// Each hostile file read as a float matrix: one clean message naming it.
TEST(ArquivoHostil, UmaMensagemPorCaso) {
  teste::PastaTemp pasta;
  ASSERT_TRUE(python(kHostis, pasta));
  const std::string dez = " bytes que a forma (10,) de <f4 pede";
  const std::pair<const char*, std::string> casos[] = {
      {"bomba.npz", "Erro: dados de @ (x) passam dos 40" + dez},
      {"bomba_forjada.npz", "Erro: dados de @ (x) passam dos 40" + dez},
      {"curta_forjada.npz", "Erro: dados de @ (x) acabam antes dos 40" + dez},
      {"grande.npz", "Erro: arranjo @ (x) passa do limite de 512 MB (QUIVELAR_MAX_STORE_MB muda o limite)"},
      {"cifrada.npz", "Erro: @ (x) esta cifrado"},
      {"crc.npz", "Erro leitura @ (x): CRC error"},
      {"lzma.npz", "Erro: @ (x) usa o metodo de compressao 14 (so store e deflate)"},
      {"objeto.npz", "Erro: @ (x) guarda objetos Python (pickle), que nao sao lidos"},
      {"objeto.npy", "Erro: @ guarda objetos Python (pickle), que nao sao lidos"},
      {"maior.npy", "Erro: dados de @ passam dos 40" + dez},
      {"menor.npy", "Erro: dados de @ acabam antes dos 40" + dez},
      {"sem_cabecalho.npy", "Erro: cabecalho .npy invalido em @"},
      {"big_endian.npy", "Erro: tipo '>f4' de @ nao e lido (so <f4 <f8 <f2 |u1 <i4 <i8)"},
      {"rank3.npy", "Erro: @ tem 3 dimensoes; so ate 2 sao lidas"},
      {"cortada.npz", "Erro abertura arquivo @"},
      {"texto.npz", "Erro abertura arquivo @"},
      {"ausente.npz", "Erro abertura arquivo @"},
  };
  for (const auto& [nome, esperada] : casos) {
    const std::string arquivo = pasta / nome, mensagem = teste::mensagemDe([&, nome = nome] {
      std::strstr(nome, ".npy") ? formats::leNpy(arquivo, CV_32F) : formats::Npz(arquivo).le("x", CV_32F);
    });
    EXPECT_EQ(mensagem, esperada.substr(0, esperada.find('@')) + arquivo + esperada.substr(esperada.find('@') + 1));
  }
  const cv::Mat v2 = formats::leNpy(pasta / "v2.npy", CV_32F);
  ASSERT_EQ(v2.size(), cv::Size(1, 10));
  for (int k = 0; k < 10; ++k) EXPECT_EQ(v2.at<float>(k), k);
}

}  // namespace
