// Walks over the fields of a line of a regular form, as the kernel prints it. A step that finds
// anything else fails, and the caller falls back on the scan format that the line is meant for.
#ifndef INSPECT_FIELD_WALKER_H_
#define INSPECT_FIELD_WALKER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

class FieldWalker {
 public:
  explicit FieldWalker(const char* line) : at_(line) {}

  // 1 to `most_digits` hexadecimal digits, then `separator`, which is passed.
  template <typename Number>
  bool hex(Number* number, int most_digits, char separator) {
    Number value = 0;
    int digits = 0;
    for (int digit; (digit = hex_digit(*at_)) >= 0; ++at_, ++digits) {
      value = static_cast<Number>(value << 4 | static_cast<Number>(digit));
    }
    *number = value;
    return digits >= 1 && digits <= most_digits && *at_ == separator && (++at_, true);
  }

  // Blanks, then 1 to 18 decimal digits up to a blank or the end. What does not fit `number` is cut
  // to its low bits, as the C library's scan formats do after a 64-bit conversion.
  template <typename Number>
  bool decimal(Number* number) {
    skip_blanks();
    uint64_t value = 0;
    int digits = 0;
    for (; *at_ >= '0' && *at_ <= '9' && digits <= 18; ++at_, ++digits) {
      value = value * 10 + static_cast<uint64_t>(*at_ - '0');
    }
    *number = static_cast<Number>(value);
    return digits >= 1 && digits <= 18 && (is_blank(*at_) || *at_ == '\0');
  }

  // Blanks, then the word up to the next; empty at the end of the line.
  std::string_view word() {
    skip_blanks();
    const char* start = at_;
    while (*at_ != '\0' && !is_blank(*at_)) {
      ++at_;
    }
    return {start, static_cast<size_t>(at_ - start)};
  }

  // Exactly one blank, which is passed.
  bool blank() { return is_blank(*at_) && (++at_, true); }

 private:
  static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
  static int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
      return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
  }
  void skip_blanks() {
    while (is_blank(*at_)) {
      ++at_;
    }
  }

  const char* at_;
};

// Copies `text` into `field`, cut at its size less the terminator.
template <size_t N>
void copy_cut(char (&field)[N], std::string_view text) {
  const size_t length = std::min(text.size(), N - 1);
  memcpy(field, text.data(), length);
  field[length] = '\0';
}

#endif  // INSPECT_FIELD_WALKER_H_
