// Argument stream and the conversions of command-line words.
//
// A tool takes its positional arguments from argv directly (numbers through
// convArg) and its options from an ISTR built on the words that follow them.
// ISTR cuts every word into tokens at blanks, '=' and ',':
//   "ratio=0.8"   -> "ratio" "0.8"
//   "cor=0,0,255" -> "cor" "0" "0" "255"
//   "modo="       -> "modo" ""          (an empty value stays a token)
// Look-ups (seekArg) and reads (leStr, leNum, leFileName)
// consume tokens; resto() is the text of the tokens nobody consumed, empty
// exactly when all were, so a tool can reject unknown or repeated options.
#pragma once

#include <opencv2/core.hpp>

#include <initializer_list>
#include <string>
#include <vector>

namespace tvm {

class ISTR {
 public:
  ISTR(int n, char** words);

  // Unconsumed tokens joined by blanks, in their original order.
  std::string resto() const;

  // Index of the first unconsumed token at or after `inicio`, or -1.
  int proximo(size_t inicio = 0) const;
  const std::string& token(int i) const { return tokens_[i]; }
  void consome(int i) { consumido_[i] = true; }
  int tamanho() const { return static_cast<int>(tokens_.size()); }

 private:
  std::vector<std::string> tokens_;
  std::vector<bool> consumido_;
};

// Look for `key` (letter case ignored) among the unconsumed tokens; when it is
// there with a token after it, convert that token into `value` and consume
// both. Otherwise `value` keeps the caller's default. A key with no value
// after it stays unconsumed, so the leftover check reports it.
bool seekArg(ISTR& in, const std::string& key, int& value);
bool seekArg(ISTR& in, const std::string& key, double& value);
bool seekArg(ISTR& in, const std::string& key, bool& value);
// A text value, file names included, keeps its letter case.
bool seekArg(ISTR& in, const std::string& key, std::string& value);

// One numeric option of a tool's list: its key and the field it fills.
struct OpcaoNum {
  OpcaoNum(const char* chave_, int& valor) : chave(chave_), inteiro(&valor) {}
  OpcaoNum(const char* chave_, double& valor) : chave(chave_), real(&valor) {}
  const char* chave;
  int* inteiro = nullptr;
  double* real = nullptr;
};
// seekArg for each option in the list's order (the order decides which of
// two malformed values the tool reports).
void seekArgs(ISTR& in, std::initializer_list<OpcaoNum> opcoes);

// Next unconsumed token, consumed; "eof" when none is left.
std::string leStr(ISTR& in);
// Next token as a file name (an empty name when none is left).
std::string leFileName(ISTR& in);
// Next token as a number; a missing or malformed number stops the tool.
void leNum(ISTR& in, double& value);
void leNum(ISTR& in, uchar& value);

// Positional numeric arguments. Text that is not a finite number in range
// stops the tool with a message naming it.
void convArg(int& value, const std::string& text);
void convArg(double& value, const std::string& text);

std::string minuscula(std::string text);

}  // namespace tvm
