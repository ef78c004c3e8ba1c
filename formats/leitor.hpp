// quivelar-leitor, the reader helper (tvm::pedeAoAjudante): the HDF5 reads
// of the plug-in (hloc's features and matches, depth maps) run there, so
// that a file on which libhdf5 dies costs one error line, not the tool.
// Requests and answers are bytes in this process's own layout; both ends are
// this build.
#pragma once

#include "formats/externos.hpp"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace formats::leitor {

constexpr const char* kPrograma = "quivelar-leitor";

// The requests.
std::string pedidoHloc(const std::string& arquivo, const std::string& imagem, float tamanhoPadrao);
std::string pedidoCasamentos(const std::string& arquivo, const std::string& nome0, const std::string& nome1,
                             size_t n0, size_t n1);
std::string pedidoProfundidade(const std::string& arquivo);

// The helper's answer to a request, read with the plug-in's readers.
std::string atende(const std::string& pedido);

// The answers read back; a truncated answer stops the tool.
Caracteristicas caracteristicas(const std::string& resposta);
std::vector<cv::DMatch> casamentos(const std::string& resposta);
cv::Mat_<float> profundidade(const std::string& resposta);

}  // namespace formats::leitor
