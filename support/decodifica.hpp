// Reading PNG, JPEG and PGM/PPM, and writing PNG, through libpng and libjpeg
// directly, without the codec plug-in (support/plugin.hpp). Loading that
// plug-in costs most of a short tool's run, so the common formats skip it.
//
// The pixels equal those of cv::imread with the same mode: these functions
// make the same library calls and conversions imread makes. Whatever they
// cannot guarantee to decode identically they refuse, and the caller asks the
// plug-in instead, which also gives imread's behaviour on damaged files.
#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace tvm {

// Decodes `file` into `out` (CV_8UC1 for cv::IMREAD_GRAYSCALE, CV_8UC3 in
// blue, green, red order for cv::IMREAD_COLOR); any other mode is refused.
// The format comes from the first bytes, never from the name.
// Returns false, leaving `out` untouched, for an unknown format, a case that
// might differ from imread (EXIF orientation, CMYK JPEG, P1/P4 bitmaps), an
// image over 2^20 pixels a side or 2^30 in all, or any error or warning of
// the codec library (a truncated file, a bad checksum). A header declaring
// more pixels than tvm::limitePixels() stops the tool (tvm::verificaPixels)
// before anything is allocated.
bool decodificaDireto(const std::string& file, int modo, cv::Mat& out);

// The size imread would give `file`, from its header alone: PNG's IHDR,
// JPEG's frame header, PGM/PPM's first numbers. False for any other format,
// an Exif orientation (imread would turn the image), or a size the decoders
// refuse, and the caller decodes the whole image instead. The pixel data is
// not read, so a file damaged after its header still gives its size.
bool tamanhoDireto(const std::string& file, cv::Size& tamanho);

// Encodes an 8-bit BGR image as baseline JPEG of `qualidade` (1..100) with
// libjpeg, into `bytes`; false for another type or a failure of libjpeg.
bool codificaJpeg(const cv::Mat& imagem, int qualidade, std::vector<uchar>& bytes);

// Encodes an 8-bit grey or BGR image as PNG with the settings imwrite uses by
// default, into `bytes`; false if the image has another type.
bool codificaPng(const cv::Mat& image, std::vector<uchar>& bytes);

}  // namespace tvm
