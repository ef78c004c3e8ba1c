// Angle conventions: the two directions a keypoint's angle may be measured
// in, and the conversion between them.
//
// A keypoint's angle is in degrees, but two directions meet in this program:
//
//   horario      from +x towards +y with y down: clockwise on screen. OpenCV's
//                SIFT writes and reads it; our SURF writes it (name "opencv").
//   antiHorario  from +x towards -y, that is y up: counter-clockwise on screen.
//                KeyRand writes it (the partner in -180..180, as atan2 gives
//                it); SIMPLE reads it (name "ccw").
//
// The same direction is a in one and 360 - a in the other, so feeding one
// tool's angles to a reader of the other turns every patch the wrong way and
// a rotated view stops matching. Tools that write no orientation (FAST and
// STAR leave OpenCV's -1) or ignore the angle they are given (RIFF, RIHOG,
// RUHOG, Forapro sample rotation-symmetric rings; our SURF recomputes it)
// have convention `nenhuma`: any angle suits them.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace keypoints {

enum class Convencao { nenhuma, horario, antiHorario };

// "opencv", "ccw" or "nenhuma".
const char* nomeConvencao(Convencao c);

// Which tool writes and reads which convention is a column of the table of
// algorithms (algoritmos/tabela.hpp, algoritmos::achaConvencao).

// `angulo` written in convention `de` as the convention `para` reads it, in
// [0, 360): mirrored (a -> 360 - a) when both conventions are oriented and
// differ, and in every case brought into [0, 360), since -90 and 270 are one
// direction but SIFT's orientation bins and some scripts see them apart. A
// non-finite angle comes back as it was.
float converteAngulo(float angulo, Convencao de, Convencao para);

// converteAngulo on every keypoint; the other fields are left as they are.
// Returns how many angles changed.
size_t converteAngulos(std::vector<cv::KeyPoint>& keypoints, Convencao de, Convencao para);

}  // namespace keypoints
