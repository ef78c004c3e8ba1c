// The tools of the table's rows that have no hand-written tool: one
// detector tool and one descriptor tool, each reading its row by the command
// word. Their usage lines, options and defaults come from the row.
#include "algoritmos/tabela.hpp"
#include "algoritmos/tools.hpp"
#include "descriptors/frame.hpp"
#include "descriptors/patch.hpp"
#include "features/memoria.hpp"
#include "formats/stores.hpp"
#include "support/aviso.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/limites.hpp"

#include <cstdio>

namespace algoritmos {

namespace {

template <typename Linha>
const Linha& linhaDaFerramenta(const std::vector<Linha>& tabela, const char* palavra) {
  const std::string p = tvm::minuscula(palavra);
  for (const Linha& l : tabela)
    if (tvm::minuscula(l.ferramenta) == p) return l;
  tvm::erro("Erro: Programa inexistente ", palavra);
}

// "  nfeatures=500  keypoints mantidos..." for every option of a row.
void linhasDeOpcoes(const std::vector<Opcao>& opcoes, std::vector<std::string>& uso) {
  for (const Opcao& o : opcoes) {
    std::string l = "  " + o.nome + "=" + (o.padrao.empty() ? "..." : o.padrao);
    l.resize(std::max<size_t>(l.size() + 1, 26), ' ');
    uso.push_back(l + o.sentido);
  }
}

[[noreturn]] void falhaUso(const std::vector<std::string>& linhas) {
  std::vector<const char*> ptrs;
  for (const std::string& l : linhas) ptrs.push_back(l.c_str());
  tvm::falhaUso(ptrs);
}

void semSobras(const tvm::ISTR& opcoes) {
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
}

// Stops before a run that would not fit in memory.
void verificaMemoria(const char* ferramenta, double bytesFixos, double bytesPorPixel, const cv::Mat& img,
                     const std::string& arquivo) {
  const double bytes = features::kMemoriaBase + bytesFixos + bytesPorPixel * static_cast<double>(img.total());
  tvm::verificaMemoria(bytes, std::string(ferramenta) + " em " + arquivo + " (" + std::to_string(img.cols) + "x" +
                                  std::to_string(img.rows) + ")");
}

// Stops, naming the file, on an image smaller than the detector takes.
void verificaTamanho(const LinhaDetector& l, const Detector& d, const cv::Mat& img, const std::string& arquivo) {
  if (img.rows < d.menorLado || img.cols < d.menorLado)
    tvm::erro("Erro: imagem pequena demais para ", std::string(l.ferramenta) + " " + arquivo,
              " (" + std::to_string(img.cols) + "x" + std::to_string(img.rows) + ", minimo " +
                  std::to_string(d.menorLado) + "x" + std::to_string(d.menorLado) + ")");
}

}  // namespace

}  // namespace algoritmos

using namespace algoritmos;

void DetectorDaTabela(int argc, char** argv) {
  const LinhaDetector& l = linhaDaFerramenta(detectores(), argv[0]);
  if (argc < 3) {
    std::vector<std::string> uso = {std::string(l.ferramenta) + " a.pgm a.xml [opcao=valor ...]",
                                    std::string("  ") + textoDaAjuda(l.ajuda) + "; opcoes e padroes:"};
    linhasDeOpcoes(l.opcoes, uso);
    falhaUso(uso);
  }
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);
  tvm::ISTR op(argc - 3, argv + 3);
  const Detector d = l.cria(op);
  semSobras(op);
  verificaTamanho(l, d, img, argv[1]);
  verificaMemoria(l.ferramenta, l.bytesFixos, l.bytesPorPixel, img, argv[1]);
  const std::vector<cv::KeyPoint> keypoints = d.detecta(img);
  std::printf("Keypoints=%u\n", static_cast<unsigned>(keypoints.size()));
  formats::impKeyPoints(argv[2], keypoints);
  tvm::avisaSeVazio(keypoints.size(), argv[2]);
}

void DescritorDaTabela(int argc, char** argv) {
  const LinhaDescritor& l = linhaDaFerramenta(descritores(), argv[0]);
  const LinhaDetector& detectaCom = *detector(l.detectaCom);
  if (argc < 3) {
    std::vector<std::string> uso = {std::string(l.ferramenta) + " a.pgm DesA.xml [key=KeyA.xml opcao=valor ...]",
                                    std::string("  ") + textoDaAjuda(l.ajuda) + "; opcoes e padroes:"};
    linhasDeOpcoes(l.opcoes, uso);
    uso.push_back(std::string("  Sem key=, descreve os keypoints de ") + detectaCom.ferramenta +
                  (l.soDe ? std::string("; so descreve keypoints de ") + l.soDe : std::string()));
    falhaUso(uso);
  }
  cv::Mat_<uchar> img;
  tvm::le(img, argv[1]);
  const std::string saida = argv[2];
  std::string chaves;
  tvm::ISTR op(argc - 3, argv + 3);
  tvm::seekArg(op, "key", chaves);
  const Descritor d = l.cria(op);
  semSobras(op);

  std::vector<cv::KeyPoint> keypoints;
  cv::Mat linhas;
  verificaMemoria(l.ferramenta, detectaCom.bytesFixos,
                  std::max(l.bytesPorPixel, chaves.empty() ? detectaCom.bytesPorPixel : 0.0), img, argv[1]);
  if (!chaves.empty()) {
    keypoints = formats::leKeyPoints(chaves);
    std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints.size()));
    for (size_t i = 0; i < keypoints.size(); ++i) validaKeyPoint(keypoints[i], i);
    if (l.verificaDados) l.verificaDados(img, keypoints, argv[1], chaves);
  } else {
    // A descriptor and a detector of one name share their options (ORB's
    // pyramid serves both); any other detector runs with its defaults.
    tvm::ISTR opDetector(std::string(l.nome) == detectaCom.nome ? argc - 3 : 0, argv + 3);
    tvm::seekArg(opDetector, "key", chaves);
    Detector det = criaDetector(detectaCom.nome, opDetector);
    verificaTamanho(detectaCom, det, img, argv[1]);
    if (det.descreveComo == l.nome) {
      det.detectaEDescreve(img, keypoints, linhas);
      std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints.size()));
    } else {
      keypoints = det.detecta(img);
      keypoints::converteAngulos(keypoints, det.escreve, l.le);
      std::printf("KeyPoints k=%u\n", static_cast<unsigned>(keypoints.size()));
    }
  }
  const size_t dados = keypoints.size();
  if (linhas.empty() && !keypoints.empty()) d.calcula(img, keypoints, linhas);
  formats::impDescritores(saida, keypoints, linhas);
  avisaStore(saida, dados, linhas);
}
