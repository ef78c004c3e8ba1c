// Synthetic 3D pairs: any image becomes the texture of a known non-planar
// surface seen by calibrated cameras, each view rendered by casting a ray per
// pixel, so that every pixel's depth and correspondence is known exactly.
//
// World frame = camera 0's (x right, y down, z forward, measures/verdade.hpp).
// The surface is the height field z = 1 + h(x, y), with h one of
//   ondas    0.04 sin(2 pi x / 0.3) sin(2 pi y / 0.3)
//   degrau   0.25 where x > 0, else 0: the right half farther, a wall at x = 0
//   calombo  -0.25 exp(-(x^2 + y^2) / (2 0.15^2)): a bump towards the camera
//   diedro   -0.5 min(|x|, 1): two planes meeting at a ridge along x = 0
// Every camera has K = [f 0 cx; 0 f cy; 0 0 1], f the texture's larger side,
// (cx, cy) its centre, and sees an image of the texture's size. The point
// (x, y, z) of the surface takes the texture at (cx + f x, cy + f y),
// bilinear, mirrored beyond the borders: camera 0 sees the texture unchanged
// where h = 0.
//
// A pixel sees the first point of the surface along its ray: the ray is
// marched in steps of 0.002 through the slab the surface fills and its first
// crossing refined by bisection to double precision, so what is hidden stays
// hidden. A ray that meets nothing gives grey 0 and depth 0. Depth is z in
// that camera's frame.
//
// View k of n (k = 0..n-1) orbits the surface's centre (0, 0, 1) by the share
// s = k / (n - 1) of `giro` degrees about an axis through it in the plane
// z = 1, turned by an angle drawn from tvm::myrandom seeded with `seed`, and
// moves s * desloc along that axis; it keeps looking at the centre.
#pragma once

#include "measures/verdade.hpp"

#include <opencv2/core.hpp>

#include <string>

namespace datasets {

enum class Superficie { ondas, degrau, calombo, diedro };

// False for a name that is none of the four.
bool superficieDeNome(const std::string& nome, Superficie& s);

// One camera (world to camera: X_cam = R X + t) looking at the surface.
class Vista3d {
 public:
  Vista3d(Superficie s, const cv::Matx33d& K, const cv::Matx33d& R, const cv::Vec3d& t);
  // The depth of what pixel p sees, 0 when nothing; its world point into *X.
  double profundidade(cv::Point2d p, cv::Vec3d* X = nullptr) const;

 private:
  Superficie superficie_;
  cv::Matx33d Kinv_, Rt_;
  cv::Vec3d centro_;
};

// The image and depth map a camera sees of the textured surface.
void renderiza(const cv::Mat_<uchar>& textura, const Vista3d& vista, cv::Mat_<uchar>& imagem,
               cv::Mat_<float>& profundidade);

struct ParamSint3d {
  Superficie superficie = Superficie::ondas;
  double giro = 15;    // degrees of orbit at the last view, |giro| <= 60
  double desloc = 0.2; // shift along the axis at the last view, |desloc| <= 1
  int vistas = 2;      // 2..100
  int seed = 7;
  void confere() const;  // stops with the option out of range
};

cv::Matx33d kSint3d(cv::Size tamanho);
// World-to-camera pose of view k.
void poseSint3d(const ParamSint3d& p, int k, cv::Matx33d& R, cv::Vec3d& t);

struct ParSint3d {
  cv::Mat_<uchar> imagem0, imagem1;
  measures::Cameras cameras;  // with both depth maps
};
// Views 0 and k.
ParSint3d parSint3d(const cv::Mat_<uchar>& textura, const ParamSint3d& p, int k = 1);

// Every view into `pasta` in glue-factory's layout (datasets/posados.hpp):
// views.txt, pairs.txt (view 0 with each other), images/vK.png,
// depths/vK.h5; a failure before the end leaves none of the new files.
void escreveSint3d(const cv::Mat_<uchar>& textura, const std::string& pasta, const ParamSint3d& p);

}  // namespace datasets
