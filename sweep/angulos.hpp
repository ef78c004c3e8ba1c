// Keypoint angle conventions inside a sweep: the one place that says in which
// direction each detector writes angles and each descriptor reads them.
//
//   horario      degrees from +x towards +y with y down, clockwise on screen:
//                OpenCV's SIFT writes and reads it, our SURF writes it.
//   antiHorario  counter-clockwise on screen (y up): KeyRand writes it
//                (partners in -180..180, as atan2 gives them), SIMPLE reads it.
//   nenhuma      no orientation written (FAST, STAR: -1) or none read (SURF
//                recomputes it; RIFF, RIHOG, RUHOG and Forapro are rotation
//                symmetric).
//
// Fed the other direction, a reader turns every patch the wrong way: SIFT on
// KeyRand's pairs of a turned view matches a few percent instead of nearly all.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace sweep {

enum class Convencao { nenhuma, horario, antiHorario };

// Angles written in `de` as a reader in `para` expects them: mirrored
// (a -> 360 - a) and brought into [0, 360) when both are oriented and differ;
// untouched otherwise. Returns how many keypoints changed.
size_t converteAngulos(std::vector<cv::KeyPoint>& keypoints, Convencao de, Convencao para);

}  // namespace sweep
