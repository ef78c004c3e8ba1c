#include "evaluation/medidas_entrada.hpp"
#include "evaluation/tools.hpp"

#include "formats/csv.hpp"
#include "formats/transform.hpp"
#include "measures/casamento.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <cstdio>
#include <optional>

void MatScore(int argc, char** argv) {
  if (argc < 7)
    tvm::falhaUso(
        {"MatScore: Calcula matching score, MMA, AP e exatidao da homografia de casamentos, tendo matriz 3x3",
         "MatScore img1 img2 key1.xml key2.xml match.txt mat33.txt",
         "         [erro=40 | dist=val | comum=ambas|opencv | ransac=3 | curva=rp.csv | csv=tab.csv]",
         "  Acerto: erro de sobreposicao das regioes < erro%; com dist: distancia(inv(mat33)*k2,k1)<=dist",
         "  matching_score: acertos na parte comum / min(n1,n2)",
         "  mma@t: casamentos com distancia(mat33*k1,k2)<=t, t=1..10",
         "  ap: precisao media da lista; homography: erro medio dos cantos da estimada por RANSAC"});
  const evaluation::ParMedido par = evaluation::leParMedido(argv, 6);
  formats::Casamentos c = formats::leCasamentos(argv[5]);
  evaluation::restauraDaStore(par.k1, c.keypoints1);
  evaluation::restauraDaStore(par.k2, c.keypoints2);
  evaluation::confereKeyPoints(c.keypoints1, par.img1, argv[5], argv[1]);
  evaluation::confereKeyPoints(c.keypoints2, par.img2, argv[5], argv[2]);

  evaluation::OpcoesMedida op;
  double dist = 0, ransac = 3;
  std::string curva;
  tvm::ISTR opcoes(argc - 7, argv + 7);
  evaluation::leOpcoesMedida(opcoes, op);
  const bool porDistancia = tvm::seekArg(opcoes, "dist", dist);
  tvm::seekArg(opcoes, "ransac", ransac);
  tvm::seekArg(opcoes, "curva", curva);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  if (porDistancia && !(dist > 0)) tvm::erro("Erro: dist fora do intervalo");
  if (!(ransac > 0)) tvm::erro("Erro: ransac fora do intervalo");
  if (!curva.empty() && curva == op.csv) tvm::erro("Erro: curva e csv no mesmo arquivo ", curva);
  if (!curva.empty() && !op.csv.empty()) tvm::exigeSaidasDistintas({curva, op.csv});

  measures::OpcoesCasamento oc;
  oc.erro = op.erro / 100;
  if (porDistancia) oc.dist = dist;
  oc.comum = op.comum;
  oc.ransac = ransac;
  const measures::MedidasCasamento m =
      measures::medeCasamentos(par.k1, par.k2, c.keypoints1, c.keypoints2, par.verdade.H, par.verdade.Hinv, par.img1, par.img2, oc);
  const size_t n = c.matches.size();
  const std::vector<bool>& certos = m.certos;
  const int corretos = m.corretos, n1 = m.n1, n2 = m.n2;
  const measures::Medida &score = m.matchingScore, &ap = m.ap, &homografia = m.erroHomografia;
  const measures::MMA& mma = m.mma;

  std::printf("matches=%zu correct=%d n1=%d n2=%d matching_score=%s\n", n, corretos, n1, n2,
              evaluation::texto(score).c_str());
  std::string linhaMMA;
  for (int t = 0; t < 10; ++t) linhaMMA += (t ? " mma@" : "mma@") + std::to_string(t + 1) + "=" + evaluation::texto(mma[t]);
  std::printf("%s\n", linhaMMA.c_str());
  std::printf("ap=%s\n", evaluation::texto(ap).c_str());
  std::printf("homography_error=%s homography@1=%d homography@3=%d homography@5=%d\n",
              evaluation::texto(homografia).c_str(), measures::homografiaCorreta(homografia, 1),
              measures::homografiaCorreta(homografia, 3), measures::homografiaCorreta(homografia, 5));

  // The curve is written first and replaces its file with the table's: a
  // failure on either output leaves neither.
  std::optional<tvm::SaidaSegura> saidaCurva;
  if (!curva.empty()) {
    const std::vector<measures::PontoRP> pontos = measures::curvaRecallPrecisao(certos);
    std::vector<std::string> linhas(n);
    for (size_t i = 0; i < n; ++i)
      linhas[i] = std::to_string(i + 1) + "," + tvm::formataNumero("%.9g", c.matches[i].distance) + "," +
                  (certos[i] ? "1," : "0,") + tvm::formataNumero("%.9g", pontos[i].umMenosPrecisao) + "," +
                  (pontos[i].recall < 0 ? std::string("NA") : tvm::formataNumero("%.9g", pontos[i].recall));
    saidaCurva.emplace(curva);
    formats::escreveTexto(*saidaCurva, formats::tabelaCSV("rank,distance,correct,one_minus_precision,recall", linhas));
  }
  if (!op.csv.empty()) {
    std::string linha;
    for (int i = 1; i <= 6; ++i) linha += formats::campoCSV(argv[i]) + ",";
    linha += porDistancia ? "dist=" + tvm::formataNumero("%g", dist) : "erro=" + tvm::formataNumero("%g", op.erro);
    linha += std::string(",") + (op.comum == measures::ParteComum::ambas ? "ambas" : "opencv");
    linha += "," + std::to_string(n) + "," + std::to_string(corretos) + "," + std::to_string(n1) + "," +
             std::to_string(n2) + "," + evaluation::texto(score);
    for (const measures::Medida& m : mma) linha += "," + evaluation::texto(m);
    linha += "," + evaluation::texto(ap) + "," + evaluation::texto(homografia);
    for (int t : {1, 3, 5}) linha += "," + std::to_string(measures::homografiaCorreta(homografia, t));
    formats::acrescentaCSV(op.csv,
                           "img1,img2,key1,key2,matches,H,correct_by,common,matches_n,correct,n1,n2,matching_score,"
                           "mma@1,mma@2,mma@3,mma@4,mma@5,mma@6,mma@7,mma@8,mma@9,mma@10,ap,homography_error,"
                           "homography@1,homography@3,homography@5",
                           linha, saidaCurva ? &*saidaCurva : nullptr);
  } else if (saidaCurva) {
    saidaCurva->confirma();
  }
}
