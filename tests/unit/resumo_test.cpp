// Posed pairs in the sweep, in-process: which columns a row fills by its
// ground truth's kind; pose.csv against the pose measures on the same
// errors, the terminal's summary, the cumulative pose-error figure and the
// report of a folder with posed rows.
#include "formats/csv.hpp"
#include "measures/pose.hpp"
#include "plots/graficos.hpp"
#include "relatorio/relatorio.hpp"
#include "sweep/linha.hpp"
#include "sweep/resumo.hpp"
#include "sweep/varre.hpp"
#include "tests/common/erros.hpp"
#include "tests/common/pasta_temp.hpp"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr double kNA = std::numeric_limits<double>::quiet_NaN();

// As the sweep writes them: measures with six decimals, counts whole.
std::string f6(double v, const char* formato = "%.6f") {
  if (std::isnan(v)) return "NA";
  char s[32];
  std::snprintf(s, sizeof s, formato, v);
  return s;
}
std::string contagem(double v) { return f6(v, "%.0f"); }

// A row of a table with header `cabecalho`: the fields given, NA elsewhere.
std::string linha(const char* cabecalho, const std::map<std::string, std::string>& campos) {
  std::istringstream colunas(cabecalho);
  std::string r, c;
  while (std::getline(colunas, c, ',')) {
    const auto it = campos.find(c);
    r += (r.empty() ? "" : ",") + formats::campoCSV(it == campos.end() ? "NA" : it->second);
  }
  return r + "\n";
}

struct Par {
  std::string nome, status;
  double casamentos, epipolar;  // epipolar@5e-4; the other two follow from it
  std::vector<double> erros, inliers;  // per threshold; NaN: none
};
struct Configuracao {
  std::string det, des, mat;
  std::vector<Par> pares;
  size_t melhor;  // the threshold whose errors are plainly better
};

// Two thresholds; sift's pairs do better at 2 px, orb's at 1 px. A failed
// pair, a pair without a pose, a pair without matches (NA precision) and a
// pair name with a comma.
const std::vector<std::string> kLimiares = {"1", "2"};
const std::vector<Configuracao> kConfigs = {
    {"sift", "sift", "nn",
     {{"a.jpg b.jpg", "ok", 100, 0.5, {1, 0.5}, {50, 60}},
      {"a.jpg c.jpg", "ok", 80, 0.25, {2, 1.5}, {40, 50}},
      {"b,x.jpg c.jpg", "ok", 60, 0.1, {30, 3}, {10, 30}},
      {"c.jpg d.jpg", "ok", 40, 0, {kNA, 4}, {kNA, 20}},
      {"d.jpg e.jpg", "Erro: imagem ilegivel", 9999, 1, {}, {}}},
     1},
    {"orb", "orb", "mutuo",
     {{"a.jpg b.jpg", "ok", 50, 0.4, {0.2, 10}, {30, 8}},
      {"a.jpg c.jpg", "ok", 0, kNA, {kNA, kNA}, {kNA, kNA}},
      {"b,x.jpg c.jpg", "ok", 20, 0.2, {0.6, 12}, {15, 6}}},
     0}};

struct Tabelas {
  std::string resultados, poses;
};

// resultados.csv (a planar row first when `comPlana`) and poses.csv.
Tabelas tabelas(bool comPlana = true) {
  Tabelas t{std::string(sweep::kCabecalho) + "\n", std::string(sweep::kCabecalhoPoses) + "\n"};
  if (comPlana)
    t.resultados += linha(sweep::kCabecalho, {{"sequence", "v_x"}, {"kind", "viewpoint"}, {"pair", "1-2"},
                                              {"detector", "sift"}, {"descriptor", "sift"}, {"matcher", "nn"},
                                              {"status", "ok"}, {"matches", "1000"}, {"mma@3", "0.5"},
                                              {"repeatability", "0.25"}});
  for (const Configuracao& c : kConfigs)
    for (const Par& p : c.pares) {
      const std::map<std::string, std::string> chave = {{"sequence", "cena"}, {"pair", p.nome}, {"detector", c.det},
                                                        {"descriptor", c.des}, {"matcher", c.mat}};
      std::map<std::string, std::string> r = chave;
      r.insert({{"kind", "posed"}, {"status", p.status}, {"matches", contagem(p.casamentos)},
                {"epipolar@1e-4", f6(p.epipolar / 2)}, {"epipolar@5e-4", f6(p.epipolar)},
                {"epipolar@1e-3", f6(std::isnan(p.epipolar) ? kNA : std::min(1.0, p.epipolar * 2))}});
      if (!p.erros.empty()) r["pose_error"] = f6(p.erros[0]);
      t.resultados += linha(sweep::kCabecalho, r);
      for (size_t k = 0; k < p.erros.size(); ++k) {
        std::map<std::string, std::string> q = chave;
        q.insert({{"threshold", kLimiares[k]}, {"pose_error", f6(p.erros[k])}, {"inliers", contagem(p.inliers[k])}});
        t.poses += linha(sweep::kCabecalhoPoses, q);
      }
    }
  return t;
}

// pose.csv's row of a configuration, from the pose measures on its errors.
std::string esperado(const Configuracao& c) {
  std::vector<double> erros;
  double inliers = 0, casamentos = 0, epipolar[3] = {};
  int ok = 0, falhas = 0;
  for (const Par& p : c.pares) {
    if (p.status != "ok") {
      ++falhas;
      continue;
    }
    ++ok;
    erros.push_back(std::isnan(p.erros[c.melhor]) ? std::numeric_limits<double>::infinity() : p.erros[c.melhor]);
    inliers += std::isnan(p.inliers[c.melhor]) ? 0 : p.inliers[c.melhor];
    casamentos += p.casamentos;
    const double e = std::isnan(p.epipolar) ? 0 : p.epipolar;
    epipolar[0] += e / 2;
    epipolar[1] += e;
    epipolar[2] += std::min(1.0, e * 2);
  }
  std::string r = c.det + "," + c.des + "," + c.mat + "," + std::to_string(ok) + "," + std::to_string(falhas) + "," +
                  kLimiares[c.melhor];
  for (const measures::Medida& m : measures::aucPose(erros)) r += "," + f6(*m);
  r += "," + f6(*measures::mAA(erros));
  for (double e : epipolar) r += "," + f6(e / ok);
  return r + "," + f6(casamentos / ok) + "," + f6(inliers / ok) + "\n";
}

formats::TabelaCSV analisa(const std::string& texto) {
  formats::TabelaCSV t;
  EXPECT_TRUE(formats::analisaCSV(texto, t)) << texto;
  return t;
}

struct Pasta {
  teste::PastaTemp p;
  std::string resultados = p / "resultados.csv", poses = p / "poses.csv";
  explicit Pasta(const Tabelas& t) {
    teste::escreveTexto(resultados, t.resultados);
    teste::escreveTexto(poses, t.poses);
  }
};

TEST(TabelaPose, MelhorLimiarPorConfiguracaoEAsMedidasDePose) {
  // Both variants: a sweep of posed pairs alone, and one with a planar row
  // that must count nowhere.
  for (bool comPlana : {false, true}) {
    Pasta p(tabelas(comPlana));
    EXPECT_EQ(sweep::tabelaPose(p.resultados, p.poses),
              std::string(sweep::kCabecalhoPose) + "\n" + esperado(kConfigs[0]) + esperado(kConfigs[1]))
        << comPlana;
  }
}

TEST(TabelaPose, SemPosesOuSemPosadas) {
  // An older sweep's folder without poses.csv: no threshold, no pose.
  Pasta p(tabelas());
  std::filesystem::remove(p.poses);
  const formats::TabelaCSV semPoses = analisa(sweep::tabelaPose(p.resultados, p.poses));
  ASSERT_EQ(semPoses.linhas.size(), 2u);
  for (const char* c : {"threshold", "auc@5", "auc@20", "mAA", "inliers_per_pair"})
    EXPECT_EQ(semPoses.linhas[0][semPoses.coluna(c)], "NA") << c;
  EXPECT_EQ(semPoses.linhas[1][semPoses.coluna("epipolar@5e-4")], f6(0.2));
  // medidas=mma estimates no pose: its poses.csv, a header alone, reads the same.
  teste::escreveTexto(p.poses, std::string(sweep::kCabecalhoPoses) + "\n");
  EXPECT_EQ(analisa(sweep::tabelaPose(p.resultados, p.poses)).linhas, semPoses.linhas);
  // Planar rows alone: the header, whatever poses.csv holds.
  const Tabelas t = tabelas();
  Pasta plana({t.resultados.substr(0, t.resultados.find("cena,")), std::string(sweep::kCabecalhoPoses) + "\n"});
  EXPECT_EQ(sweep::tabelaPose(plana.resultados, plana.poses), std::string(sweep::kCabecalhoPose) + "\n");
}

// `s` with the first `de` replaced.
std::string troca(std::string s, const std::string& de, const std::string& para) {
  const size_t i = s.find(de);
  return i == std::string::npos ? "(" + de + " ausente)" : s.replace(i, de.size(), para);
}

TEST(TabelaPose, TabelasMalFormadasParam) {
  const Tabelas t = tabelas();
  const std::string ultimaPose = t.poses.substr(t.poses.rfind("cena,", t.poses.size() - 2));
  const struct {
    const char* nome;
    Tabelas tabelas;
    std::string mensagem;  // {R} and {P}: the two files
  } casos[] = {
      {"LimiarNaoNumero", {t.resultados, troca(t.poses, ",nn,1,", ",nn,um,")},
       "Erro: valor invalido na coluna threshold de {P}: um"},
      {"ErroNaN", {t.resultados, troca(t.poses, ",1,1.000000,", ",1,nan,")},
       "Erro: valor invalido na coluna pose_error de {P}: nan"},
      {"EpipolarTexto", {troca(t.resultados, ",0.500000,1.000000", ",x,1.000000"), t.poses},
       "Erro: valor invalido na coluna epipolar@5e-4 de {R}: x"},
      {"SemColunaEpipolar", {troca(t.resultados, "epipolar@1e-3", "outra"), t.poses},
       "Erro: coluna epipolar@1e-3 ausente em {R}"},
      {"FaltaUmaPose", {t.resultados, t.poses.substr(0, t.poses.size() - ultimaPose.size())},
       "Erro: {P} nao tem uma linha por par posado ok de {R} (orb/orb/mutuo, limiar 2)"},
      {"PoseDeParFalho", {t.resultados, t.poses + "cena,d.jpg e.jpg,sift,sift,nn,1,1,1,1,9\n"},
       "Erro: {P} nao tem uma linha por par posado ok de {R} (sift/sift/nn, limiar 1)"},
      {"PoseSemPosadas", {t.resultados, t.poses + "cena,a.jpg b.jpg,fast,sift,nn,1,1,1,1,9\n"},
       "Erro: {P} tem poses de fast/sift/nn, sem pares posados em {R}"},
  };
  for (const auto& c : casos) {
    Pasta p(c.tabelas);
    std::string mensagem = c.mensagem;
    for (const auto& [de, para] : {std::pair(std::string("{R}"), p.resultados), std::pair(std::string("{P}"), p.poses)})
      if (mensagem.find(de) != std::string::npos) mensagem = troca(mensagem, de, para);
    EXPECT_EQ(teste::mensagemDe([&] { sweep::tabelaPose(p.resultados, p.poses); }), mensagem) << c.nome;
  }
}

TEST(TabelaResumo, PosadasAParteDasPlanas) {
  const Tabelas t = tabelas();
  Pasta mista(t), plana({t.resultados.substr(0, t.resultados.find("cena,")), ""}),
      posada(tabelas(false));
  // The planar means ignore the posed rows; the AUCs follow in their table.
  const std::string planas = sweep::tabelaResumo(plana.resultados);
  const std::string resumo = sweep::tabelaResumo(mista.resultados, mista.poses);
  ASSERT_EQ(resumo.substr(0, planas.size() + 1), planas + "\n");
  EXPECT_EQ(sweep::tabelaResumo(posada.resultados, posada.poses), resumo.substr(planas.size() + 1));
  const formats::TabelaCSV pose = analisa(sweep::tabelaPose(mista.resultados, mista.poses));
  // Each configuration's line: pose.csv's first ten columns, to four decimals.
  std::istringstream linhas(resumo.substr(planas.size() + 1));
  std::string l;
  std::getline(linhas, l);
  for (const auto& r : pose.linhas) {
    ASSERT_TRUE(std::getline(linhas, l));
    std::istringstream campos(l);
    std::vector<std::string> v;
    for (std::string c; campos >> c;) v.push_back(c);
    ASSERT_EQ(v.size(), 10u) << l;
    for (int i : {0, 1, 2, 3, 4, 5}) EXPECT_EQ(v[i], r[i]) << l;
    for (int i : {6, 7, 8, 9}) EXPECT_NEAR(std::stod(v[i]), std::stod(r[i]), 5e-5) << l;
  }
}

// ------------------------------------------------------------------- plots

TEST(GraficoPose, ParteDosParesAteCadaErroNoLimiarRelatado) {
  const std::optional<plots::Figura> f = plots::figuraPose(analisa(tabelas(false).poses));
  ASSERT_TRUE(f.has_value());
  ASSERT_EQ(f->paineis.size(), 1u);
  ASSERT_EQ(f->paineis[0].series.size(), kConfigs.size());
  for (size_t k = 0; k < kConfigs.size(); ++k) {
    const Configuracao& c = kConfigs[k];
    const plots::Serie& s = f->paineis[0].series[k];
    EXPECT_EQ(s.rotulo, c.det + "/" + c.des + "/" + c.mat + " (" + kLimiares[c.melhor] + " px)");
    EXPECT_EQ(s.x.front(), 0);
    EXPECT_EQ(s.x.back(), 30);
    // At each angle, the share of ok pairs with an error at most it; a pair
    // without a pose is never reached.
    for (size_t i = 0; i < s.x.size(); ++i) {
      int ok = 0, ate = 0;
      for (const Par& q : c.pares) {
        if (q.status != "ok") continue;
        ++ok;
        ate += q.erros[c.melhor] <= s.x[i];
      }
      ASSERT_DOUBLE_EQ(s.y[i], static_cast<double>(ate) / ok) << s.rotulo << " x=" << s.x[i];
    }
  }
  EXPECT_FALSE(plots::figuraPose(analisa(std::string(sweep::kCabecalhoPoses) + "\n")).has_value());
}

TEST(GraficoPose, PastaDeUmaVarreduraPosada) {
  // Posed pairs without depth maps: no MMA to plot, no image index for a
  // sequence figure; the pose figure alone.
  Pasta p(tabelas(false));
  plots::desenhaGraficos(p.resultados, "", p.p / "g", p.poses);
  std::vector<std::string> arquivos;
  for (const auto& e : std::filesystem::directory_iterator(p.p / "g")) arquivos.push_back(e.path().filename());
  std::sort(arquivos.begin(), arquivos.end());
  EXPECT_EQ(arquivos, (std::vector<std::string>{"pose.png", "pose.svg"}));
}

// However many configurations a legend lists and however long their names,
// nothing is cut at the figure's border (the first panel's y label, the
// legend's last lines), and the panels keep their size, ticks and text:
// series drawn nowhere (no finite point) only lengthen the legend.
TEST(Figura, LegendaLongaNaoCortaNadaNemMudaOsPaineis) {
  teste::PastaTemp pasta;
  const auto figura = [](int rotulos) {
    plots::Figura f;
    f.titulo = "Mean matching accuracy";
    for (const char* titulo : {"Overall", "Viewpoint"}) {
      plots::Painel p{titulo, "threshold [px]", "MMA", 1, 10, 0, 1, {}};
      p.series.push_back({"sift/sift/nn", {1, 5, 10}, {0.2, 0.5, 0.6}});
      for (int k = 1; k < rotulos; ++k)
        p.series.push_back({"h5:feats-superpoint.h5/mutuo-" + std::to_string(k), {1}, {std::nan("")}});
      f.paineis.push_back(p);
    }
    return f;
  };
  cv::Mat paineis;
  for (int rotulos : {1, 19, 45, 150}) {
    SCOPED_TRACE(rotulos);
    plots::desenha(figura(rotulos), pasta / "f");
    const cv::Mat png = cv::imread(pasta / "f.png", cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(png.empty());
    for (const cv::Mat& borda : {png.row(0), png.row(png.rows - 1), png.col(0), png.col(png.cols - 1)})
      EXPECT_EQ(cv::countNonZero(borda != 255), 0);
    // The same panels, up to PLplot's rounding of positions on a larger page
    // (moved by one pixel, they would differ in 2 % of their pixels).
    if (paineis.empty()) paineis = png(cv::Rect(0, 0, 1120, 420)).clone();
    ASSERT_GE(png.rows, paineis.rows);
    cv::Mat diferenca;
    cv::absdiff(png(cv::Rect(0, 0, 1120, 420)), paineis, diferenca);
    EXPECT_LT(cv::countNonZero(diferenca > 96), 0.01 * diferenca.total());
  }
}

// ----------------------------------------------------------------- report

TEST(RelatorioPose, AUCsDePoseCSVGraficoEDesenhoDoParPosado) {
  for (bool comPlana : {false, true}) {
    Pasta p(tabelas(comPlana));
    teste::escreveTexto(p.p / "pose.csv", sweep::tabelaPose(p.resultados, p.poses));
    // The sweep's name for the drawing of pair "a.jpg b.jpg".
    std::filesystem::create_directory(p.p / "desenhos");
    ASSERT_TRUE(cv::imwrite(p.p / "desenhos/cena@a.jpg_b.jpg@sift@sift@nn.jpg", cv::Mat::zeros(8, 16, CV_8UC3)));
    relatorio::escreve(p.p.caminho());
    const std::string pagina = teste::leTexto(p.p / "relatorio.html");
    for (const char* c : {"threshold", "auc@5", "auc@10", "auc@20", "mAA", "pose_error"})
      EXPECT_NE(pagina.find(std::string("<th>") + c + "</th>"), std::string::npos) << c;
    // sift's row of the summary: its threshold and AUC as pose.csv has them.
    const formats::TabelaCSV pose = formats::leTabelaCSV(p.p / "pose.csv");
    char auc[32];
    std::snprintf(auc, sizeof auc, "%.4f", std::stod(pose.linhas[0][pose.coluna("auc@10")]));
    const size_t inicio = pagina.find("<td>sift</td><td>sift</td><td>nn</td>");
    ASSERT_NE(inicio, std::string::npos);
    const std::string sift = pagina.substr(inicio, pagina.find("</tr>", inicio) - inicio);
    EXPECT_EQ(sift.find(std::string("<td>") + (comPlana ? "5" : "4") + "</td><td>1</td>"), 37u) << sift;
    EXPECT_NE(sift.find("<td>2</td>"), std::string::npos) << sift;
    EXPECT_NE(sift.find(std::string(">") + auc + "</td>"), std::string::npos) << sift << " " << auc;
    EXPECT_NE(pagina.find("alt=\"Cumulative pose error\""), std::string::npos);
    EXPECT_NE(pagina.find("pose_error 1.000000"), std::string::npos);  // the drawing found its row
    // A kind every pair has is the first table again.
    EXPECT_EQ(pagina.find("<h3>posed sequences</h3>") != std::string::npos, comPlana);
    // Rebuilt in the same process (as Varre writes its plots, then the
    // report), the page is the same to the byte.
    relatorio::escreve(p.p.caminho());
    EXPECT_TRUE(teste::leTexto(p.p / "relatorio.html") == pagina);
  }
}

// ------------------------------------------------------------ a row's kind

// Match i of a scene z = 5 + x / 200 (pixels of image 0) seen by two 640 x
// 480 cameras: integer pixels of image 0, so that the depth map gives each
// its exact depth, projected into image 1.
struct Cena {
  measures::Cameras c;
  std::vector<cv::KeyPoint> m1, m2;
  Cena() {
    c.K0 = c.K1 = cv::Matx33d(500, 0, 320, 0, 500, 240, 0, 0, 1);
    cv::Rodrigues(cv::Vec3d(0.02, -0.05, 0.01), c.R);
    c.t = cv::Vec3d(0.4, 0.05, 0.1);
    c.profundidade0.create(480, 640);
    for (int y = 0; y < 480; ++y)
      for (int x = 0; x < 640; ++x) c.profundidade0(y, x) = static_cast<float>(5 + x / 200.0);
    for (int y = 20; y < 460; y += 40)
      for (int x = 20; x < 560; x += 45) {
        const double z = c.profundidade0(y, x);
        const cv::Vec3d X = c.R * cv::Vec3d(z * (x - 320) / 500, z * (y - 240) / 500, z) + c.t;
        m1.emplace_back(cv::Point2f(x, y), 8.f);
        m2.emplace_back(cv::Point2f(500 * X[0] / X[2] + 320, 500 * X[1] / X[2] + 240), 8.f);
      }
  }
};

std::vector<std::string> campos(const std::string& linha) {
  std::vector<std::string> r;
  std::istringstream in(linha);
  for (std::string c; std::getline(in, c, ',');) r.push_back(c);
  return r;
}

// Columns from `correct` on: 0 correct, 1 matching_score, 2..11 mma@1..10,
// 12 ap, 13..16 the homography's, 17..20 the pose's, 21..23 epipolar.
TEST(MedidasDaLinha, OTipoDaVerdadeDecideAsColunas) {
  const Cena cena;
  const cv::Size tamanho(640, 480);
  const auto na = [](const std::vector<std::string>& c, int de, int ate) {
    for (int i = de; i <= ate; ++i)
      if (c.at(i) != "NA") return false;
    return true;
  };
  sweep::OpcoesMedidas op;
  op.limiaresPose = {1, 2};

  measures::Verdade plana;  // the identity: every match of a list to itself is right
  const std::vector<std::string> h =
      campos(sweep::medeLinha(op, cena.m1, cena.m1, tamanho, tamanho, cena.m1, cena.m1, plana).colunas);
  ASSERT_EQ(h.size(), 24u);
  EXPECT_EQ(h[2], "1.000000");
  EXPECT_EQ(h[15], "1");  // homography@3
  EXPECT_TRUE(na(h, 17, 23));

  measures::Verdade posada;
  posada.tipo = measures::TipoVerdade::cameras;
  posada.cameras = cena.c;
  const sweep::MedidasDaLinha d = sweep::medeLinha(op, cena.m1, cena.m2, tamanho, tamanho, cena.m1, cena.m2, posada);
  const std::vector<std::string> p = campos(d.colunas);
  ASSERT_EQ(p.size(), 24u);
  EXPECT_EQ(p[0], std::to_string(cena.m1.size()));  // all within 3 px through depth
  EXPECT_EQ(p[2], "1.000000");
  EXPECT_TRUE(na(p, 12, 16));
  EXPECT_LT(std::stod(p[17]), 0.01);  // exact matches up to the keypoints' floats
  EXPECT_EQ(p[21], "1.000000");
  ASSERT_EQ(d.poses.size(), 2u);
  EXPECT_EQ(d.poses[0].substr(0, 2), "1,");
  EXPECT_EQ(d.poses[1].substr(0, 2), "2,");
  EXPECT_EQ(d.poses[0].substr(2), p[17] + "," + p[18] + "," + p[19] + "," + p[20]);

  posada.cameras.profundidade0.release();  // without depth: no MMA, the pose all the same
  const std::vector<std::string> s =
      campos(sweep::medeLinha(op, cena.m1, cena.m2, tamanho, tamanho, cena.m1, cena.m2, posada).colunas);
  EXPECT_TRUE(na(s, 0, 16));
  EXPECT_EQ(std::vector<std::string>(s.begin() + 17, s.end()), std::vector<std::string>(p.begin() + 17, p.end()));

  op.soMMA = true;  // D2-Net's protocol: no pose
  EXPECT_TRUE(na(campos(sweep::medeLinha(op, cena.m1, cena.m2, tamanho, tamanho, cena.m1, cena.m2, posada).colunas),
                 0, 23));
}

}  // namespace
