// The helper process (support/ajudante.hpp), driven by ajudante_eco: answers
// of any size come back whole, its errors come back as errors, a helper that
// dies is reported and replaced, and threads take turns.
#include "support/ajudante.hpp"
#include "support/erro.hpp"

#include <gtest/gtest.h>

#include <signal.h>

#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* kEco = "ajudante_eco";

std::string pede(const std::string& pedido) { return tvm::pedeAoAjudante(kEco, pedido, "o eco"); }

std::string mensagem(const std::string& pedido) {
  try {
    pede(pedido);
  } catch (const tvm::Erro& e) {
    return e.what();
  }
  return "<sem erro>";
}

TEST(Ajudante, RespostasErrosEMorte) {
  std::string grande(50 << 20, '\0');
  for (size_t i = 0; i < grande.size(); ++i) grande[i] = static_cast<char>(i * 131 % 251);
  EXPECT_EQ(pede("eco " + grande), grande);
  EXPECT_EQ(pede("eco "), "");
  EXPECT_EQ(mensagem("erro Erro: arquivo ruim"), "Erro: arquivo ruim");
  const std::string pid = pede("pid");
  // The same helper serves request after request, errors included.
  EXPECT_EQ(pede("pid"), pid);
  EXPECT_EQ(mensagem("sinal"), "Erro: o eco terminou pelo sinal " + std::to_string(SIGSEGV));
  // The next request starts another helper.
  const std::string outro = pede("pid");
  EXPECT_NE(outro, pid);
  EXPECT_EQ(pede("eco depois"), "depois");
  // Killed from outside between requests: found dead on the next, which fails; then replaced.
  ASSERT_EQ(::kill(std::stoi(outro), SIGKILL), 0);
  EXPECT_EQ(mensagem("eco x"), "Erro: o eco falhou");
  EXPECT_EQ(pede("eco de novo"), "de novo");
}

TEST(Ajudante, ThreadsEmVez) {
  // Started by a thread that then ends, the helper serves the others.
  std::string pid;
  std::thread([&pid] { pid = pede("pid"); }).join();
  EXPECT_EQ(pede("pid"), pid);
  std::vector<std::thread> threads;
  std::vector<int> certos(4, 0);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &certos] {
      for (int i = 0; i < 200; ++i) {
        const std::string s = std::to_string(t) + ":" + std::to_string(i) + std::string(size_t(i) * 97, 'x');
        certos[t] += pede("eco " + s) == s;
      }
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(certos, std::vector<int>(4, 200));
  EXPECT_EQ(pede("pid"), pid);
}

TEST(Ajudante, ProgramaAusente) {
  try {
    tvm::pedeAoAjudante("nao_existe_ajudante", "x", "a leitura de a.h5");
    FAIL();
  } catch (const tvm::Erro& e) {
    EXPECT_STREQ(e.what(), "Erro: nao consegui iniciar nao_existe_ajudante para a leitura de a.h5");
  }
}

}  // namespace
