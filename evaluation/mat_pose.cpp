// MatPose: the relative pose estimated from a match file against the true
// pose of two calibrated views.
//
// Pose file: 34 numbers separated by blank space (line breaks are blanks),
//   K0 (3x3, row-major)  K1 (3x3)  T_0to1 (4x4, row-major),
// the last 34 numbers of a line of SuperGlue's pair lists. K maps camera
// coordinates to pixels; T_0to1 = [R t; 0 0 0 1] takes image 0's camera frame
// to image 1's (X1 = R X0 + t), as measures/verdade.hpp states.
#include "evaluation/medidas_entrada.hpp"
#include "evaluation/tools.hpp"

#include "formats/csv.hpp"
#include "formats/match_file.hpp"
#include "measures/pose.hpp"
#include "support/arquivos.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"
#include "support/numeros.hpp"

#include <cmath>
#include <cstdio>

namespace {

bool camera(const cv::Matx33d& K) {
  return K(0, 0) > 0 && K(1, 1) > 0 && K(1, 0) == 0 && K(2, 0) == 0 && K(2, 1) == 0 && K(2, 2) == 1;
}

// SuperGlue's lists print R with five decimals, which leaves R^T R off the
// identity by up to about 3e-5: the tolerance takes those and still refuses
// a scaled or sheared matrix.
bool rotacao(const cv::Matx33d& R) {
  return cv::norm(R.t() * R - cv::Matx33d::eye(), cv::NORM_INF) <= 1e-4 && std::abs(cv::determinant(R) - 1) <= 1e-4;
}

measures::Cameras lePose(const std::string& nome) {
  tvm::Arquivo arquivo(nome, "r");
  if (!arquivo) tvm::erro("Erro arquivo inexistente ", nome);
  double v[34];
  for (double& x : v)
    if (!tvm::leNum(arquivo.get(), x))
      tvm::erro("Erro: pose incompleta ou invalida (34 numeros: K0 K1 T_0to1) em ", nome);
  double resto;
  char c;
  if (tvm::leNum(arquivo.get(), resto) || std::fscanf(arquivo.get(), " %c", &c) == 1)
    tvm::erro("Erro: pose com mais de 34 numeros (K0 K1 T_0to1) em ", nome);
  measures::Cameras cam;
  cam.K0 = cv::Matx33d(v);
  cam.K1 = cv::Matx33d(v + 9);
  const double* T = v + 18;
  cam.R = cv::Matx33d(T[0], T[1], T[2], T[4], T[5], T[6], T[8], T[9], T[10]);
  cam.t = cv::Vec3d(T[3], T[7], T[11]);
  if (!camera(cam.K0)) tvm::erro("Erro: K0 nao e matriz de camera (fx, fy > 0; 0 0 1 embaixo) em ", nome);
  if (!camera(cam.K1)) tvm::erro("Erro: K1 nao e matriz de camera (fx, fy > 0; 0 0 1 embaixo) em ", nome);
  if (T[12] != 0 || T[13] != 0 || T[14] != 0 || T[15] != 1 || !rotacao(cam.R))
    tvm::erro("Erro: T_0to1 nao e [R t; 0 0 0 1] com R rotacao em ", nome);
  if (cv::norm(cam.t) == 0) tvm::erro("Erro: translacao nula, sem geometria epipolar, em ", nome);
  return cam;
}

}  // namespace

void MatPose(int argc, char** argv) {
  if (argc < 5)
    tvm::falhaUso(
        {"MatPose: Mede a pose relativa estimada dos casamentos contra a verdadeira (cameras calibradas)",
         "MatPose img0 img1 casamentos.txt pose.txt [ransac=1 | metodo=ransac|magsac | csv=tab.csv]",
         "  pose.txt: 34 numeros, K0 (3x3) K1 (3x3) T_0to1 (4x4), por linhas, como nas listas do SuperGlue",
         "  ransac: limiar em pixels do RANSAC da matriz essencial (como o SuperGlue)",
         "  pose_error: max(erro da rotacao, erro do angulo da translacao), em graus; NA sem pose",
         "  epipolar@d: casamentos com distancia epipolar simetrica normalizada < d"});
  const std::string img0 = argv[1], img1 = argv[2], arqCasamentos = argv[3], arqPose = argv[4];
  double ransac = 1;
  std::string metodo = "ransac", csv;
  tvm::ISTR opcoes(argc - 5, argv + 5);
  tvm::seekArg(opcoes, "ransac", ransac);
  tvm::seekArg(opcoes, "metodo", metodo);
  tvm::seekArg(opcoes, "csv", csv);
  const std::string resto = opcoes.resto();
  if (!resto.empty()) tvm::erro("Erro: Argumento invalido ", resto);
  if (!(ransac > 0)) tvm::erro("Erro: ransac fora do intervalo");
  if (metodo != "ransac" && metodo != "magsac") tvm::erro("Erro: metodo deve ser ransac ou magsac: ", metodo);

  const measures::Cameras cam = lePose(arqPose);
  std::vector<cv::DMatch> matches;
  std::vector<cv::KeyPoint> k0, k1;
  formats::leMatch(matches, k0, k1, arqCasamentos);
  evaluation::confereKeyPoints(k0, tvm::tamanho(img0), arqCasamentos, img0);
  evaluation::confereKeyPoints(k1, tvm::tamanho(img1), arqCasamentos, img1);
  std::vector<cv::Point2d> p0, p1;
  for (size_t i = 0; i < k0.size(); ++i) {
    p0.emplace_back(k0[i].pt);
    p1.emplace_back(k1[i].pt);
  }

  measures::OpcoesPose op;
  op.limiar = ransac;
  op.metodo = metodo == "magsac" ? measures::MetodoPose::magsac : measures::MetodoPose::ransac;
  const std::optional<measures::PoseEstimada> pose = measures::estimaPose(p0, p1, cam.K0, cam.K1, op);
  std::optional<measures::ErroPose> erro;
  if (pose) erro = measures::erroPose(pose->R, pose->t, cam.R, cam.t);
  const measures::Medida erroPose = erro ? measures::Medida(erro->pose()) : std::nullopt,
                         rotacao = erro ? measures::Medida(erro->rotacao) : std::nullopt,
                         translacao = erro ? measures::Medida(erro->translacao) : std::nullopt;
  const measures::PrecisaoEpipolar epi = measures::precisaoEpipolar(p0, p1, cam);
  const int inliers = pose ? pose->nInliers : 0;

  std::printf("matches=%zu inliers=%d\n", p0.size(), inliers);
  std::printf("pose_error=%s rotation_error=%s translation_error=%s\n", evaluation::texto(erroPose).c_str(),
              evaluation::texto(rotacao).c_str(), evaluation::texto(translacao).c_str());
  std::printf("epipolar@1e-4=%s epipolar@5e-4=%s epipolar@1e-3=%s\n", evaluation::texto(epi[0]).c_str(),
              evaluation::texto(epi[1]).c_str(), evaluation::texto(epi[2]).c_str());

  if (csv.empty()) return;
  std::string linha;
  for (const std::string& a : {img0, img1, arqCasamentos, arqPose}) linha += formats::campoCSV(a) + ",";
  linha += metodo + "," + tvm::textoDeNumero(ransac) + "," + std::to_string(p0.size()) + "," + std::to_string(inliers);
  for (const measures::Medida& m : {erroPose, rotacao, translacao, epi[0], epi[1], epi[2]})
    linha += "," + evaluation::texto(m);
  formats::acrescentaCSV(csv,
                         "img0,img1,matches,pose,method,ransac,matches_n,inliers,pose_error,rotation_error,"
                         "translation_error,epipolar@1e-4,epipolar@5e-4,epipolar@1e-3",
                         linha);
}
