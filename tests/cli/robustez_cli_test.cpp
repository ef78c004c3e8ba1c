// Bad input, tool by tool, through the real binary. Researchers run the tools
// by the thousand from scripts, so every bad file or word must end the run
// with status 1, one stderr line "Erro..." naming the file or value at
// fault, no signal, within a time bound, and no file left behind.
#include "algoritmos/tabela.hpp"
#include "formats/stores.hpp"
#include "tests/common/cli.hpp"
#include "tests/common/pasta_temp.hpp"
#include "tests/common/sinteticas.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <thread>

namespace {

using Palavras = std::vector<std::string>;

// Each row a command line, the tool word first. "@name" is an input file,
// ">name" an output (">name/" an output folder), "#" marks a number and its
// good value; what comes before a mark stays ("key=@k.yml" gives "key=k.yml").
const std::vector<Palavras>& ferramentas() {
  static const std::vector<Palavras> tabela = {
      {"keysift", "@a.pgm", ">sai.yml", "#0", "#3"}, {"keysurf", "@a.pgm", ">sai.yml", "#500"},
      {"keyfast", "@a.pgm", ">sai.yml", "#10"}, {"keystar", "@a.pgm", ">sai.yml"},
      {"keyrand", "@a.pgm", "@b.pgm", "@h.txt", "#5", ">sa.yml", ">sb.yml", "seed=#7", "diamMin=#30", "diamMax=#40",
       "pertPt=#0", "pertDiam=#0", "pertDeg=#0"},
      {"keycgsize", "@k.yml", ">sai.yml", "#2"}, {"keygrande", "@a.pgm", "@k.yml", ">sai.yml", "#3"},
      {"keyangulo", "@k.yml", ">sai.yml", "para=DesSimp", "de=KeySift"},
      {"keyshow", "@a.pgm", "@k.yml", ">sai.png"}, {"keymyshow", "@a.pgm", "@k.yml", ">sai.png"},
      {"dessift", "@a.pgm", ">sai.yml", "@k.yml"}, {"dessurf", "@a.pgm", ">sai.yml", "@k.yml"},
      {"dessimp", "@a.pgm", ">sai.yml", "key=@k.yml", "camadas=#6", "dgauss=#11"},
      {"desriff", "@a.pgm", ">sai.yml", "key=@k.yml", "naneis=#4", "larguraAnel=#10"},
      {"desrihog", "@a.pgm", ">sai.yml", "key=@k.yml", "naneis=#5", "raio=#40", "nbins=#20", "ngauss=#37"},
      {"desruhog", "@a.pgm", ">sai.yml", "key=@k.yml", "naneis=#5", "raio=#40", "nbins=#20", "ngauss=#37"},
      {"desforapro", "@a.pgm", ">sai.yml", "key=@k.yml", "nrad=#4", "ncir=#4", "raio=#40"},
      {"matnn", "@d1.yml", "@d2.yml", ">sai.txt"},
      {"matratio", "@d1.yml", "@d2.yml", ">sai.txt", "ratio=#0.8", "acrate=#0.5"},
      {"matmutuo", "@d1.yml", "@d2.yml", ">sai.txt"},
      {"keyrep", "@a.pgm", "@b.pgm", "@k.yml", "@k.yml", "@h.txt", "erro=#40", "px=#3"},
      {"matscore", "@a.pgm", "@b.pgm", "@k.yml", "@k.yml", "@mdentro.txt", "@h.txt", "erro=#40", "dist=#3",
       "ransac=#3", "curva=>rp.csv"},
      {"matshow", "@a.pgm", "@b.pgm", "@m.txt", ">sai.png"}, {"matmyshow", "@a.pgm", "@b.pgm", "@m.txt", ">sai.png"},
      // Two options at most; the colour words are read as MatAcert reads them.
      {"matroc", "@m.txt", "@h.txt", ">sai.png", "arquivo=>roc.txt", "dist=#15"},
      {"matacert", "@m.txt", "@h.txt", ">sai.png", "dist=#15", "cor=0,#0,0"},
      {"matlab", "@m.txt", "@h.txt", ">sai.txt", "dist=#15"},
      // No display in a test run: a good MatVis run stops at the display
      // check, after every file was read.
      {"matvis", "@a.pgm", "@b.pgm", "@m.txt", "@h.txt"}, {"sobrroc", ">sai.png", "@c1.png", "@c2.png"},
      {"filtmat", "@m.txt", "@h.txt", "#15", ">sai.txt"},
      {"matpose", "@a.pgm", "@b.pgm", "@mdentro.txt", "@p.txt", "ransac=#1", "csv=>p.csv"},
      {"sintpose", "@a.pgm", ">sp/", "superficie=ondas", "giro=#15", "desloc=#0.2", "n=#2", "seed=#7"},
  };
  return tabela;
}

// A descriptor bound to some detectors (soDe) reads the keypoints of the
// first of them with a row tool that finds any on a.pgm (its row asked here,
// since the list of cases is made before any run); "" when none does, as
// AKAZE's on 64 x 64, and then its tool detects its own.
std::string detectorDasChaves(const algoritmos::LinhaDescritor& l) {
  const std::string lista = l.soDe ? std::string(l.soDe) + "," : "";
  for (size_t i = 0, fim; (fim = lista.find(',', i)) != std::string::npos; i = fim + 1) {
    const algoritmos::LinhaDetector* d = algoritmos::detector(lista.substr(i, fim - i));
    tvm::ISTR padrao(0, nullptr);
    if (d && !d->propria && !algoritmos::criaDetector(d->nome, padrao).detecta(teste::textura(64, 64, 1)).empty())
      return d->nome;
  }
  return "";
}

// The row tools, read off the table so that a new row is covered as it is
// added: every option at its default, numbers marked.
std::vector<Palavras> ferramentasDaTabela() {
  std::vector<Palavras> r;
  const auto opcoes = [](Palavras linha, const std::vector<algoritmos::Opcao>& opcoes) {
    for (const algoritmos::Opcao& o : opcoes) {
      char* fim = nullptr;
      std::strtod(o.padrao.c_str(), &fim);
      if (!o.padrao.empty()) linha.push_back(o.nome + (*fim ? "=" : "=#") + o.padrao);
    }
    return linha;
  };
  for (const auto& l : algoritmos::detectores())
    if (!l.propria) r.push_back(opcoes({tvm::minuscula(l.ferramenta), "@a.pgm", ">sai.yml"}, l.opcoes));
  for (const auto& l : algoritmos::descritores()) {
    if (l.propria) continue;
    Palavras linha = {tvm::minuscula(l.ferramenta), "@a.pgm", ">sai.yml"};
    const std::string det = detectorDasChaves(l);
    if (!l.soDe) linha.push_back("key=@k.yml");
    if (!det.empty()) linha.push_back("key=@k_" + det + ".yml");
    r.push_back(opcoes(linha, l.opcoes));
  }
  return r;
}

// By the name's first letter: keypoints k.yml, descritores d1/d2.yml,
// casamentos m.txt, transformacao h.txt, cor c1/c2.png, pose p.txt; any
// other an image.
enum class Tipo { imagem, keypoints, descritores, casamentos, transformacao, cor, pose };
Tipo tipoDe(const std::string& nome) {
  const size_t i = std::string("kdmhcp").find(nome[0]);
  return i == std::string::npos ? Tipo::imagem : static_cast<Tipo>(i + 1);
}

// The files of a run that works, by name, and broken descriptor stores that
// only the store writer makes well.
const std::map<std::string, std::string>& boas() {
  static const std::map<std::string, std::string> arquivos = [] {
    teste::PastaTemp p;
    teste::salva(teste::textura(64, 64, 1), p / "a.pgm");
    teste::salva(teste::textura(64, 64, 2), p / "b.pgm");
    teste::salva(cv::Mat_<cv::Vec3b>(40, 40, cv::Vec3b(255, 255, 255)), p / "c1.png");
    std::vector<cv::KeyPoint> k;
    for (int i = 0; i < 6; ++i) k.emplace_back(16.0f + 6.0f * i, 20.0f + 4.0f * i, 12.0f, 30.0f * i, 1.0f, 0, -1);
    formats::impKeyPoints(p / "k.yml", k);
    cv::Mat d(6, 16, CV_32F), u8;
    cv::randu(d, 0, 1);
    d.convertTo(u8, CV_8U, 255.0);
    formats::impDescritores(p / "d1.yml", k, d);
    formats::impDescritores(p / "d2.yml", k, d * 0.5);
    formats::impDescritores(p / "largura.yml", k, d.colRange(0, 8));
    formats::impDescritores(p / "linhas5.yml", k, d.rowRange(0, 5));
    formats::impDescritores(p / "uchar.yml", k, u8);
    d.at<float>(2, 3) = std::numeric_limits<float>::quiet_NaN();
    formats::impDescritores(p / "nan.yml", k, d);
    teste::escreveCasamentos(p / "m.txt", {0, 3, 40, 1, 2, 50});
    // Every keypoint on the 64 x 64 images, as MatScore demands.
    teste::escreveCasamentos(p / "mdentro.txt", {0, 3, 1, 2});
    // K0, K1, then T_0to1: a camera moved one unit to the side.
    std::map<std::string, std::string> a = {
        {"h.txt", "1 0 0\n0 1 0\n0 0 1\n"},
        {"p.txt", "500 0 32 0 500 32 0 0 1 500 0 32 0 500 32 0 0 1 1 0 0 1 0 1 0 0 0 0 1 0 0 0 0 1\n"}};
    for (const auto& e : std::filesystem::directory_iterator(p.caminho()))
      a[e.path().filename().string()] = teste::leTexto(e.path().string());
    a["c2.png"] = a["c1.png"];
    for (const auto& l : algoritmos::descritores()) {
      const std::string det = detectorDasChaves(l);
      if (det.empty()) continue;
      teste::rodaBem({algoritmos::detector(det)->ferramenta, "a.pgm", "k_" + det + ".yml"}, p.caminho());
      a["k_" + det + ".yml"] = teste::leTexto(p / ("k_" + det + ".yml"));
    }
    return a;
  }();
  return arquivos;
}

// `texto` with its number n replaced by valores[n] (numbers that start a
// word: the "1.0" of "%YAML:1.0" does not count).
std::string troca(std::string texto, const std::map<int, std::string>& valores) {
  for (size_t i = 0, n = 0; i < texto.size(); ++i) {
    const size_t fim = std::min(texto.find_first_not_of("+-.0123456789eE", i), texto.size());
    if ((i > 0 && !std::strchr(" \n[,", texto[i - 1])) || std::strchr("eE", texto[i]) ||
        texto.find_first_of("0123456789", i) >= fim)
      continue;
    if (valores.count(int(n))) texto.replace(i, fim - i, valores.at(int(n)));
    ++n;
  }
  return texto;
}

// A PNG header claiming 100000 x 100000 grey pixels, then a scrap of data.
std::string pngGigante() {
  const auto be32 = [](uint32_t v) {
    return std::string{char(v >> 24), char(v >> 16 & 255), char(v >> 8 & 255), char(v & 255)};
  };
  const auto bloco = [&](const std::string& dados) {
    uint32_t c = 0xFFFFFFFFu;
    for (unsigned char b : dados)
      for (int k = 0; k < 8; ++k, b >>= 1) c = (c >> 1) ^ (0xEDB88320u & (0u - ((c ^ b) & 1u)));
    return be32(uint32_t(dados.size() - 4)) + dados + be32(~c);
  };
  return std::string("\x89PNG\r\n\x1a\n", 8) +
         bloco("IHDR" + be32(100000) + be32(100000) + std::string("\x08\0\0\0\0", 5)) +
         bloco("IDAT" + std::string("\x78\x9c\x63\x60", 4));
}

struct Caso {
  std::string nome, esperado, pasta;                           // pasta: a folder made before the run
  Palavras args;                                               // the tool word first
  std::map<std::string, std::optional<std::string>> arquivos;  // written before the run
  std::set<std::string> saidas;                                // may appear on success
  bool podeDarCerto = false;
  int numeros = 0;  // numeric words in the line
};

// Adds the ways input `arquivo` of `base` can be broken. `completo` adds those that only exercise
// the shared reader, once per reader; the rest reach each tool.
void variantes(const Caso& base, const std::string& arquivo, bool completo, std::vector<Caso>& casos) {
  const std::string bom = boas().at(arquivo), lixo(3000, '\x9c');
  const Tipo tipo = tipoDe(arquivo);
  // podeDarCerto: legal input of an odd shape, status 0 allowed.
  const auto junta = [&](const std::string& nome, const std::optional<std::string>& texto, bool podeDarCerto,
                         const std::string& esperado) {
    casos.push_back(base);
    casos.back().nome = arquivo + "_" + nome;
    casos.back().arquivos[arquivo] = texto;  // none: the file is missing
    casos.back().esperado = esperado.empty() ? arquivo : esperado;
    casos.back().podeDarCerto = podeDarCerto;
  };
  const auto falha = [&](const std::string& nome, const std::string& texto, const std::string& esperado = "") {
    if (completo) junta(nome, texto, false, esperado);
  };
  const auto aceita = [&](const std::string& nome, const std::string& texto) { junta(nome, texto, true, ""); };
  junta("ausente", std::nullopt, false, "");
  // OpenCV's YAML parser never returns on this text (a block sequence whose
  // indentation goes back and forth). Every store reader must refuse it
  // before that parser, as a failed open: reaching the parser would end the
  // run after a second of CPU with the reading guard's message instead.
  if (tipo == Tipo::keypoints || tipo == Tipo::descritores)
    junta("recuoVaiEVolta", "%YAML:1.0\n\n   - 9.\n - 7\n   - -1\n", false, "Erro abertura arquivo " + arquivo);
  // NaN in each field of one record (float and int fields are checked apart), infinities in the first.
  const auto porCampo = [&](int primeiro, int campos, const std::string& nan, const std::string& inf) {
    for (int c = 0; c < campos; ++c) falha("nan" + std::to_string(c), troca(bom, {{primeiro + c, nan}}));
    falha("inf", troca(bom, {{primeiro, inf}}));
    falha("-inf", troca(bom, {{primeiro, "-" + inf}}));
  };
  falha("vazio", "");
  falha("lixo", lixo);
  falha("truncado", bom.substr(0, bom.size() / 2 + 7));
  falha("outroTipo", boas().at(tipo == Tipo::keypoints || tipo == Tipo::transformacao ? "a.pgm"
                               : tipo == Tipo::descritores ? "m.txt" : "k.yml"));
  switch (tipo) {
    case Tipo::imagem:
    case Tipo::cor:
      aceita("umPixel", tipo == Tipo::cor ? std::string("P6\n1 1\n255\n\x80\x80\x80", 14)
                                          : std::string("P5\n1 1\n255\n\x80", 12));
      falha("pgmGigante", "P5\n100000 100000\n255\n" + lixo);
      falha("pngGigante", pngGigante());
      falha("pgmGrandeTruncado", "P5\n30000 30000\n255\n" + lixo);
      // Damaged PNG that the codec library itself reports on.
      falha("pngTruncado", boas().at("c1.png").substr(0, boas().at("c1.png").size() / 2));
      falha("pngCrc", std::string(boas().at("c1.png")).replace(40, 1, 1, '\x5a'));
      break;
    case Tipo::keypoints:  // 7 numbers per keypoint
      aceita("tamanhoZero", troca(bom, {{2, "0."}}));
      aceita("foraDaImagem", troca(bom, {{0, "1e6"}, {1, "-1e6"}}));
      aceita("tamanhoGigante", troca(bom, {{2, "1e30"}}));
      aceita("posicaoGigante", troca(bom, {{0, "-1e30"}, {1, "1e30"}}));
      aceita("oitavaAbsurda", troca(bom, {{5, "2147483647"}}));
      // What OpenCV's SIFT descriptor once wrote past its buffers on.
      aceita("tamanhoPequeno", troca(bom, {{2, "0.2"}}));
      aceita("tamanhoNegativo", troca(bom, {{2, "-5."}}));
      aceita("anguloAbsurdo", troca(bom, {{3, "1e10"}}));
      aceita("anguloNegativo", troca(bom, {{3, "-80."}}));
      porCampo(7, 7, ".nan", ".inf");
      falha("camposAMenos", "%YAML:1.0\n---\nkeypoints: [ 1., 2., 3. ]\n");
      break;
    case Tipo::descritores: {
      // The two stores of a matcher must have the same width.
      junta("larguraDiferente", boas().at("largura.yml"), false, "");
      const std::string contagem = "Erro: numero de keypoints != descritores";
      falha("soKeypoints", boas().at("k.yml"), contagem);
      falha("linhaAMenos", boas().at("linhas5.yml"), contagem);
      falha("uchar", boas().at("uchar.yml"));
      falha("descritorNan", boas().at("nan.yml"));
      std::string linhas = bom;
      falha("linhasGigantes", linhas.replace(linhas.find("rows: 6"), 7, "rows: 600000000"));
      // After the 42 keypoint numbers, rows and cols: the first element.
      falha("valorEnorme", troca(bom, {{44, "1e20"}}));
      break;
    }
    case Tipo::casamentos:  // the count, the columns, then 15 numbers per match: k1 from 3, k2 from 10
      aceita("tamanhoZero", troca(bom, {{5, "0"}, {12, "0"}}));
      aceita("foraDaImagem", troca(bom, {{3, "1e7"}, {4, "-1e7"}, {10, "1e7"}, {11, "-1e7"}}));
      aceita("tamanhoGigante", troca(bom, {{5, "1e30"}, {12, "1e30"}}));
      aceita("posicaoGigante", troca(bom, {{3, "-1e30"}, {4, "1e30"}, {10, "-1e30"}, {11, "1e30"}}));
      for (const char* n : {"-1", "2147483647", "99999999999", "10"})
        falha(std::string("contagem") + n, troca(bom, {{0, n}}));
      falha("colunas14", troca(bom, {{1, "14"}}), "Erro: Arquivo nao tem 15 colunas");
      porCampo(2 + 15 * 3, 15, "nan", "inf");
      break;
    case Tipo::pose:  // K0, K1, T: 34 numbers
      falha("camposAMenos", troca(bom, {{33, ""}}));
      falha("kSingular", troca(bom, {{0, "0"}, {4, "0"}}));
      falha("naoRotacao", troca(bom, {{18, "1.5"}}));
      falha("semTranslacao", troca(bom, {{21, "0"}}));
      porCampo(0, 34, "nan", "inf");
      break;
    case Tipo::transformacao:
      aceita("singular", "0 0 0\n0 0 0\n0 0 0\n");
      aceita("enorme", "1e308 0 0\n0 1e308 0\n0 0 1e-308\n");
      porCampo(0, 9, "nan", "inf");
      break;
  }
}

// A command line with its marks resolved (number `numero` given `valor`)
// and good inputs in place.
Caso caso(const Palavras& linha, const std::string& nome, int numero = -1, const std::string& valor = "") {
  Caso c;
  c.nome = nome;
  for (const std::string& palavra : linha) {
    const size_t marca = palavra.find_first_of("@>#");
    std::string resto = marca == std::string::npos ? "" : palavra.substr(marca + 1);
    if (!resto.empty() && palavra[marca] == '@') c.arquivos[resto] = boas().at(resto);
    if (!resto.empty() && palavra[marca] == '>') c.saidas.insert(resto);
    // A number's good value ends at a comma ("cor=0,#0,0").
    if (!resto.empty() && palavra[marca] == '#' && c.numeros++ == numero)
      resto = valor + resto.substr(std::min(resto.find(','), resto.size()));
    c.args.push_back(resto.empty() ? palavra : palavra.substr(0, marca) + resto);
  }
  return c;
}

// Whether `linha` is the first row of the table to read files of `tipo`.
bool primeiroLeitor(const Palavras& linha, Tipo tipo) {
  for (const Palavras& outra : ferramentas())
    for (const auto& [entrada, conteudo] : caso(outra, "").arquivos)
      if (tipoDe(entrada) == tipo) return outra == linha;
  return false;
}

std::vector<Caso> casosDe(const Palavras& linha) {
  std::vector<Caso> casos;
  const Caso base = caso(linha, "");
  std::set<Tipo> vistos;
  for (const auto& [entrada, bom] : base.arquivos) {
    const bool completo = vistos.insert(tipoDe(entrada)).second && primeiroLeitor(linha, tipoDe(entrada));
    variantes(base, entrada, completo, casos);
  }
  for (const std::string& saida : base.saidas) {
    // An output folder is made when missing: only a file where it or its
    // parent goes stops it.
    const bool pastaSaida = saida.back() == '/';
    const std::string nome = saida.substr(0, saida.size() - pastaSaida), pai = pastaSaida ? "x/" : "naoha/";
    Palavras outra = linha;
    for (std::string& p : outra)
      if (p.find(">" + saida) != std::string::npos) p.insert(p.find('>') + 1, pai);
    casos.push_back(caso(outra, nome + (pastaSaida ? "_sobArquivo" : "_pastaInexistente")));
    casos.back().esperado = pai + nome;
    if (pastaSaida) casos.back().arquivos["x"] = "x";
    // Renaming onto a folder is the same last step for every output.
    if (saida != *base.saidas.begin() && !pastaSaida) continue;
    casos.push_back(base);
    casos.back().nome = pastaSaida ? "ehArquivo" : "ehPasta";
    casos.back().esperado = nome;
    if (pastaSaida)
      casos.back().arquivos[nome] = "x";
    else
      casos.back().pasta = nome;
  }
  // Words the number parser refuses need one number per tool; NaN (which
  // strtod takes) and the extremes reach each number's own guard.
  const struct {
    const char* texto;
    bool invalido, todos;
  } valores[] = {{"abc", true, false}, {"1e999", true, false}, {"-2147483648", false, false}, {"nan", true, true},
                 {"0", false, true},   {"-1", false, true},    {"2147483647", false, true}};
  for (int n = 0; n < base.numeros; ++n)
    for (const auto& valor : valores) {
      if (n > 0 && !valor.todos) continue;
      Caso c = caso(linha, "numero" + std::to_string(n) + "_" + valor.texto, n, valor.texto);
      c.esperado = valor.texto;
      c.podeDarCerto = !valor.invalido;
      casos.push_back(c);
    }
  return casos;
}

// An empty string when the case ended as it must, else what went wrong.
std::string executa(const Caso& caso) {
  teste::PastaTemp pasta;
  for (const auto& [nome, conteudo] : caso.arquivos) {
    std::filesystem::create_directories(std::filesystem::path(pasta / nome).parent_path());
    if (conteudo) teste::escreveTexto(pasta / nome, *conteudo);
  }
  if (!caso.pasta.empty()) std::filesystem::create_directory(pasta / caso.pasta);
  const Palavras antes = pasta.conteudo();
  const teste::Execucao e = teste::roda(caso.args, pasta.caminho(), 20);
  const Palavras depois = pasta.conteudo();
  std::string ultima = e.err.substr(0, e.err.find_last_not_of('\n') + 1);
  ultima = ultima.substr(ultima.find_last_of('\n') + 1);

  std::string erro;
  const auto se = [&](bool falhou, const std::string& o_que) { erro += falhou ? o_que + "; " : ""; };
  const bool saiu = !e.estourou && e.sinal == 0, falhou = saiu && e.status != 0;
  se(e.estourou, "passou do limite");
  se(e.sinal != 0, "morto pelo sinal " + std::to_string(e.sinal));
  // OpenCV's own failure texts: an assertion passed on, or a line of its own.
  for (const char* texto : {"OpenCV", "Assertion", "\nimread_("})
    se(("\n" + e.err).find(texto) != std::string::npos, "texto do OpenCV no stderr");
  se(saiu && e.status == 0 && !caso.podeDarCerto, "status 0 com entrada invalida");
  for (const std::string& nome : depois)
    se(saiu && e.status == 0 && !caso.saidas.count(nome) && !caso.saidas.count(nome + "/") &&
           std::find(antes.begin(), antes.end(), nome) == antes.end(),
       "arquivo inesperado " + nome);
  se(falhou && e.status != 1, "status " + std::to_string(e.status));
  se(falhou && ultima.rfind("Erro", 0) != 0, "ultima linha do stderr nao comeca com Erro");
  // One failure, one message: no line of a library before ours.
  se(falhou && std::count(e.err.begin(), e.err.end(), '\n') != 1, "mais de uma linha no stderr");
  // Odd but legal input may fail for reasons of its own ("Erro: Desvio<epsilon").
  se(falhou && !caso.podeDarCerto && ultima.find(caso.esperado) == std::string::npos,
     "a mensagem nao cita " + caso.esperado);
  se(falhou && depois != antes, "pasta mudou: " + ::testing::PrintToString(depois));
  return erro.empty() ? "" : caso.nome + " " + ::testing::PrintToString(caso.args) + ": " + erro + "stderr: " + e.err;
}

// Runs every case on the machine's cores; the failures, one per case that failed.
std::vector<std::string> executaTodos(const std::vector<Caso>& casos) {
  std::vector<std::string> falhas(casos.size());
  std::atomic<size_t> proximo{0};
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < std::max(2u, std::thread::hardware_concurrency()); ++t)
    threads.emplace_back([&] {
      for (size_t i = proximo++; i < casos.size(); i = proximo++) falhas[i] = executa(casos[i]);
    });
  for (std::thread& t : threads) t.join();
  falhas.erase(std::remove(falhas.begin(), falhas.end(), ""), falhas.end());
  return falhas;
}

class Robustez : public ::testing::TestWithParam<Palavras> {};

TEST_P(Robustez, TodaEntradaRuimTerminaLimpo) {
  ::unsetenv("DISPLAY");  // no run may open a window
  for (const std::string& f : executaTodos(casosDe(GetParam()))) ADD_FAILURE() << f;
}

// Other programs' files, hostile or broken, written by NumPy, h5py and
// zipfile (tests/cli/hostis_gera.py), by name: z_* D2-Net features, f_*
// hloc features, s_* SuperGlue matches; *_bom the good one of each kind.
const std::map<std::string, std::string>& externos() {
  static const std::map<std::string, std::string> arquivos = [] {
    teste::PastaTemp p;
    teste::Processo gera({"/usr/bin/python3", std::string(QUIVELAR_FONTE) + "/tests/cli/hostis_gera.py", p.caminho()});
    gera.espera(120);
    const teste::Execucao e = gera.fim();
    EXPECT_EQ(e.status, 0) << e.err;
    std::map<std::string, std::string> a;
    for (const auto& f : std::filesystem::directory_iterator(p.caminho()))
      a[f.path().filename().string()] = teste::leTexto(f.path().string());
    return a;
  }();
  return arquivos;
}

TEST(Robustez, ArquivosDeOutrosProgramas) {
  ::unsetenv("DISPLAY");
  const struct {
    Palavras args;
    std::string entrada, prefixo;  // the input varied, and its files' prefix
  } linhas[] = {
      {{"matmutuo", "z1.npz", "z2.npz", "sai.txt"}, "z1.npz", "z_"},
      {{"keyrep", "a.pgm", "b.pgm", "z1.npz", "z2.npz", "h.txt"}, "z1.npz", "z_"},
      {{"matmutuo", "f.h5:a", "f.h5:b", "sai.txt"}, "f.h5", "f_"},
      {{"matscore", "a.pgm", "b.pgm", "k.yml", "k.yml", "s.npz", "h.txt", "dist=3"}, "s.npz", "s_"},
  };
  std::vector<Caso> casos;
  for (const auto& l : linhas) {
    Caso base;
    base.args = l.args;
    for (const char* nome : {"a.pgm", "b.pgm", "h.txt", "k.yml"}) base.arquivos[nome] = boas().at(nome);
    base.arquivos["z1.npz"] = base.arquivos["z2.npz"] = externos().at("z_bom.npz");
    base.arquivos["f.h5"] = externos().at("f_bom.h5");
    base.arquivos["s.npz"] = externos().at("s_bom.npz");
    base.saidas = {"sai.txt"};
    // The good files work.
    teste::PastaTemp pasta;
    for (const auto& [nome, conteudo] : base.arquivos) teste::escreveTexto(pasta / nome, *conteudo);
    const teste::Execucao bem = teste::roda(base.args, pasta.caminho());
    EXPECT_EQ(bem.status, 0) << l.args[0] << ": " << bem.err;
    for (const auto& [nome, conteudo] : externos()) {
      if (nome.rfind(l.prefixo, 0) != 0 || nome.find("_bom.") != std::string::npos) continue;
      casos.push_back(base);
      casos.back().nome = l.args[0] + "_" + nome;
      casos.back().arquivos[l.entrada] = conteudo;
      casos.back().esperado = l.entrada;
    }
  }
  EXPECT_GE(casos.size(), 30u);
  for (const std::string& f : executaTodos(casos)) ADD_FAILURE() << f;
}

// Posed datasets in each layout (datasets/posados.hpp), good and hostile,
// through the sweep that reads them; and the words of SintPose, which writes
// them, that its row cannot vary.
TEST(Robustez, DatasetsPosados) {
  ::unsetenv("DISPLAY");
  const std::string L = "a.pgm b.pgm 0 0 60 0 32 0 60 32 0 0 1 60 0 32 0 60 32 0 0 1 1 0 0 1 0 1 0 0 0 0 1 0 0 0 0 1\n";
  const std::string V = "# views\na.pgm 1 0 0 0 1 0 0 0 1 0 0 0 PINHOLE 64 64 60 60 32.5 32.5\n"
                        "b.pgm 1 0 0 0 1 0 0 0 1 -1 0 0 SIMPLE_RADIAL 64 64 60 32.5 32.5 0\n";
  const std::string C = "# cameras\n1 PINHOLE 64 64 60 60 32.5 32.5\n2 RADIAL 64 64 60 32.5 32.5 0 0\n";
  const std::string I = "5 1 0 0 0 0 0 0 1 a.pgm\n\n6 1 0 0 0 -1 0 0 2 b.pgm\n10 20 -1\n";
  const std::string png = boas().at("c1.png");
  const auto troque = [](std::string t, const std::string& de, const std::string& para) {
    return t.replace(t.find(de), de.size(), para);
  };
  // The file varied, its text, and where the message must point. Numbers
  // count from each file's first: a list's two turns, K0, K1, then T; a
  // view's R, t, size and parameters; an image's id, q, t and camera.
  const struct {
    std::string arquivo, texto, esperado;
  } hostis[] = {
      {"lista.txt", troca(L, {{5, "abc"}}), "lista.txt:1"},
      {"lista.txt", troca(L, {{20, "nan"}}), "lista.txt:1"},
      {"lista.txt", troca(L, {{33, "-inf"}}), "lista.txt:1"},
      {"lista.txt", troca(L, {{35, ""}}), "lista.txt:1"},
      {"lista.txt", troca(L, {{21, "0.5"}}), "lista.txt:1"},
      {"lista.txt", troca(L, {{0, "4"}}), "lista.txt:1"},
      {"lista.txt", troca(L, {{0, "1"}, {3, "2"}}), "lista.txt:1"},
      {"lista.txt", "../" + L, "lista.txt:1"},
      {"lista.txt", "", "nenhum par em lista.txt"},
      {"lista.txt", png, "lista.txt:1"},
      {"cena/views.txt", troca(V, {{9, "x"}}), "cena/views.txt:2"},
      {"cena/views.txt", troca(V, {{0, "nan"}}), "cena/views.txt:2"},
      {"cena/views.txt", troca(V, {{29, "inf"}}), "cena/views.txt:3"},
      {"cena/views.txt", troca(V, {{35, ""}}), "cena/views.txt:3"},
      {"cena/views.txt", troca(V, {{4, "2"}}), "cena/views.txt:2"},
      {"cena/views.txt", troque(V, "PINHOLE", "OPENCV"), "cena/views.txt:2"},
      {"cena/views.txt", troca(V, {{35, "0.1"}}), "cena/views.txt:3"},
      {"cena/views.txt", V + "a.pgm 1 0 0 0 1 0 0 0 1 0 0 0 PINHOLE 64 64 60 60 32.5 32.5\n", "cena/views.txt:4"},
      {"cena/views.txt", troca(V, {{12, "2147483648"}}), "cena/views.txt:2"},
      {"cena/views.txt", "", "cena/pairs.txt:1"},
      {"cena/views.txt", png, "cena/views.txt:1"},
      {"cena/views.txt", troque(V, "a.pgm", "../a.pgm"), "cena/views.txt:2"},
      {"cena/views.txt", troque(V, "a.pgm", std::string("a\0.pgm", 6)), "cena/views.txt:2"},
      {"cena/views.txt", troca(V, {{9, "1e308"}, {27, "-1e308"}}), "cena/pairs.txt:1"},
      {"cena/pairs.txt", "a.pgm c.pgm\n", "cena/pairs.txt:1"},
      {"cena/pairs.txt", "a.pgm\n", "cena/pairs.txt:1"},
      {"col/images.txt", troca(I, {{1, "0"}}), "col/images.txt:1"},
      {"col/images.txt", troca(I, {{10, "0.5"}}), "col/images.txt:3"},
      {"col/images.txt", troca(I, {{8, "9"}}), "col/images.txt:1"},
      {"col/images.txt", troca(I, {{9, "5"}}), "col/images.txt:3"},
      {"col/images.txt", troque(I, "b.pgm", "a.pgm"), "col/images.txt:3"},
      {"col/images.txt", troca(I, {{5, "nan"}}), "col/images.txt:1"},
      {"col/images.txt", troca(I, {{16, ""}}), "col/images.txt:3"},
      {"col/images.txt", troque(I, "a.pgm", "x/../../a.pgm"), "col/images.txt:1"},
      {"col/images.txt", "", "col/pairs.txt:2"},
      {"col/cameras.txt", troque(C, "RADIAL", "RADIAL_FISHEYE"), "col/cameras.txt:3"},
      {"col/cameras.txt", troca(C, {{14, "-0.01"}}), "col/cameras.txt:3"},
      {"col/cameras.txt", troca(C, {{7, "1"}}), "col/cameras.txt:3"},
      {"col/cameras.txt", troca(C, {{0, "um"}}), "col/cameras.txt:2"},
      {"col/cameras.txt", troca(C, {{1, "2147483648"}}), "col/cameras.txt:2"},
      {"col/cameras.txt", "", "col/images.txt:1"},
      {"col/cameras.txt", png, "col/cameras.txt:1"},
  };
  std::map<std::string, Caso> bases;
  for (const auto& [dataset, imagens] :
       {std::pair{"lista.txt", ""}, {"cena", "cena/images/"}, {"col", "col/images/"}}) {
    Caso& c = bases[dataset];
    c.args = {"varre", dataset, "saida", "det=sift"};
    c.saidas = {"saida"};
    for (const char* nome : {"a.pgm", "b.pgm"}) c.arquivos[imagens + std::string(nome)] = boas().at(nome);
  }
  for (const auto& [nome, texto] : std::map<std::string, std::string>{
           {"lista.txt", L}, {"cena/views.txt", V}, {"cena/pairs.txt", "a.pgm b.pgm\n"}, {"col/cameras.txt", C},
           {"col/images.txt", I}, {"col/pairs.txt", "# pares\na.pgm b.pgm\n"}})
    bases[nome.substr(0, nome.find('/'))].arquivos[nome] = texto;
  // The good datasets work.
  for (const auto& [dataset, base] : bases) {
    teste::PastaTemp pasta;
    for (const auto& [nome, conteudo] : base.arquivos) {
      std::filesystem::create_directories(std::filesystem::path(pasta / nome).parent_path());
      teste::escreveTexto(pasta / nome, *conteudo);
    }
    const teste::Execucao bem = teste::roda(base.args, pasta.caminho());
    EXPECT_EQ(bem.status, 0) << dataset << ": " << bem.err;
  }
  std::vector<Caso> casos;
  for (const auto& h : hostis) {
    casos.push_back(bases.at(h.arquivo.substr(0, h.arquivo.find('/'))));
    casos.back().nome = h.arquivo + "_" + std::to_string(casos.size());
    casos.back().arquivos[h.arquivo] = h.texto;
    casos.back().esperado = h.esperado;
  }
  for (const auto& [palavra, esperado] : {std::pair{"superficie=plana", "plana"}, {"cor=3", "cor"}}) {
    casos.push_back(caso({"sintpose", "@a.pgm", ">sp/", palavra}, esperado));
    casos.back().esperado = esperado;
  }
  for (const std::string& f : executaTodos(casos)) ADD_FAILURE() << f;
}

const auto nomeDaLinha = [](const ::testing::TestParamInfo<Palavras>& info) { return info.param[0]; };
INSTANTIATE_TEST_SUITE_P(Ferramentas, Robustez, ::testing::ValuesIn(ferramentas()), nomeDaLinha);
INSTANTIATE_TEST_SUITE_P(Tabela, Robustez, ::testing::ValuesIn(ferramentasDaTabela()), nomeDaLinha);

}  // namespace
