// The interface of the own descriptors (SIMPLE, RIFF, RIHOG, RUHOG, Forapro),
// so that a tool, a test or a sweep can hold any of them as one type.
//
// Image: 8-bit grey, x right and y down as OpenCV has it. Keypoints as a
// keypoint store holds them: size a diameter in pixels, angle in degrees.
// Each class says in its header which of the keypoint's fields it reads and
// how its row is laid out.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

class Descritor {
 public:
  virtual ~Descritor() = default;

  // Values per row.
  virtual int descriptorSize() const = 0;

  // One CV_32F row per keypoint, in keypoint order; none is dropped. Stops on
  // a keypoint that cannot be placed (size not positive, position or size not
  // finite), naming the first such keypoint, before any row is computed.
  virtual void compute(const cv::Mat_<uchar>& image, const std::vector<cv::KeyPoint>& keypoints,
                       cv::Mat& descriptors) const = 0;

 protected:
  // The common start of compute: every keypoint checked, the rows allocated.
  void preparaLinhas(const std::vector<cv::KeyPoint>& keypoints, cv::Mat& descriptors) const;
};
