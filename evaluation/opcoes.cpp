#include "evaluation/opcoes.hpp"

#include "evaluation/avisos.hpp"

#include "support/argumentos.hpp"
#include "support/erro.hpp"

namespace evaluation {

OpcoesAvaliacao leOpcoes(int n, char** palavras, int chaves) {
  OpcoesAvaliacao op;
  tvm::ISTR in(n, palavras);
  for (std::string chave = tvm::leStr(in); chave != "eof"; chave = tvm::leStr(in)) {
    if (chave == "dist" && (chaves & kDist)) {
      tvm::leNum(in, op.dist);
      if (op.dist <= 0.0) tvm::erro("Erro: dist fora do intervalo");
    } else if (chave == "cor" && (chaves & kCor)) {
      tvm::leNum(in, op.cor[0]);
      tvm::leNum(in, op.cor[1]);
      tvm::leNum(in, op.cor[2]);
    } else if (chave == "arquivo" && (chaves & kArquivo)) {
      op.arquivo = tvm::leFileName(in);
      if (op.arquivo.empty()) tvm::erro("Erro: abertura ", op.arquivo);
    } else if (chave == "eixox" && (chaves & kEixox)) {
      const std::string eixo = tvm::leStr(in);
      if (eixo == "eof" || eixo.empty() || (eixo[0] != 'a' && eixo[0] != 'r'))
        tvm::erro("Erro: eixox deve ser a ou r");
      op.eixox = eixo[0];
    } else {
      tvm::erro("Erro: Palavra desconhecida ", chave);
    }
  }
  return op;
}

Avaliacao leAvaliacao(int argc, char** argv, int chaves) {
  Avaliacao a;
  a.casamentos = formats::leCasamentos(argv[1]);
  a.opcoes = leOpcoes(argc - 4, argv + 4, chaves);
  a.certos = julgaArquivoEAvisa(a.casamentos, argv[2], a.opcoes.dist);
  return a;
}

}  // namespace evaluation
