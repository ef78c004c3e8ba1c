#include "support/numeros.hpp"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cerrno>
#include <limits>

namespace tvm {

std::string formataNumero(const char* formato, double value) {
  char s[64];
  std::snprintf(s, sizeof s, formato, value);
  return s;
}

std::string textoDeNumero(double value) {
  char texto[32];
  std::snprintf(texto, sizeof texto, "%g", value);
  return texto;
}

RANDOM myrandom;

namespace {

bool soBrancos(const char* p) {
  while (*p && std::isspace(static_cast<unsigned char>(*p))) ++p;
  return *p == '\0';
}

// Reads one blank-delimited word of f, skipping "//" comment lines.
bool lePalavra(FILE* f, std::string& palavra) {
  int ch = std::fgetc(f);
  for (;;) {
    while (ch != EOF && std::isspace(ch)) ch = std::fgetc(f);
    if (ch != '/') break;
    const int seguinte = std::fgetc(f);
    if (seguinte != '/') {
      if (seguinte != EOF) std::ungetc(seguinte, f);
      break;
    }
    while (ch != EOF && ch != '\n') ch = std::fgetc(f);
  }
  palavra.clear();
  while (ch != EOF && !std::isspace(ch)) {
    palavra += static_cast<char>(ch);
    if (palavra.size() > 64) return false;  // no number is this long
    ch = std::fgetc(f);
  }
  if (ch != EOF) std::ungetc(ch, f);
  return !palavra.empty();
}

}  // namespace

bool textoParaInt(const std::string& text, int& value) {
  const char* inicio = text.c_str();
  char* fim = nullptr;
  errno = 0;
  const long v = std::strtol(inicio, &fim, 10);
  if (fim == inicio || errno == ERANGE || !soBrancos(fim)) return false;
  if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()) return false;
  value = static_cast<int>(v);
  return true;
}

bool textoParaDouble(const std::string& text, double& value) {
  const char* inicio = text.c_str();
  char* fim = nullptr;
  const double v = std::strtod(inicio, &fim);
  if (fim == inicio || !soBrancos(fim) || !std::isfinite(v)) return false;
  value = v;
  return true;
}

bool leNum(FILE* f, int& value) {
  std::string palavra;
  return lePalavra(f, palavra) && textoParaInt(palavra, value);
}

bool leNum(FILE* f, double& value) {
  std::string palavra;
  return lePalavra(f, palavra) && textoParaDouble(palavra, value);
}

bool leNum(FILE* f, float& value) {
  double v = 0;
  if (!leNum(f, v) || std::fabs(v) > std::numeric_limits<float>::max()) return false;
  value = static_cast<float>(v);
  return true;
}

double normal01(cv::Mat_<float>& m, double a, double b) {
  const double n = static_cast<double>(m.total());
  if (n == 0) return 0.0;
  double soma = 0;
  for (float v : m) soma += v;
  const double media = soma / n;
  double soma2 = 0;
  for (float v : m) soma2 += (v - media) * (v - media);
  const double desvio = std::sqrt(soma2 / n);
  if (desvio < epsilon) return desvio;
  const double fator = b / desvio;
  for (float& v : m) v = static_cast<float>((v - media) * fator + a);
  return desvio;
}

}  // namespace tvm
