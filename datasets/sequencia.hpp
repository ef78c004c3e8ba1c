// Image sequences on disk, as the field's datasets lay them out.
//
// A sequence is a folder holding a reference image 1 and views 2..N of the
// same scene, each with the 3x3 transform from image 1 to it (row-major, as
// formats/transform.hpp reads it). Two layouts are recognised by their names:
//
//   Oxford (Mikolajczyk's affine sequences):  img1.ppm .. imgN.ppm, H1to2p .. H1toNp
//   HPatches:                                 1.ppm .. N.ppm,       H_1_2 .. H_1_N
//
// Images may be .ppm, .pgm, .png, .jpg or .jpeg. A dataset is either a folder
// of sequence folders or one sequence folder itself (data/ is one). HPatches
// names say what changes along a sequence: a folder starting with "i_" is an
// illumination sequence, "v_" a viewpoint one; other names say nothing.
//
// The pairs measured are 1-2 .. 1-N. A view whose image or transform is
// missing still counts: the sweep reports its pair as failed rather than
// silently measuring fewer pairs.
#pragma once

#include <string>
#include <vector>

namespace datasets {

enum class Tipo { nenhum, iluminacao, pontoDeVista };

// "illumination", "viewpoint" or "" (the kind column of the sweep's table).
const char* nomeTipo(Tipo t);

struct Sequencia {
  std::string nome;   // the folder's name
  std::string pasta;  // its path
  Tipo tipo = Tipo::nenhum;
  // imagens[k] is image k + 1; transformacoes[k] the transform from image 1
  // to it (empty for k = 0). An empty name: the file is not there.
  std::vector<std::string> imagens, transformacoes;
  int vistas() const { return static_cast<int>(imagens.size()); }
};

// The sequence in `pasta`; false when the folder holds no image 1 and no
// view in either layout.
bool leSequencia(const std::string& pasta, Sequencia& s);

// The sequences of a dataset, sorted by name; when `nomes` is not empty only
// those, each of which must exist. Stops when the folder cannot be read or
// holds no sequence.
std::vector<Sequencia> leDataset(const std::string& pasta, const std::vector<std::string>& nomes);

}  // namespace datasets
