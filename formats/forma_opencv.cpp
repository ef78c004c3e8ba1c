#include "formats/forma_opencv.hpp"

#include <cstring>
#include <string_view>

namespace formats {

namespace {

constexpr size_t kMaiorChave = 256;
constexpr size_t kMaiorEscalar = 1024;
constexpr int kRecuoYaml = 3;

bool letra(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool digito(char c) { return c >= '0' && c <= '9'; }
bool deChave(char c) { return letra(c) || digito(c) || c == '-'; }
bool dePalavra(char c) { return deChave(c) || c == '.' || c == '+' || c == '/'; }
// Three letters against a lower-case word, in any case.
bool iguais(const char* p, const char* minusculas) {
  for (int i = 0; i < 3; ++i)
    if ((p[i] | 0x20) != minusculas[i]) return false;
  return true;
}

// Every method either consumes what it names and returns true, or returns
// false; a false is final (nothing is tried again), so a text is read at most
// once. Nesting depth is bounded, so the recursion is too.
class Forma {
 public:
  Forma(const char* p, size_t n) : p_(p), fim_(p + n) {}

  bool texto() {
    if (comeca("%YAML")) return yaml();
    if (comeca("{")) return json();
    return xml();
  }

 private:
  bool acabou() const { return p_ == fim_; }
  char atual() const { return p_ < fim_ ? *p_ : '\0'; }
  char depois(size_t k) const { return static_cast<size_t>(fim_ - p_) > k ? p_[k] : '\0'; }
  bool comeca(std::string_view s) const {
    return static_cast<size_t>(fim_ - p_) >= s.size() && std::memcmp(p_, s.data(), s.size()) == 0;
  }
  bool literal(std::string_view s) {
    if (!comeca(s)) return false;
    p_ += s.size();
    return true;
  }
  bool espacos() {
    while (atual() == ' ') ++p_;
    return true;
  }

  // ------------------------------------------------------------ scalars

  // Integers, reals with "." or an exponent, ".Nan", ".Inf", "-.Inf" (the
  // last three in any case, as the parsers take them).
  bool numero() {
    const char* q = p_;
    if (q < fim_ && *q == '-') ++q;
    if (fim_ - q >= 4 && q[0] == '.' && (iguais(q + 1, "nan") || iguais(q + 1, "inf"))) {
      p_ = q + 4;
      return true;
    }
    const char* inicio = q;
    while (q < fim_ && digito(*q)) ++q;
    size_t digitos = static_cast<size_t>(q - inicio);
    if (q < fim_ && *q == '.') {
      const char* fracao = ++q;
      while (q < fim_ && digito(*q)) ++q;
      digitos += static_cast<size_t>(q - fracao);
    }
    if (digitos == 0) return false;
    if (q < fim_ && (*q == 'e' || *q == 'E')) {
      ++q;
      if (q < fim_ && (*q == '+' || *q == '-')) ++q;
      const char* expoente = q;
      while (q < fim_ && digito(*q)) ++q;
      if (q == expoente) return false;
    }
    if (q - p_ > 64) return false;
    p_ = q;
    return true;
  }

  // A double-quoted string on one line. YAML and JSON escape with a
  // backslash, XML with its five entities.
  bool aspas(bool xml) {
    const char* inicio = p_;
    ++p_;
    for (;;) {
      if (static_cast<size_t>(p_ - inicio) > kMaiorEscalar) return false;
      const char c = atual();
      if (c == '"') {
        ++p_;
        return true;
      }
      if (static_cast<unsigned char>(c) < 0x20) return false;  // line break, NUL, end of text
      if (xml) {
        if (c == '<' || c == '\\') return false;
        if (c == '&' && !(literal("&quot;") || literal("&amp;") || literal("&lt;") || literal("&gt;") ||
                          literal("&apos;")))
          return false;
        if (c != '&') ++p_;
      } else if (c == '\\') {
        const char e = depois(1);
        if (!e || !std::strchr("\"\\/bfnrt'", e)) return false;
        p_ += 2;
      } else {
        ++p_;
      }
    }
  }

  // A word starting with a letter; in YAML a plain string may hold single
  // blanks between words, in XML a ':' ("x:y" is written bare there).
  bool palavra(bool yaml) {
    if (!letra(atual())) return false;
    const char* inicio = p_;
    for (;;) {
      while (dePalavra(atual()) || (!yaml && atual() == ':')) ++p_;
      if (!(yaml && atual() == ' ' && dePalavra(depois(1)))) break;
      ++p_;
    }
    return static_cast<size_t>(p_ - inicio) <= kMaiorEscalar;
  }

  bool escalar(bool yaml, bool xml) {
    if (atual() == '"') return aspas(xml);
    if (letra(atual()) && !xml && !yaml) return false;  // JSON quotes its strings
    if (letra(atual())) return palavra(yaml);
    return numero();
  }

  bool chave() {
    if (!letra(atual())) return false;
    const char* inicio = p_;
    while (deChave(atual())) ++p_;
    return static_cast<size_t>(p_ - inicio) <= kMaiorChave;
  }

  // A type name: "opencv-matrix".
  bool tipo() {
    const char* inicio = p_;
    while (deChave(atual())) ++p_;
    return p_ > inicio && p_ - inicio <= 64;
  }

  // ------------------------------------------------------------ YAML

  bool yaml() {
    if (!literal("%YAML:1.0\n")) return false;
    literal("---\n");
    if (letra(atual()) && !mapaBloco(0, 0)) return false;
    brancos();  // blank text at the very end, as after XML and JSON
    return acabou();
  }

  // Spaces at the start of the current line, not consumed.
  int recuoDaLinha() const {
    const char* q = p_;
    while (q < fim_ && *q == ' ') ++q;
    return static_cast<int>(q - p_);
  }

  // Lines of `key: value` at exactly `recuo` columns; at least one.
  bool mapaBloco(int recuo, int prof) {
    if (prof > kProfundidadeMaxima) return false;
    bool algum = false;
    for (;;) {
      const int r = recuoDaLinha();
      if (r != recuo || !letra(depois(static_cast<size_t>(r)))) return algum;
      p_ += r;
      if (!chave() || !literal(":") || !valorBloco(recuo, prof)) return false;
      algum = true;
    }
  }

  // Lines of `- value` at exactly `recuo` columns; at least one.
  bool seqBloco(int recuo, int prof) {
    if (prof > kProfundidadeMaxima) return false;
    bool algum = false;
    for (;;) {
      const int r = recuoDaLinha();
      if (r != recuo || depois(static_cast<size_t>(r)) != '-') return algum;
      p_ += r + 1;
      if (!valorBloco(recuo, prof)) return false;
      algum = true;
    }
  }

  // After "key:" or "-" on a line indented `recuo`, up to and with the end
  // of the value's last line.
  bool valorBloco(int recuo, int prof) {
    if (literal(" !!")) return tipo() && literal("\n") && mapaBloco(recuo + kRecuoYaml, prof + 1);
    if (literal(" ")) {
      const bool ok = (atual() == '[' || atual() == '{') ? fluxo(recuo, prof + 1) : escalar(true, false);
      return ok && literal("\n");
    }
    return literal("\n") && aninhado(recuo + kRecuoYaml, prof + 1);
  }

  // A block one level deeper, or an empty collection on a line of its own.
  bool aninhado(int recuo, int prof) {
    const int r = recuoDaLinha();
    if (r != recuo) return false;
    const char c = depois(static_cast<size_t>(r));
    if (c == '-') return seqBloco(recuo, prof);
    if (letra(c)) return mapaBloco(recuo, prof);
    if (c != '[' && c != '{') return false;
    p_ += r;
    return fluxo(recuo, prof) && literal("\n");
  }

  // Blanks inside a flow collection: spaces, and line breaks onto a line
  // indented deeper than `recuo` that holds more than blanks.
  bool brancosFluxo(int recuo) {
    for (;;) {
      espacos();
      if (atual() != '\n') return true;
      ++p_;
      const int r = recuoDaLinha();
      p_ += r;
      if (r <= recuo || atual() == '\n' || acabou()) return false;
    }
  }

  // "[ a, b ]" or "{ k:v, ... }", starting at its bracket.
  bool fluxo(int recuo, int prof) {
    if (prof > kProfundidadeMaxima) return false;
    const bool mapa = atual() == '{';
    const char fecha = mapa ? '}' : ']';
    ++p_;
    if (!brancosFluxo(recuo)) return false;
    if (atual() == fecha) {
      ++p_;
      return true;
    }
    for (;;) {
      if (mapa && !(chave() && literal(":") && espacos())) return false;
      const bool ok = (atual() == '[' || atual() == '{') ? fluxo(recuo, prof + 1) : escalar(true, false);
      if (!ok || !brancosFluxo(recuo)) return false;
      if (atual() == fecha) {
        ++p_;
        return true;
      }
      if (!literal(",") || !brancosFluxo(recuo)) return false;
    }
  }

  // ------------------------------------------------------------ XML

  void brancos() {
    while (atual() == ' ' || atual() == '\n') ++p_;
  }

  bool xml() {
    if (!literal("<?xml version=\"1.0\"?>")) return false;
    brancos();
    if (!literal("<opencv_storage>") || !conteudoXml(1, true) || !literal("</opencv_storage>")) return false;
    brancos();
    return acabou();
  }

  // An element's content, up to its closing tag: named elements (a map), or
  // scalars and "<_>" elements (a sequence), or nothing.
  bool conteudoXml(int prof, bool soMapa) {
    enum class Tipo { nada, mapa, sequencia } tipoAtual = Tipo::nada;
    for (;;) {
      brancos();
      if (comeca("</")) return true;
      Tipo deste = Tipo::sequencia;
      if (atual() == '<') {
        bool item = false;
        if (!elementoXml(prof + 1, item)) return false;
        if (!item) deste = Tipo::mapa;
      } else if (!escalar(false, true) || !(atual() == ' ' || atual() == '\n' || atual() == '<')) {
        return false;
      }
      if ((tipoAtual != Tipo::nada && tipoAtual != deste) || (soMapa && deste != Tipo::mapa)) return false;
      tipoAtual = deste;
    }
  }

  // "<name>" or `<name type_id="t">`, content, "</name>".
  bool elementoXml(int prof, bool& item) {
    if (prof > kProfundidadeMaxima) return false;
    ++p_;
    const char* nome = p_;
    if (!chave()) return false;
    const std::string_view n(nome, static_cast<size_t>(p_ - nome));
    item = n == "_";
    if (literal(" type_id=\"") && !(tipo() && literal("\""))) return false;
    return literal(">") && conteudoXml(prof, false) && literal("</") && literal(n) && literal(">");
  }

  // ------------------------------------------------------------ JSON

  bool json() {
    if (!valorJson(1)) return false;
    brancos();
    return acabou();
  }

  bool valorJson(int prof) {
    if (atual() != '[' && atual() != '{') return escalar(false, false);
    if (prof > kProfundidadeMaxima) return false;
    const bool objeto = atual() == '{';
    const char fecha = objeto ? '}' : ']';
    ++p_;
    brancos();
    if (literal(std::string_view(&fecha, 1))) return true;
    for (;;) {
      if (objeto) {
        if (!literal("\"") || !chave() || !literal("\"")) return false;
        brancos();
        if (!literal(":")) return false;
        brancos();
      }
      if (!valorJson(prof + 1)) return false;
      brancos();
      if (literal(std::string_view(&fecha, 1))) return true;
      if (!literal(",")) return false;
      brancos();
    }
  }

  const char* p_;
  const char* fim_;
};

}  // namespace

bool formaDoOpenCV(const char* texto, size_t n) { return Forma(texto, n).texto(); }

}  // namespace formats
