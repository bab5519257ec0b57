// What the fuzz targets share. Each is one program, <name>_fuzz, that libFuzzer calls with made-up
// inputs; the library's outputs go nowhere meanwhile. Cycle's thread is the only one.
#ifndef FUZZ_TARGET_H_
#define FUZZ_TARGET_H_

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
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

// The value of a line "Key:  value unit", found the plain way: what stands behind the first colon
// and the blanks there, up to the next blank. Nothing where the line has none.
inline std::optional<std::string> plain_value(std::string_view line) {
  const size_t colon = line.find(':');
  const size_t start = colon != line.npos ? line.find_first_not_of(" \t", colon + 1) : line.npos;
  if (start == line.npos) return std::nullopt;
  return std::string(line.substr(start, line.find_first_of(" \t\r\n", start) - start));
}

#endif  // FUZZ_TARGET_H_
