// Texts in fields of fixed size: always terminated, and cut where they would not fit.
#ifndef PLATFORM_TEXT_FIELD_H_
#define PLATFORM_TEXT_FIELD_H_

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>

// Puts `text` into `field` from the byte `at` on (below N); returns where its terminator stands.
template <size_t N>
size_t append_cut(char (&field)[N], size_t at, std::string_view text) {
  const size_t length = std::min(text.size(), N - 1 - at);
  memcpy(field + at, text.data(), length);
  field[at + length] = '\0';
  return at + length;
}

// The same with a number in decimal.
template <size_t N>
size_t append_cut(char (&field)[N], size_t at, unsigned number) {
  char digits[16];
  const char* const end = std::to_chars(digits, std::end(digits), number).ptr;
  return append_cut(field, at, {digits, static_cast<size_t>(end - digits)});
}

template <size_t N>
void copy_cut(char (&field)[N], std::string_view text) {
  append_cut(field, 0, text);
}

#endif  // PLATFORM_TEXT_FIELD_H_
