// tvm::SaidaSegura in-process: the bytes arrive whole and in order however
// they are cut, nothing appears before confirma(), a set of outputs replaces
// all its files or none, names that lead to one file are caught, and many
// threads write at once.
#include "formats/stores.hpp"
#include "support/erro.hpp"
#include "support/saida_segura.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Nomes = std::vector<std::string>;

// Cuts around the 64 KiB the writer keeps in memory, and an empty file.
TEST(SaidaSegura, BytesArriveInOrderHoweverTheyAreCut) {
  const std::vector<std::vector<size_t>> cortes = {
      {}, {1, 2, 3}, {65535, 1, 2}, {65536}, {65537}, {70000, 5, 131072, 7}, {3, 65534, 65536, 1}};
  std::mt19937 gerador(7);
  for (const std::vector<size_t>& corte : cortes) {
    SCOPED_TRACE(testing::PrintToString(corte));
    teste::PastaTemp pasta;
    std::string esperado;
    {
      tvm::SaidaSegura saida(pasta / "a.bin");
      for (size_t n : corte) {
        std::string parte(n, '\0');
        for (char& c : parte) c = static_cast<char>(gerador());
        saida.escreve(parte);
        esperado += parte;
      }
      EXPECT_FALSE(fs::exists(pasta / "a.bin"));
      saida.confirma();
    }
    EXPECT_EQ(teste::leTexto(pasta / "a.bin"), esperado);
    EXPECT_EQ(pasta.conteudo(), Nomes{"a.bin"});
  }
}

TEST(SaidaSegura, UnconfirmedLeavesTheOldFileAndNoTemporary) {
  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "a.txt", "velho");
  const std::string mensagem = teste::mensagemDe([&] {
    tvm::SaidaSegura saida(pasta / "a.txt");
    saida.escreve(std::string(200000, 'x'));  // past the buffer: on disk already
    tvm::erro("Erro: no meio");
  });
  EXPECT_EQ(mensagem, "Erro: no meio");
  EXPECT_EQ(teste::leTexto(pasta / "a.txt"), "velho");
  EXPECT_EQ(pasta.conteudo(), Nomes{"a.txt"});
}

// The temporary lives beside the file a link leads to, not beside the link:
// a rename cannot cross file systems.
TEST(SaidaSegura, TemporaryBesideTheLinkTarget) {
  teste::PastaTemp pasta;
  fs::create_directory(pasta / "sub");
  fs::create_symlink("sub/alvo.txt", pasta / "elo.txt");
  tvm::SaidaSegura saida(pasta / "elo.txt");
  EXPECT_EQ(saida.temporario().rfind(pasta / "sub/quivelar-", 0), 0u) << saida.temporario();
  EXPECT_LE(fs::path(saida.temporario()).filename().string().size(), 32u);
  saida.escreve("novo");
  saida.confirma();
  EXPECT_TRUE(fs::is_symlink(pasta / "elo.txt"));
  EXPECT_EQ(teste::leTexto(pasta / "sub/alvo.txt"), "novo");
}

// The second rename fails (its destination became a folder after the
// temporary was made): the first destination is put back as it was, with
// its old contents or, when it had none, not at all.
TEST(SaidaSegura, TogetherAllOrNothing) {
  for (bool primeiraExistia : {true, false}) {
    SCOPED_TRACE(primeiraExistia);
    teste::PastaTemp pasta;
    if (primeiraExistia) teste::escreveTexto(pasta / "a.txt", "velho a");
    const Nomes antes = pasta.conteudo();
    const std::string mensagem = teste::mensagemDe([&] {
      tvm::SaidaSegura a(pasta / "a.txt"), b(pasta / "b.txt");
      a.escreve("novo a");
      b.escreve("novo b");
      fs::create_directory(pasta / "b.txt");
      tvm::SaidaSegura::confirmaJuntas({&a, &b});
    });
    EXPECT_EQ(mensagem, "Erro abertura arquivo " + pasta / "b.txt");
    fs::remove(pasta / "b.txt");
    EXPECT_EQ(pasta.conteudo(), antes);
    if (primeiraExistia) {
      EXPECT_EQ(teste::leTexto(pasta / "a.txt"), "velho a");
    }
  }

  teste::PastaTemp pasta;
  teste::escreveTexto(pasta / "a.txt", "velho a");
  {
    tvm::SaidaSegura a(pasta / "a.txt"), b(pasta / "b.txt");
    a.escreve("novo a");
    b.escreve("novo b");
    tvm::SaidaSegura::confirmaJuntas({&a, &b});
  }
  EXPECT_EQ(teste::leTexto(pasta / "a.txt") + teste::leTexto(pasta / "b.txt"), "novo anovo b");
  EXPECT_EQ(pasta.conteudo(), (Nomes{"a.txt", "b.txt"}));
}

TEST(SaidaSegura, SameFileUnderTwoNamesRefused) {
  teste::PastaTemp pasta;
  fs::create_directory(pasta / "sub");
  teste::escreveTexto(pasta / "a.xml", "");
  fs::create_symlink("a.xml", pasta / "elo.xml");
  fs::create_symlink("../a.xml", pasta / "sub/elo.xml");
  const std::string a = pasta / "a.xml";
  const struct {
    std::string b;
    bool mesmo;
  } casos[] = {{pasta / "b.xml", false},     {pasta / "A.xml", false},       {pasta / "./a.xml", true},
               {pasta / "sub/../a.xml", true}, {pasta / "elo.xml", true},    {pasta / "sub/elo.xml", true},
               {pasta / "sub/a.xml", false}, {"/dev/null", false}};
  for (const auto& c : casos) {
    const std::string mensagem = teste::mensagemDe([&] { tvm::exigeSaidasDistintas({a, c.b}); });
    EXPECT_EQ(mensagem, c.mesmo ? "Erro: saidas com o mesmo nome " + c.b : "(sem erro)") << c.b;
  }
  EXPECT_EQ(teste::mensagemDe([] { tvm::exigeSaidasDistintas({"/dev/null", "/dev/null"}); }), "(sem erro)");
}

// Stores are made in memory and written by the safe writer; a ".gz" store
// is compressed by us. The bytes are those cv::FileStorage writes itself.
TEST(SaidaSegura, StoresAreWhatFileStorageWrites) {
  teste::PastaTemp pasta;
  const std::vector<cv::KeyPoint> k = {cv::KeyPoint(1.5f, 2.25f, 3, 45, 0.125f, 2, -1),
                                       cv::KeyPoint(100, 200, 30, 359.5f, 1e-3f, 0, 7)};
  const cv::Mat d = (cv::Mat_<float>(2, 3) << 1.0f / 3, 0, 2, 7, 8, 9);
  for (const std::string nome : {"s.xml", "s.yml", "s.json", "s.xml.gz", "s.yaml.gz"}) {
    SCOPED_TRACE(nome);
    formats::impDescritores(pasta / nome, k, d);
    {
      cv::FileStorage fs(pasta / ("cv-" + nome), cv::FileStorage::WRITE);
      fs << "keypoints" << "[:";
      for (const cv::KeyPoint& p : k) fs << p.pt.x << p.pt.y << p.size << p.angle << p.response << p.octave << p.class_id;
      fs << "]";
      cv::write(fs, "descriptors", d);
    }
    EXPECT_EQ(teste::leTexto(pasta / nome), teste::leTexto(pasta / ("cv-" + nome)));
    std::vector<cv::KeyPoint> lidos;
    cv::Mat dLido;
    formats::leDescritoresFileStorage(pasta / nome, lidos, dLido);
    EXPECT_EQ(lidos.size(), k.size());
    EXPECT_EQ(cv::norm(dLido, d, cv::NORM_INF), 0.0);
  }
}

// Eight threads, 200 outputs each, at once, into four folders they share:
// outputs alone, written twice (the second replaces the first), in pairs
// confirmed together, and abandoned. Every destination ends with exactly its
// own bytes, an abandoned one does not exist, nothing else is left, and no
// two writers of the process were ever given the same temporary name.
TEST(SaidaSegura, ManyThreadsAtOnce) {
  constexpr int kThreads = 8, kPorThread = 200, kPastas = 4;
  teste::PastaTemp pasta;
  for (int p = 0; p < kPastas; ++p) fs::create_directory(pasta / std::to_string(p));
  const auto nome = [](int t, int i) {
    return std::to_string(i % kPastas) + "/" + std::to_string(t) + "-" + std::to_string(i);
  };
  const auto bytes = [](int t, int i) {
    return std::string(1 + (7 * t + 13 * i) % 300, static_cast<char>('a' + t)) + std::to_string(i);
  };
  std::vector<Nomes> temporarios(kThreads);
  std::vector<std::string> mensagens(kThreads);
  {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        mensagens[t] = teste::mensagemDe([&] {
          const auto abre = [&](int i) {
            auto s = std::make_unique<tvm::SaidaSegura>(pasta / nome(t, i));
            temporarios[t].push_back(fs::path(s->temporario()).filename());
            return s;
          };
          for (int i = 0; i < kPorThread; ++i) {
            switch (i % 5) {
              case 0:
                abre(i)->escreve("abandonada");
                break;
              case 1: {
                const auto a = abre(i), b = abre(i + 1);
                a->escreve(bytes(t, i));
                b->escreve(bytes(t, i + 1));
                tvm::SaidaSegura::confirmaJuntas({a.get(), b.get()});
                ++i;
                break;
              }
              case 3:
                abre(i)->confirma();
                [[fallthrough]];
              default: {
                const auto a = abre(i);
                a->escreve(bytes(t, i));
                a->confirma();
              }
            }
          }
        });
      });
    for (std::thread& t : threads) t.join();
  }
  Nomes esperados, achados, todos;
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(mensagens[t], "(sem erro)") << t;
    todos.insert(todos.end(), temporarios[t].begin(), temporarios[t].end());
    for (int i = 0; i < kPorThread; ++i) {
      if (i % 5 == 0) continue;
      esperados.push_back(pasta / nome(t, i));
      EXPECT_EQ(teste::leTexto(pasta / nome(t, i)), bytes(t, i)) << nome(t, i);
    }
  }
  for (const auto& e : fs::recursive_directory_iterator(pasta.caminho()))
    if (!e.is_directory()) achados.push_back(e.path());
  std::sort(esperados.begin(), esperados.end());
  std::sort(achados.begin(), achados.end());
  EXPECT_EQ(achados, esperados);
  std::sort(todos.begin(), todos.end());
  EXPECT_EQ(std::adjacent_find(todos.begin(), todos.end()), todos.end()) << "temporary names repeated";
  EXPECT_EQ(todos.size(), size_t{kThreads} * (kPorThread + kPorThread / 5));
}

}  // namespace
