// Features and matches that other programs wrote, in the layouts the field
// shares. Keypoints everywhere: x right, y down, in pixels, the top-left
// pixel's centre at (0, 0), as OpenCV's and this program's.
//
// D2-Net / R2D2 (their HPatches-sequences evaluation): one .npz beside each
// image, named "<image>.<method>" ("i_ajuntament/1.ppm.d2-net"):
//   keypoints    N x 2 (x, y), N x 3 (x, y, size) or N x 4 (x, y, size, angle
//                in degrees); float or integer
//   scores       N, higher is better (optional)
//   descriptors  N x D, float (L2) or uint8 (bits, Hamming)
// hloc, features: one HDF5 file, a group per image name (a name with '/' is
// nested groups, "i_ajuntament/1.ppm"):
//   keypoints    N x 2
//   descriptors  D x N (transposed)
//   scores       N (optional);  image_size  (width, height) (optional)
// hloc, matches: one HDF5 file, a group per pair: "<a>/<b>" or, in older
// files, "<a>_<b>", where a and b are the image names with '/' turned into
// '-'; the pair may be stored either way round:
//   matches0           N0, for each keypoint of the pair's first image the
//                      index of its match in the second, -1 for none
//   matching_scores0   N0 (optional)
// SuperGlue's match_pairs.py: "<stem0>_<stem1>_matches.npz":
//   keypoints0 N0 x 2, keypoints1 N1 x 2, matches N0 (as matches0 above),
//   match_confidence N0. match_pairs.py resizes the images first (640 x 480
//   by default): its keypoints are in the resized images' pixels unless it
//   ran with --resize -1.
//
// A keypoint without a size gets `tamanhoPadrao` (a diameter in pixels), one
// without an angle -1 (none). Non-finite coordinates, sizes or scores, a
// count of descriptors or scores that differs from the keypoints', and match
// indices outside the keypoints stop with a message naming the file.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace formats {

// The diameter a keypoint gets when its file gives none: 10 pixels, or
// QUIVELAR_TAMANHO_PADRAO (a positive number) for the single tools.
constexpr float kTamanhoPadrao = 10.0f;
float tamanhoPadrao();

struct Caracteristicas {
  std::vector<cv::KeyPoint> keypoints;  // response = score when the file has scores
  cv::Mat descritores;                  // N x D, CV_32F or CV_8U; empty when the file has none
  bool comScores = false;
};

// Matches as given: queryIdx into the first image's keypoints, trainIdx into
// the second's, distance = 1 - score (0 when the file has no scores), best
// (highest score) first, ties in index order.
struct CasamentosDados {
  std::vector<cv::KeyPoint> k1, k2;
  std::vector<cv::DMatch> casamentos;
};

Caracteristicas leD2Net(const std::string& arquivo, float tamanhoPadrao);
// The two HDF5 readers run in the reader helper (defined in formats/leitor.cpp).
Caracteristicas leHloc(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao);
// `nome0`, `nome1`: the two images' names as the features file has them.
std::vector<cv::DMatch> leHlocCasamentos(const std::string& arquivo, const std::string& nome0,
                                         const std::string& nome1, size_t n0, size_t n1);
CasamentosDados leSuperGlue(const std::string& arquivo, float tamanhoPadrao);

// Keeps the k highest-scoring keypoints (and their rows), in their order in
// the file; ties by index. The top-k protocol of D2-Net's evaluation.
void melhores(Caracteristicas& c, int k);

// The file names a single tool may be given for another program's output:
//   X.npz or any zip (D2-Net's "1.ppm.d2-net")         D2-Net features, or
//                                                       SuperGlue matches
//   X.h5:IMAGEM / X.hdf5:IMAGEM                         hloc features of IMAGEM
//   M.h5:IMAGEM0:IMAGEM1:F.h5                           hloc matches of a pair,
//                                                       keypoints from F.h5
// Whether `arquivo` names one of these (a zip by its first bytes).
bool ehExterno(const std::string& arquivo);
Caracteristicas leCaracteristicasExternas(const std::string& arquivo);
CasamentosDados leCasamentosExternos(const std::string& arquivo);

}  // namespace formats
