// What the fuzz targets share. Each is one program, <name>_fuzz, that libFuzzer calls with made-up
// inputs; the library's outputs go nowhere meanwhile. Cycle's thread is the only one.
#ifndef FUZZ_TARGET_H_
#define FUZZ_TARGET_H_

#include <algorithm>
#include <cstring>
#include <string_view>

#include "inspect/line_reader.h"

// One input; what each target defines.
void fuzz(std::string_view text);

// Ends the run where something that must hold does not; the fuzzer keeps the input.
inline void require(bool holds) {
  if (!holds) __builtin_trap();
}

// Calls `take` with each line as a reader gets it, having checked that these are the text's own: up
// to the line feed, or 1023 bytes of what is longer.
template <typename Take>
void each_line(std::string_view text, Take take) {
  LineReader lines(text);
  while (!text.empty()) {
    std::string_view piece = text.substr(0, LineReader::kLineSize - 1);
    piece = piece.substr(0, std::min(piece.find('\n'), piece.size() - 1) + 1);
    char* line = lines.next();
    require(line != nullptr && piece == std::string_view(line, piece.size()));
    require(line[piece.size()] == '\0');
    text.remove_prefix(piece.size());
    take(line);
  }
  require(lines.next() == nullptr);
}

#endif  // FUZZ_TARGET_H_
