// The one rule, shared by KeyRand and KeyGrande, for a keypoint's support
// circle fitting inside an image.
#pragma once

namespace keypoints {

// True when the circle of diameter `size` centred on (x, y) reaches outside
// a W x H image (x right, y down, pixel centres at whole numbers). The radius
// is halved in single precision and the tests run in double. Touching the
// left or top edge (x - r == 0) still fits; reaching the right or bottom
// limit (x + r == W) does not: users' stores depend on that asymmetry.
inline bool intersectaCanvas(float x, float y, float size, int W, int H) {
  const double r = 0.5f * size;
  const double dx = x, dy = y;
  return dx - r < 0 || dx + r >= W || dy - r < 0 || dy + r >= H;
}

}  // namespace keypoints
