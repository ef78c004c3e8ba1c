// Depth maps as HDF5 files, as glue-factory keeps MegaDepth's: one dataset
// "depth" at the root, H x W (rows first), float32 (any float or integer type
// is read), z along the camera's axis per pixel in the scene's unit, 0 where
// unknown. Negative or non-finite values are refused.
#pragma once

#include "support/saida_segura.hpp"

#include <opencv2/core.hpp>

#include <string>

namespace formats {

// Read by the reader helper (defined in formats/leitor.cpp): libhdf5 1.10
// can die on a damaged file, which then costs one error line, not the tool.
cv::Mat_<float> leProfundidade(const std::string& arquivo);

// Writes `d` as little-endian float32 into the temporary of `saida`, which
// the caller confirms with the run's other outputs.
void escreveProfundidade(const cv::Mat_<float>& d, tvm::SaidaSegura& saida);

}  // namespace formats
