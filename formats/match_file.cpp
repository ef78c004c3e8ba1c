#include "formats/match_file.hpp"

#include "formats/externos.hpp"
#include "formats/leitura_rapida.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/numeros.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

namespace formats {

namespace {

const char* const kComentario =
    "//dist-ratio k1.pt.x k1.pt.y k1.size k1.angle k1.response k1.octave k1.class_id k2.pt.x k2.pt.y k2.size "
    "k2.angle k2.response k2.octave k2.class_id\n";
constexpr int kColunas = 15;
// The shortest possible match line ("0 0 0 ... 0\n") has 30 bytes.
constexpr long kMenorLinha = 2 * kColunas;

bool leKeyPoint(FILE* f, cv::KeyPoint& k) {
  return tvm::leNum(f, k.pt.x) && tvm::leNum(f, k.pt.y) && tvm::leNum(f, k.size) && tvm::leNum(f, k.angle) &&
         tvm::leNum(f, k.response) && tvm::leNum(f, k.octave) && tvm::leNum(f, k.class_id);
}

// A match line: 15 fields of at most 14 characters (-3.402823e+38, or an
// int's 11) and their blanks.
constexpr int kLinha = 320;

// Appends to `linha` at `n`; returns the new length.
int escreveKeyPoint(char* linha, int n, const cv::KeyPoint& k) {
  return n + std::snprintf(linha + n, static_cast<size_t>(kLinha - n), "%e %e %e %e %e %d %d", k.pt.x, k.pt.y,
                           k.size, k.angle, k.response, k.octave, k.class_id);
}

float pelaEscrita(float v) {
  char texto[32];
  std::snprintf(texto, sizeof texto, "%e", v);
  double lido = 0;
  tvm::textoParaDouble(texto, lido);
  return static_cast<float>(lido);
}

long tamanhoArquivo(const std::string& nome) {
  struct stat info {};
  return ::stat(nome.c_str(), &info) == 0 ? static_cast<long>(info.st_size) : 0;
}

}  // namespace

void impMatch(const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& keypoints1,
              const std::vector<cv::KeyPoint>& keypoints2, const std::string& fileName,
              const std::vector<bool>& selection) {
  if (!selection.empty() && selection.size() != matches.size())
    tvm::erro("Erro: impMatch: vet.size()!=matches.size()");
  const auto escolhido = [&](size_t i) { return selection.empty() || selection[i]; };
  unsigned contagem = 0;
  for (size_t i = 0; i < matches.size(); ++i) {
    if (!escolhido(i)) continue;
    const cv::DMatch& m = matches[i];
    if (m.queryIdx < 0 || static_cast<size_t>(m.queryIdx) >= keypoints1.size() || m.trainIdx < 0 ||
        static_cast<size_t>(m.trainIdx) >= keypoints2.size())
      tvm::erro("Erro: impMatch: indice de keypoint fora do intervalo");
    ++contagem;
  }

  tvm::SaidaSegura saida(fileName);
  saida.escreve(std::to_string(contagem) + " 15\n");
  saida.escreve(kComentario);
  char linha[kLinha];
  for (size_t i = 0; i < matches.size(); ++i) {
    if (!escolhido(i)) continue;
    int n = std::snprintf(linha, kLinha, "%e  ", matches[i].distance);
    n = escreveKeyPoint(linha, n, keypoints1[matches[i].queryIdx]);
    linha[n++] = ' ';
    linha[n++] = ' ';
    n = escreveKeyPoint(linha, n, keypoints2[matches[i].trainIdx]);
    linha[n++] = '\n';
    saida.escreve(linha, static_cast<size_t>(n));
  }
  saida.confirma();
}

void leMatch(std::vector<cv::DMatch>& matches, std::vector<cv::KeyPoint>& keypoints1,
             std::vector<cv::KeyPoint>& keypoints2, const std::string& fileName) {
  if (ehExterno(fileName)) {
    const CasamentosDados c = leCasamentosExternos(fileName);
    matches.clear(), keypoints1.clear(), keypoints2.clear();
    for (const cv::DMatch& m : c.casamentos) {
      matches.emplace_back(static_cast<int>(matches.size()), static_cast<int>(matches.size()), m.distance);
      keypoints1.push_back(c.k1[m.queryIdx]);
      keypoints2.push_back(c.k2[m.trainIdx]);
    }
    return;
  }
  if (!leMatchRapido(fileName, matches, keypoints1, keypoints2))
    leMatchFscanf(matches, keypoints1, keypoints2, fileName);
}

cv::KeyPoint comoNoArquivo(const cv::KeyPoint& k) {
  return cv::KeyPoint(pelaEscrita(k.pt.x), pelaEscrita(k.pt.y), pelaEscrita(k.size), pelaEscrita(k.angle),
                      pelaEscrita(k.response), k.octave, k.class_id);
}

void leMatchFscanf(std::vector<cv::DMatch>& matches, std::vector<cv::KeyPoint>& keypoints1,
                   std::vector<cv::KeyPoint>& keypoints2, const std::string& fileName) {
  tvm::Arquivo arquivo(fileName, "r");
  if (!arquivo) tvm::erro("Erro arquivo inexistente ", fileName);
  FILE* f = arquivo.get();
  int n = 0, colunas = 0;
  if (!tvm::leNum(f, n) || !tvm::leNum(f, colunas)) tvm::erro("Erro: linha de contagem invalida em ", fileName);
  if (colunas != kColunas) tvm::erro("Erro: Arquivo nao tem 15 colunas");
  if (n < 0) tvm::erro("Erro: numero de casamentos negativo em ", fileName);

  // The count line is not trusted for allocation: a file cannot hold more
  // lines than its size allows.
  const size_t previstos = static_cast<size_t>(std::min<long>(n, tamanhoArquivo(fileName) / kMenorLinha + 1));
  const auto leLinha = [f](float& distancia, cv::KeyPoint& a, cv::KeyPoint& b) {
    return tvm::leNum(f, distancia) && leKeyPoint(f, a) && leKeyPoint(f, b);
  };
  if (!leLinhasDeCasamento(n, previstos, leLinha, matches, keypoints1, keypoints2))
    tvm::erro("Erro: arquivo de casamentos truncado ou invalido ", fileName);
}

}  // namespace formats
