// Whether a store's text is in the form OpenCV's FileStorage writers give it.
//
// OpenCV's parsers are not safe on arbitrary text: its YAML parser never
// returns on some 40-byte files (a block sequence whose indentation goes back
// and forth), its XML parser follows a null pointer on a text ending inside a
// tag, and a NUL byte makes it read past its buffer. So no text reaches them
// unless this check has taken it. The check accepts the shapes OpenCV's own
// emitters produce (C++ and Python, OpenCV 2.4 and 4.x), whatever the values,
// counts and node names, and refuses everything else in one pass over the
// text, with no backtracking.
//
// Chosen by the text's start, as FileStorage chooses (the file name plays no
// part): "%YAML" gives YAML, "{" JSON, anything else XML.
//
// YAML: "%YAML:1.0\n", optionally "---\n", then a block map at column 0.
//   Blocks are indented by exactly 3 columns per level, as the emitter writes
//   them; a map entry is `key: value`, a sequence item `- value`. A value is
//   a scalar or a flow collection on the rest of the line, "!!type" over a
//   block map (an opencv-matrix), or, after a line break, a block one level
//   deeper ("[]" or "{}" when empty). Flow collections ("[ a, b ]",
//   "{ k:v }") may continue on lines indented deeper than the line they
//   start on. No blank lines, tabs, comments, anchors or trailing blanks
//   but at the end of the text.
// XML: `<?xml version="1.0"?>`, "<opencv_storage>", elements, its closing
//   tag. An element holds named elements (a map), or scalars and "<_>"
//   elements (a sequence); the only attribute is type_id. Blanks are spaces
//   and line breaks.
// JSON: one object; values are scalars, arrays and objects; blanks are
//   spaces and line breaks.
// Scalars: numbers as the emitters write them (integers, reals, ".Nan",
// ".Inf", "-.Inf", the exponent's "e" and the words in any case),
// double-quoted strings, and plain words starting with a
// letter or "_". Keys are a letter or "_" and then letters, digits, "_" and
// "-". Nesting stops at kProfundidadeMaxima levels.
#pragma once

#include <cstddef>

namespace formats {

constexpr int kProfundidadeMaxima = 16;

// True when FileStorage may be given `texto` (n bytes).
bool formaDoOpenCV(const char* texto, size_t n);

}  // namespace formats
