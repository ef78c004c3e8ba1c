// Fast readers for the stores and match files the tools exchange.
//
// cv::FileStorage builds a node tree and converts every number on its own,
// which costs far more than the matching that follows on a few-thousand
// keypoint store. These readers take the whole text into memory and parse
// only the exact text that the tools' writers and OpenCV's own FileStorage
// writer (C++ or Python, OpenCV 2.4 or 4) produce; anything else is "not mine"
// (false), and the caller then reads it the ordinary way. They never report
// an error themselves: every message stays that of the ordinary path, and
// every text they accept reads to exactly what that path gives.
//
// Store text accepted (the syntax chosen by the text's start, whatever the
// file's name; a ".gz" file is inflated first; blanks are spaces and
// newlines only):
//   XML:  <?xml version="1.0"?> <opencv_storage> nodes </opencv_storage>
//   YAML: %YAML:1.0 --- nodes (OpenCV 2.4 wrote no "---")
//   nodes: "keypoints", "descriptors" or both, in either order.
//   keypoints, in one of the two layouts the ordinary reader takes:
//         flat, n*7 numbers; or nested, one sequence of 7 numbers per
//         keypoint ("<_>" elements in XML). In YAML the sequence is either
//         flow, "keypoints: [ ... ]" (flat, or of flow items), continuation
//         lines indented 4 or more; or block, one "   - " line per element:
//         a number, a keypoint's flow sequence (continuations indented 7 or
//         more), or a bare "   -" over its seven "      - " number lines;
//         "   []" when empty.
//   descriptors: an "opencv-matrix" with rows, cols, dt "f" or "u" and
//         exactly rows*cols numbers (in XML never exactly one: OpenCV reads
//         a lone value as a scalar, which the ordinary path refuses).
//   Numbers as OpenCV reads them: "-"? digits, then real when "." or "e"
//   follows the digits ("-"? "." digits is real too), integer otherwise (no
//   leading zeros, which OpenCV takes as octal). Octave and class_id must
//   fit an int, the float fields a float; "u" data are integers 0..255.
// Match files: the count line and n lines as formats::leMatch reads them,
// numbers in plain decimal notation only.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace formats {

// True when `texto` was read here. `descriptors` null: keypoints only (the
// descriptor part, if any, must still be one the reader accepts). A store
// without descriptors leaves `descriptors` as cv::read leaves it for a
// missing node. On false nothing was changed.
bool leStoreTexto(const std::string& texto, std::vector<cv::KeyPoint>& keypoints, cv::Mat* descriptors);
// The same for a file, read whole (inflated when its name ends in ".gz").
bool leStoreRapido(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat* descriptors);

// The same contract for the match file (see match_file.hpp).
bool leMatchRapido(const std::string& file, std::vector<cv::DMatch>& matches, std::vector<cv::KeyPoint>& keypoints1,
                   std::vector<cv::KeyPoint>& keypoints2);

// A keypoint from the seven stored numbers x y size angle response octave
// class_id, converted as the ordinary store reader converts them.
cv::KeyPoint keyPointDeCampos(const double campos[7]);

// The `n` match lines of a match file, each read by
// `leLinha(distance, keypoint1, keypoint2)`; match i pairs keypoint i of each
// side. False at the first line that cannot be read, the outputs untouched.
// `previstos` bounds what is reserved, since the count is not trusted.
template <class LeLinha>
bool leLinhasDeCasamento(int n, size_t previstos, LeLinha leLinha, std::vector<cv::DMatch>& matches,
                         std::vector<cv::KeyPoint>& keypoints1, std::vector<cv::KeyPoint>& keypoints2) {
  std::vector<cv::DMatch> m;
  std::vector<cv::KeyPoint> k1, k2;
  m.reserve(previstos);
  k1.reserve(previstos);
  k2.reserve(previstos);
  for (int i = 0; i < n; ++i) {
    cv::DMatch d(i, i, -1, 0.0f);
    cv::KeyPoint a, b;
    if (!leLinha(d.distance, a, b)) return false;
    m.push_back(d);
    k1.push_back(a);
    k2.push_back(b);
  }
  matches = std::move(m);
  keypoints1 = std::move(k1);
  keypoints2 = std::move(k2);
  return true;
}

// Whether stored field `campo` (0-6, in the order above) holds `v` without
// overflowing the float or int it is converted to.
bool campoRepresentavel(int campo, double v);

}  // namespace formats
