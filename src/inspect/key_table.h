// Lines "Key:   value unit" of process files: which of them a reader knows, and what they hold.
#ifndef INSPECT_KEY_TABLE_H_
#define INSPECT_KEY_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "inspect/line_reader.h"
#include "inspect/parse_pair.h"

// The lines that a reader knows, a Row each. A Row has a `prefix`, the bytes that such a line
// begins with; the first that matches decides.
template <typename Row, size_t N>
class KeyTable {
 public:
  constexpr explicit KeyTable(const Row (&rows)[N]) : rows_(rows) {
    for (const Row& row : rows) {
      initials_ |= bit_of(row.prefix[0]);
    }
  }

  // The row of `line`, which is not empty; null for any other line.
  const Row* find(std::string_view line) const {
    // Most lines are others, and their first byte tells.
    if ((initials_ & bit_of(line[0])) == 0) {
      return nullptr;
    }
    for (const Row& row : rows_) {
      if (line.starts_with(row.prefix)) {
        return &row;
      }
    }
    return nullptr;
  }

 private:
  static constexpr uint64_t bit_of(char c) { return uint64_t{1} << (static_cast<uint8_t>(c) % 64); }

  const Row (&rows_)[N];
  uint64_t initials_ = 0;
};

// The value of the line that `lines` handed out last, up to its first blank; null, with the line
// logged, where it has none. Valid until the next line.
inline const char* value_of(LineReader& lines) {
  char* const line = lines.c_str();
  const int position = parse_pair(line);
  return position >= 0 ? line + position : nullptr;
}

#endif  // INSPECT_KEY_TABLE_H_
