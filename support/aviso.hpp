// Warnings: a run that succeeds but whose result would mislead.
//
// A warning goes to stderr as one line "Aviso: ..." and changes nothing
// else: stdout, the files written and the exit status are those of a run
// without it, so scripts that parse the output keep working.
#pragma once

#include <cstddef>
#include <string>

namespace tvm {

// Prints "Aviso: " + texto on stderr, after whatever the tool printed so far.
void aviso(const std::string& texto);

// The warning for a store written with no keypoints: what follows describes
// or matches nothing.
void avisaSeVazio(size_t keypoints, const std::string& arquivo);

}  // namespace tvm
