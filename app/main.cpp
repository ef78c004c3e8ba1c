// quivelar: one executable holding the tools for testing local image features.
// The first word names the tool (any letter case); the rest are its arguments.
#include "app/comandos.hpp"
#include "support/argumentos.hpp"
#include "support/erro.hpp"
#include "support/memoria.hpp"
#include "support/relogio.hpp"

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>

#include <cstdio>
#include <new>
#include <string>

namespace {

int falha(const std::string& mensagem) {
  std::fflush(stdout);  // what the tool printed comes before its error
  std::fputs(mensagem.c_str(), stderr);
  std::fputc('\n', stderr);
  return 1;
}

int executa(int argc, char** argv) {
  if (argc < 2) {
    imprimeBanner();
    imprimeProgramas();
    tvm::erro("Erro: Numero de argumentos invalido");
  }
  const int t0 = tvm::centseg();
  const std::string palavra = tvm::minuscula(argv[1]);
  const Comando* comando = achaComando(palavra.c_str());
  if (comando == nullptr) tvm::erro("Erro: Programa inexistente ", palavra);
  tvm::preparaMemoria(comando->heap);
  comando->ferramenta(argc - 1, argv + 1);
  const int d = tvm::centseg() - t0;
  std::printf("Tempo gasto=%d.%02ds\n", d / 100, d % 100);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // OpenCV's own log lines would come before ours for the same failure
  // (a missing file); every failure it reports reaches us as an exception.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  // Every failure ends here, once: a message on stderr and status 1.
  try {
    return executa(argc, argv);
  } catch (const tvm::Erro& e) {
    return falha(e.what());
  } catch (const cv::Exception& e) {
    return falha("Erro: OpenCV: " + e.err);
  } catch (const std::bad_alloc&) {
    return falha("Erro: memoria insuficiente");
  } catch (const std::exception& e) {
    return falha(std::string("Erro: ") + e.what());
  }
}
