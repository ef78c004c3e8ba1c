// Posed image pairs: two images, their calibrated cameras and the relative
// pose (measures::Cameras, X1 = R X0 + t), optionally depth maps. Three
// layouts are recognised by their files:
//
//   SuperGlue's pair lists (ScanNet-1500, YFCC): a text file, one pair per
//     line: name0 name1 rot0 rot1 K0(9) K1(9) T_0to1(16), matrices row-major,
//     T_0to1 the 4x4 pose [R t; 0 0 0 1]. Names are relative to an image
//     folder (by default the list's own). rot0/rot1 (0..3) are kept as giro0/
//     giro1: SuperGlue turns the stored image rot times counter-clockwise
//     (np.rot90, cv::ROTATE_90_COUNTERCLOCKWISE) before matching, and turns K
//     and the pose with it; `cameras` describe the images as stored and
//     camerasGiradas() gives those of the turned images.
//   glue-factory's posed images (MegaDepth-1500): a scene folder holding
//     views.txt, one image per line: name R(9) t(3) MODEL width height
//     params..., R, t world to camera as COLMAP's (X_cam = R X_world + t);
//     pairs.txt, "name0 name1" per line; images/<name>; optionally
//     depths/<name without extension>.h5 (formats/profundidade.hpp).
//   A COLMAP text model: a folder holding cameras.txt (CAMERA_ID MODEL WIDTH
//     HEIGHT PARAMS...), images.txt (IMAGE_ID QW QX QY QZ TX TY TZ CAMERA_ID
//     NAME, each followed by a line of 2D points that is skipped; the unit
//     quaternion and t world to camera), pairs.txt of image names as above,
//     and images/<name>. Lines starting with '#' are comments.
//
// Camera models (views.txt and cameras.txt): SIMPLE_PINHOLE (f cx cy),
// PINHOLE (fx fy cx cy), SIMPLE_RADIAL (f cx cy k) and RADIAL (f cx cy k1
// k2). Radial distortion is refused unless zero: ignoring it would make the
// ground truth wrong by pixels at the borders. COLMAP puts the top-left
// pixel's centre at (0.5, 0.5), this project at (0, 0) (measures/verdade.hpp),
// so 0.5 is taken from cx and cy of those two layouts; SuperGlue's K are
// used as they are. The relative pose of two world-to-camera poses is
//   R = R1 R0^T,  t = t1 - R t0.
//
// What a file says is checked before it is used: every field present and a
// finite number, rotations orthonormal with determinant 1 (to 1e-4, since
// SuperGlue's ScanNet list prints five decimals), quaternions of unit norm
// (to 1e-4, then normalised), K upper triangular with positive focal lengths
// and last row 0 0 1, known camera ids and models, no repeated ids or names,
// sizes of 1 to 100000 pixels, image names inside their folder (not
// absolute, no ".." component, no NUL byte), finite relative translations,
// no skew on a turned image (a turn would move it below the diagonal). A file
// larger than tvm::limiteStoreBytes() is refused unread. Errors are one line
// naming the file and line.
#pragma once

#include "measures/verdade.hpp"

#include <string>
#include <vector>

namespace datasets {

struct ParPosado {
  std::string imagem0, imagem1;  // paths
  std::string nome0, nome1;      // the names the list gives
  int giro0 = 0, giro1 = 0;      // quarter turns counter-clockwise, 0..3
  measures::Cameras cameras;     // of the stored images; no depth loaded
  std::string profundidade0, profundidade1;  // depth files, "" when none
};

// The pairs at `caminho`: a pair list file, or a scene folder of the other
// two layouts. `pastaImagens` replaces the default image folder when not "".
std::vector<ParPosado> leDatasetPosado(const std::string& caminho, const std::string& pastaImagens = "");

// The cameras of the pair's images once turned by giro0 and giro1, given the
// stored images' sizes: a turn maps pixel (x, y) of a W wide image to
// (y, W - 1 - x) and the camera frame by Q = [0 1 0; -1 0 0; 0 0 1], so
// K' = A K Q^T (A that pixel map), R' = Q^giro1 R Q^-giro0, t' = Q^giro1 t.
// Loaded depth maps turn with their images.
measures::Cameras camerasGiradas(const ParPosado& p, cv::Size tamanho0, cv::Size tamanho1);

}  // namespace datasets
