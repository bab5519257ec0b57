// What the fuzz targets share. Each is one program, <name>_fuzz, that libFuzzer calls with made-up
// inputs; the library's outputs go nowhere meanwhile. Cycle's thread is the only one.
#ifndef FUZZ_TARGET_H_
#define FUZZ_TARGET_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "inspect/line_reader.h"

// One input; what each target defines.
void fuzz(std::string_view text);

// The input byte by byte; zeros once it is used up.
struct Bytes {
  uint8_t next() {
    const char byte = rest.empty() ? '\0' : rest[0];
    rest.remove_prefix(!rest.empty());
    return static_cast<uint8_t>(byte);
  }
  // At most so many.
  std::string_view take(size_t most) {
    const std::string_view taken = rest.substr(0, most);
    rest.remove_prefix(taken.size());
    return taken;
  }
  template <typename T, size_t N>
  const T& one_of(const T (&choices)[N]) {
    return choices[next() % N];
  }
  std::string_view rest;
};

// Ends the run where something that must hold does not; the fuzzer keeps the input.
inline void require(bool holds) {
  if (!holds) __builtin_trap();
}

// Calls `take` with each line that a reader gets: up to the line feed, or 1023 bytes of what is
// longer. Checks that the reader gets just that, and a terminator where it asks for one.
template <typename Take>
void each_line(std::string_view text, Take take) {
  LineReader lines(text);
  while (!text.empty()) {
    const size_t most = std::min(text.size(), LineReader::kLineSize - 1);
    const std::string_view line = text.substr(0, std::min(text.find('\n'), most - 1) + 1);
    require(lines.next() == line);
    if (line.size() % 2 == 0) {
      char* const terminated = lines.c_str();
      require(line == std::string_view(terminated, line.size()) && terminated[line.size()] == '\0');
      memset(terminated, 'x', line.size());  // it is the caller's, and the next line's is not
    }
    text.remove_prefix(line.size());
    take(line);
  }
  require(lines.next().empty());
}

// Whether a file says anything under a key, which alone may change what is kept of it.
inline bool may_change(std::string_view text, std::string_view key, bool changed) {
  return !changed || text.find(key) != text.npos;
}

#endif  // FUZZ_TARGET_H_
