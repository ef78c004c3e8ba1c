// HDF5 files (h5py's, hloc's feature and match files) read into OpenCV
// matrices.
//
// What is read: hard links from the root, walked one name at a time, so a
// path may cross nested groups ("i_ajuntament/1.ppm/keypoints"); soft and
// external links count as absent (an external link would open another
// file). A dataset is numeric: integers of 1, 2, 4 or 8 bytes, signed or not,
// and IEEE floats of 2, 4 or 8 bytes, either byte order, named as NumPy names
// them ("<f4", "|u1", "<i2", ">f8"): more than arranjo.hpp lists, since
// writers of match files use int16 and the like freely. Its shape is () → 1 x 1, (n) → n x 1,
// (n, d) → n x d; other ranks, the null shape, strings, compounds, enums,
// arrays and variable-length types are refused.
// Storage may be contiguous, compact or chunked, with gzip, shuffle and
// fletcher32 filters; other filters (szip, lzf, plugins, which are never
// loaded) and data kept outside the file (external storage, virtual
// datasets) are refused.
//
// Values follow arranjo.hpp: conversion to the matrix type is exact or
// refused with a message, whatever the source type (floats never become
// integers; integers must fit, and must be representable in a float target;
// float64 into float32 rounds but must stay in range).
//
// What a file says is not trusted: a dataset, or one of its chunks, larger
// than tvm::limiteStoreBytes() is refused before anything is allocated, and
// each gzip chunk is inflated here first, counting, and refused when it
// would pass its chunk size (HDF5 1.10's own inflater grows without bound).
// HDF5's own messages are silenced; errors name the file and the path.
// HDF5 1.10 itself still crashes on some crafted files (a group whose heap
// address is undefined, for one); nothing short of parsing the format first
// guards against those.
#pragma once

#include "formats/arranjo.hpp"

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace formats {

// An HDF5 file opened read-only. Paths are relative to the root; "" and "/"
// are the root itself.
class H5 {
 public:
  explicit H5(const std::string& arquivo);  // "Erro abertura arquivo <arquivo>" when missing or not HDF5
  ~H5();
  H5(const H5&) = delete;
  H5& operator=(const H5&) = delete;

  bool tem(const std::string& caminho) const;  // a dataset at that path
  bool temGrupo(const std::string& caminho) const;
  std::vector<std::string> filhos(const std::string& grupo) const;  // its hard links' names, sorted
  InfoArranjo info(const std::string& caminho) const;               // shape and type, nothing read
  cv::Mat le(const std::string& caminho, int tipo) const;  // the whole dataset as CV_32F, CV_64F, CV_32S or CV_8U

 private:
  std::string arquivo_;
  int64_t id_;  // HDF5's hid_t
};

}  // namespace formats
