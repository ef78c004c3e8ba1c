// Keypoint stores and descriptor stores.
//
// cv::FileStorage files; XML, YAML or gzip-compressed by the file name's
// extension (".xml", ".yml", ".yaml", a further ".gz").
//   node "keypoints":   one flat sequence of seven numbers per keypoint,
//                       x y size angle response octave class_id
//                       (x right, y down, pixels from the top-left pixel's
//                       centre; size a diameter; angle in degrees).
//                       Readers also accept OpenCV 4's nested layout, one
//                       seven-number sequence per keypoint.
//   node "descriptors": descriptor stores only, after "keypoints"; a matrix
//                       with row i describing keypoint i.
// A missing node reads as an empty list or an empty matrix. A store whose
// text, inflated for a .gz one, passes tvm::limiteStoreBytes() stops the
// tool before it is parsed. Text not in the form OpenCV's writers give a
// store (forma_opencv.hpp) is refused as a failed open, at once: it never
// reaches OpenCV's parser, which may not return on it.
#pragma once

#include "support/arquivos.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace formats {

// The text is read once. Stores written by these tools or by OpenCV's
// FileStorage are parsed directly (leitura_rapida.hpp); other text in
// OpenCV's form goes through cv::FileStorage, with the same results.
std::vector<cv::KeyPoint> leKeyPoints(const std::string& file);
void leDescritores(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors);

// The cv::FileStorage readers alone, on the file itself: the reference the
// direct parser must agree with, for text known to be well formed.
std::vector<cv::KeyPoint> leKeyPointsFileStorage(const std::string& file);
void leDescritoresFileStorage(const std::string& file, std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors);

// Writers replace `file` whole or leave it untouched.
void impKeyPoints(const std::string& file, const std::vector<cv::KeyPoint>& keypoints);
// Into the temporary of `saida`, for the caller to confirm: a tool writing
// two stores confirms them only when both were written.
void impKeyPoints(tvm::SaidaSegura& saida, const std::vector<cv::KeyPoint>& keypoints);
void impDescritores(const std::string& file, const std::vector<cv::KeyPoint>& keypoints, const cv::Mat& descriptors);

}  // namespace formats
