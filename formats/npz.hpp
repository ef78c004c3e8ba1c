// NumPy's own files: a lone array (.npy, np.save) and an archive of arrays
// (.npz, np.savez and np.savez_compressed), read into OpenCV matrices by the
// rules of arranjo.hpp.
//
// A .npy file:
//   6 bytes   magic "\x93NUMPY"
//   2 bytes   version major, minor: 1.0, 2.0 or 3.0
//   2 bytes   (v1) or 4 bytes (v2, v3): the header's length, little-endian
//   header    a Python dict literal, e.g.
//               {'descr': '<f4', 'fortran_order': False, 'shape': (1000, 128), }
//             padded with spaces and a '\n' (NumPy aligns the data to 64)
//   data      the elements, C order, or Fortran order (first axis fastest)
//             when fortran_order is True
// The header is read by a small strict parser: exactly those three keys, the
// dtypes of arranjo.hpp, ranks 0 to 2, at most 64 KB. Object arrays ('|O',
// pickles) are refused, never unpickled.
// A .npz file is a zip (stored or deflated members, zip64 for big ones) with
// one member "<name>.npy" per array.
//
// What a file says is not trusted: an array whose header asks for more than
// tvm::limiteStoreBytes() stops before anything is allocated, and the data
// must be exactly the bytes the shape and dtype give (the file's size for a
// .npy; for a member, both its declared size and what it inflates to, which
// is read with a hard stop there, so a zip bomb inflates at most one byte
// past the array). Encrypted members and methods other than store and
// deflate are refused. Errors name the file and the array.
#pragma once

#include "formats/arranjo.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

struct zip;

namespace formats {

// A .npz archive (np.savez, np.savez_compressed): a zip of .npy members. The
// archive stays open while the object lives; one thread at a time.
class Npz {
 public:
  explicit Npz(const std::string& arquivo);  // "Erro abertura arquivo <arquivo>" when missing or not a zip
  ~Npz();
  Npz(const Npz&) = delete;
  Npz& operator=(const Npz&) = delete;

  bool tem(const std::string& nome) const;             // member "<nome>.npy" exists
  std::vector<std::string> nomes() const;              // array names, archive order
  InfoArranjo info(const std::string& nome) const;     // from the member's .npy header only
  cv::Mat le(const std::string& nome, int tipo) const;  // whole array via formats::comoMatriz rules

 private:
  std::string arquivo_;
  struct zip* zip_;
};

InfoArranjo infoNpy(const std::string& arquivo);
cv::Mat leNpy(const std::string& arquivo, int tipo);  // a lone .npy file

}  // namespace formats
