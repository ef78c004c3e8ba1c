#include "evaluation/curvas.hpp"

#include "support/arquivos.hpp"
#include "support/desenho.hpp"
#include "support/erro.hpp"
#include "support/texto.hpp"

#include <cstdio>

namespace evaluation {

namespace {

const cv::Vec3b kBranco(255, 255, 255);
const cv::Vec3b kCinza(128, 128, 128);
const cv::Vec3b kPreto(0, 0, 0);

void rotulo(cv::Mat_<cv::Vec3b>& img, int row, int col, const std::string& texto) {
  tvm::putTxt(img, row, col, texto, kPreto, 1, true, kBranco);
}

// White square with grey lines every `passo` pixels, `linhas` + 1 of them each
// way; labels (10 - j) / 10 down the left side and j / 10 along the bottom.
cv::Mat_<cv::Vec3b> grade(int lado, int passo, int linhas) {
  cv::Mat_<cv::Vec3b> img(lado, lado, kBranco);
  for (int j = 0; j <= linhas; ++j) {
    const int p = j * passo;
    tvm::reta(img, p, 0, p, img.cols - 1, kCinza, 1);
    rotulo(img, p + 1, 1, cv::format("%3.1f", (10 - j) / 10.0));
    tvm::reta(img, 0, p, img.rows - 1, p, kCinza, 1);
    // The 0.0 label starts left of the image and shows clipped.
    rotulo(img, img.rows - 15, p - 24, cv::format("%3.1f", j / 10.0));
  }
  return img;
}

void exigeCasamentos(const std::vector<bool>& certos) {
  if (certos.empty()) tvm::erro("Erro: arquivo de casamentos vazio, nada a avaliar");
}

void exigeEscala(int s) {
  if (s < 1) tvm::erro("Erro: escala do grafico invalida");
}

}  // namespace

std::vector<Confusao> confusoes(const std::vector<bool>& certos) {
  exigeCasamentos(certos);
  int P = 0;
  for (bool c : certos) P += c;
  const int N = static_cast<int>(certos.size()) - P;
  std::vector<Confusao> contagens(certos.size());
  Confusao atual{0, 0, P, N};
  for (size_t k = 0; k < certos.size(); ++k) {
    if (certos[k]) {
      ++atual.tp;
      --atual.fn;
    } else {
      ++atual.fp;
      --atual.tn;
    }
    contagens[k] = atual;
  }
  return contagens;
}

std::vector<PontoROC> pontosROC(const std::vector<Confusao>& contagens) {
  std::vector<PontoROC> pontos;
  pontos.reserve(contagens.size());
  for (const Confusao& c : contagens)
    pontos.push_back({static_cast<double>(c.tp) / (c.tp + c.fn), static_cast<double>(c.fp) / (c.fp + c.tn)});
  return pontos;
}

std::vector<double> taxasAcerto(const std::vector<bool>& certos) {
  exigeCasamentos(certos);
  std::vector<double> taxas(certos.size());
  int acertos = 0;
  for (size_t i = 0; i < certos.size(); ++i) {
    acertos += certos[i];
    taxas[i] = static_cast<double>(acertos) / static_cast<double>(i + 1);
  }
  return taxas;
}

void curvaROC(const std::vector<PontoROC>& pontos, cv::Mat_<cv::Vec3b>& img, int s, cv::Vec3b cor) {
  exigeEscala(s);
  img = grade(50 * s + 1, 10 * s, 5);
  rotulo(img, 16, 1, "tpr");
  rotulo(img, img.rows - 31, img.cols - 30, "fpr");
  bool primeiro = true;
  for (const PontoROC& p : pontos) {
    const double a = p.tpr * 100.0, b = p.fpr * 100.0;
    // NaN rates fail these comparisons and are skipped like any point outside.
    if (!(a >= 50.0 && a <= 100.0 && b >= 0.0 && b <= 50.0)) continue;
    const int row = cvRound((100.0 - a) * s), col = cvRound(b * s);
    if (primeiro)
      tvm::moveTo(row, col);
    else
      tvm::lineTo(img, row, col, cor);
    primeiro = false;
  }
}

void curvaAccRej(const std::vector<double>& taxas, cv::Mat_<cv::Vec3b>& img, int s, cv::Vec3b cor, char eixox) {
  exigeEscala(s);
  if (eixox != 'a' && eixox != 'r') tvm::erro("Erro curvaAccRej: eixox invalido");
  img = grade(100 * s + 1, 10 * s, 10);
  rotulo(img, 16, 1, "tpr");
  rotulo(img, img.rows - 31, img.cols - 80, eixox == 'r' ? "rej. rate" : "acc. rate");
  const double n = static_cast<double>(taxas.size());
  for (size_t i = 0; i < taxas.size(); ++i) {
    const double x = eixox == 'r' ? (n - 1.0 - i) * 100.0 / n : i * 100.0 / n;
    const int row = cvRound((100.0 - taxas[i] * 100.0) * s), col = cvRound(s * x);
    if (i == 0)
      tvm::moveTo(row, col);
    else
      tvm::lineTo(img, row, col, cor);
  }
}

void impROC(const std::vector<PontoROC>& pontos, const std::vector<bool>& certos, const std::string& nome) {
  if (nome.empty()) tvm::erro("Erro: abertura ", nome);
  tvm::SaidaSegura saida(nome, "Erro: abertura ");
  escreveROC(pontos, certos, saida);
  saida.confirma();
}

void escreveROC(const std::vector<PontoROC>& pontos, const std::vector<bool>& certos, tvm::SaidaSegura& saida) {
  if (pontos.size() != certos.size()) tvm::erro("Erro impROC: pontos e flags de tamanhos diferentes");
  char linha[64];
  const auto escreve = [&](int n) { saida.escreve(linha, static_cast<size_t>(n)); };
  escreve(std::snprintf(linha, sizeof linha, "%3u %3d\n", static_cast<unsigned>(pontos.size()), 2));
  escreve(std::snprintf(linha, sizeof linha, "//%3s %3s %3s\n", "pos", "x", "y"));
  escreve(std::snprintf(linha, sizeof linha, "//%3s %3s %3s\n", "pos", "fpr", "tpr"));
  for (size_t i = 0; i < pontos.size(); ++i)
    escreve(std::snprintf(linha, sizeof linha, "%3d %3d %3d\n", certos[i] ? 1 : 0, cvRound(pontos[i].fpr * 100.0),
                          cvRound(pontos[i].tpr * 100.0)));
}

std::string linhaMatlab(const std::vector<bool>& certos) {
  std::string linha;
  linha.reserve(2 * certos.size() + 1);
  for (bool c : certos) linha += c ? "1 " : "0 ";
  linha += '\n';
  return linha;
}

void sobrepoe(cv::Mat_<cv::Vec3b>& tela, const cv::Mat_<cv::Vec3b>& img) {
  if (img.rows != tela.rows || img.cols != tela.cols) tvm::erro("Erro: Imagens com tamanhos diferentes");
  for (int r = 0; r < img.rows; ++r) {
    const cv::Vec3b* origem = img[r];
    cv::Vec3b* destino = tela[r];
    for (int c = 0; c < img.cols; ++c)
      if (origem[c] != kBranco) destino[c] = origem[c];
  }
}

}  // namespace evaluation
