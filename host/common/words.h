// Taking the texts of the process file system apart: words between blanks, numbers, lines. What is
// not as it should be is empty or 0.
#ifndef HOST_COMMON_WORDS_H_
#define HOST_COMMON_WORDS_H_

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace host {

// Amounts are at most this, so that sums of two of them fit.
inline constexpr int64_t kAmountMost = INT64_C(1) << 60;

inline int64_t sum_of(int64_t a, int64_t b) {
  return std::min(a + b, kAmountMost);
}

// Takes what stands before `end` off the front of `text`, and `end` with it.
inline std::string_view take_until(std::string_view* text, char end) {
  const std::string_view part = text->substr(0, text->find(end));
  text->remove_prefix(std::min(part.size() + 1, text->size()));
  return part;
}

// Takes the next word off `text`: words have blanks or tabs between them. Empty at the end.
inline std::string_view take_word(std::string_view* text) {
  constexpr char kBlank[] = " \t";
  text->remove_prefix(std::min(text->find_first_not_of(kBlank), text->size()));
  const std::string_view word = text->substr(0, text->find_first_of(kBlank));
  text->remove_prefix(word.size());
  return word;
}

// The number that `word` is, all of it; false otherwise and where it does not fit.
template <typename Number>
bool parse_number(std::string_view word, Number* number, int base = 10) {
  const char* const end = word.data() + word.size();
  Number found = 0;
  const auto result = std::from_chars(word.data(), end, found, base);
  if (result.ec != std::errc() || result.ptr != end) {
    return false;
  }
  *number = found;
  return true;
}

// The next word as an amount, from 0 to kAmountMost.
inline int64_t take_amount(std::string_view* text) {
  int64_t amount = 0;
  parse_number(take_word(text), &amount);
  return std::clamp<int64_t>(amount, 0, kAmountMost);
}

// Calls `take` with each line of `text`, without its line feed.
template <typename Take>
void each_line_of(std::string_view text, Take take) {
  while (!text.empty()) {
    take(take_until(&text, '\n'));
  }
}

// What follows `key` in the first line of `text` that begins with it; nothing where none does.
inline std::optional<std::string_view> rest_of_line(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::string_view line = take_until(&text, '\n');
    if (line.starts_with(key)) {
      return line.substr(key.size());
    }
  }
  return std::nullopt;
}

// The first word of that; empty where there is none.
inline std::string_view word_after(std::string_view text, std::string_view key) {
  std::string_view rest = rest_of_line(text, key).value_or(std::string_view());
  return take_word(&rest);
}

}  // namespace host

#endif  // HOST_COMMON_WORDS_H_
