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
//
// A posed dataset (datasets/posados.hpp: a SuperGlue pair list, a
// glue-factory scene, a COLMAP model) is read into the same shape: one
// sequence per list or scene, its images those the pairs name (an image
// turned by a quarter turn is an image of its own), its pairs the list's,
// each with its cameras instead of a transform file.
#pragma once

#include "datasets/posados.hpp"

#include <optional>
#include <string>
#include <vector>

namespace datasets {

enum class Tipo { nenhum, iluminacao, pontoDeVista, posada };

// "illumination", "viewpoint", "posed" or "" (the kind column of the sweep's table).
const char* nomeTipo(Tipo t);

// A pair the sweep measures: images a and b of the sequence.
struct ParDaSequencia {
  int a = 0, b = 1;
  std::string rotulo;         // the pair column: "1-k", or "NAME0 NAME1" for a posed pair
  std::string transformacao;  // planar: the transform file from a to b, "" when missing
  std::optional<ParPosado> posado;  // posed: the cameras of the stored images
};

struct Sequencia {
  std::string nome;   // the folder's name
  std::string pasta;  // its path
  Tipo tipo = Tipo::nenhum;
  // imagens[k] is image k + 1; transformacoes[k] the transform from image 1
  // to it (empty for k = 0). An empty name: the file is not there.
  std::vector<std::string> imagens, transformacoes;
  // Posed sequences only, per image: the name the list gives it (other
  // programs' files know it by that name), its quarter turns and its depth
  // file ("" when none).
  std::vector<std::string> nomes, profundidades;
  std::vector<int> giros;
  std::vector<ParDaSequencia> pares;
  // A posed scene is swept in parts of at most kMaxImagensPorParte images,
  // so that a list of thousands of images (MegaDepth-1500's) is never in
  // memory whole: part `parte` of `partes`, its pairs those from
  // `primeiroPar` of the scene's list. Parts share the scene's name.
  int parte = 0, partes = 1, primeiroPar = 0;
  int vistas() const { return static_cast<int>(imagens.size()); }
  // The name and, for a part, its number: "cena", "cena#2".
  std::string nomeDaParte() const { return partes > 1 ? nome + "#" + std::to_string(parte + 1) : nome; }
};

constexpr int kMaxImagensPorParte = 16;

// The sequence in `pasta`; false when the folder holds no image 1 and no
// view in either layout.
bool leSequencia(const std::string& pasta, Sequencia& s);

// The posed pairs of one list or scene as sequences named `nome`: parts of
// consecutive pairs, each naming at most `maxImagens` images.
std::vector<Sequencia> sequenciaPosada(const std::string& nome, const std::string& pasta,
                                       const std::vector<ParPosado>& pares, int maxImagens = kMaxImagensPorParte);

// The sequences of a dataset, sorted by name; when `nomes` is not empty only
// those, each of which must exist. The dataset is a sequence folder, a
// posed scene folder, a pair list file, or a folder of sequences and scenes
// (`pastaImagens` as leDatasetPosado's). Stops when the folder cannot be read
// or holds no sequence.
std::vector<Sequencia> leDataset(const std::string& pasta, const std::vector<std::string>& nomes,
                                 const std::string& pastaImagens = "");

}  // namespace datasets
