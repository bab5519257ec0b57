// Walks over the fields of a line of a regular form, as the kernel prints it. A step that finds
// anything else fails, and the caller falls back on the scan format that the line is meant for.
#ifndef INSPECT_FIELD_WALKER_H_
#define INSPECT_FIELD_WALKER_H_

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

class FieldWalker {
 public:
  // Whether `line` can be walked: it has to end in a line feed, where every step stops, as it does
  // at one within and at a NUL.
  static bool can_walk(std::string_view line) { return line.ends_with('\n'); }
  explicit FieldWalker(std::string_view line) : at_(line.data()), end_(line.data() + line.size()) {}

  // Whether nothing but the line feed is left.
  bool at_end() const { return at_ + 1 == end_; }

  // 1 to `most_digits` hexadecimal digits, then `separator`, which is passed.
  template <typename Number>
  bool hex(Number* number, int most_digits, char separator) {
    Number value = 0;
    const char* const start = at_;
    for (uint8_t digit; (digit = class_of(*at_)) < 16; ++at_) {
      value = static_cast<Number>(value << 4 | digit);
    }
    *number = value;
    return at_ != start && at_ - start <= most_digits && *at_ == separator && (++at_, true);
  }

  // The same for a number of up to 16 digits that is mostly printed with 12, as addresses are, or
  // with 8.
  bool wide_hex(uint64_t* number, char separator) {
    const auto left = end_ - at_;
    uint64_t high;
    if (left > 12 && at_[12] == separator && hex8(at_, &high) && hex8(at_ + 4, number)) {
      *number |= high << 16;
      at_ += 13;
      return true;
    }
    if (left > 8 && at_[8] == separator && hex8(at_, number)) {
      at_ += 9;
      return true;
    }
    return hex(number, 16, separator);
  }

  // Blanks, then 1 to 18 decimal digits up to a blank or a stop. What does not fit `number` is cut
  // to its low bits, as the C library's scan formats do after a 64-bit conversion.
  template <typename Number>
  bool decimal(Number* number) {
    skip_blanks();
    uint64_t value = 0;
    const char* const start = at_;
    for (uint8_t digit; (digit = class_of(*at_)) < 10 && at_ - start <= 18; ++at_) {
      value = value * 10 + digit;
    }
    *number = static_cast<Number>(value);
    return at_ != start && at_ - start <= 18 && class_of(*at_) >= kBlank;
  }

  // Blanks, then the word up to the next; empty at a stop.
  std::string_view word() {
    skip_blanks();
    const char* const start = at_;
    while (end_ - at_ > 8 && !any_blank8(at_)) {
      at_ += 8;
    }
    while (class_of(*at_) < kBlank) {
      ++at_;
    }
    return {start, static_cast<size_t>(at_ - start)};
  }

  // Passes exactly `text` if it stands here.
  bool skip(std::string_view text) {
    const bool here = std::string_view(at_, static_cast<size_t>(end_ - at_)).starts_with(text);
    at_ += here ? text.size() : 0;
    return here;
  }

  // Exactly one blank, which is passed.
  bool blank() { return class_of(*at_) == kBlank && (++at_, true); }

 private:
  // What a byte is: the value of a hexadecimal digit (0 to 15), or one of these.
  static constexpr uint8_t kOther = 16;
  static constexpr uint8_t kBlank = 17;  // what isspace() takes in the C locale, but the line feed
  static constexpr uint8_t kStop = 18;
  static constexpr std::array<uint8_t, 256> kClasses = [] {
    std::array<uint8_t, 256> classes;
    classes.fill(kOther);
    for (uint8_t i = 0; i < 16; ++i) {
      classes[static_cast<uint8_t>("0123456789abcdef"[i])] = i;
      classes[static_cast<uint8_t>("0123456789ABCDEF"[i])] = i;
    }
    for (const char blank : {' ', '\t', '\v', '\f', '\r'}) {
      classes[static_cast<uint8_t>(blank)] = kBlank;
    }
    classes['\n'] = kStop;
    classes['\0'] = kStop;
    return classes;
  }();
  static uint8_t class_of(char c) { return kClasses[static_cast<uint8_t>(c)]; }

  static constexpr uint64_t kOnes = 0x0101010101010101;  // times a byte: that byte eight times

  // Whether any of eight bytes is a blank, a stop or another control character: one below '!'
  // borrows from its own highest bit.
  static bool any_blank8(const char* text) {
    uint64_t bytes;
    memcpy(&bytes, text, sizeof(bytes));
    return ((bytes - kOnes * '!') & ~bytes & kOnes * 0x80) != 0;
  }

  // Eight digits at once, each in a byte of one word; false for anything but 0 to 9 and a to f.
  static bool hex8(const char* text, uint64_t* number) {
    uint64_t bytes;
    memcpy(&bytes, text, sizeof(bytes));
    if constexpr (std::endian::native == std::endian::little) {
      bytes = __builtin_bswap64(bytes);
    }
    const uint64_t digits = (bytes & kOnes * 0x0f) + (bytes >> 6 & kOnes) * 9;
    // Only a digit gives the text back that it was made of; letters behind f give more than 15.
    const uint64_t letters = (digits + kOnes * 6) >> 4 & kOnes;
    if ((digits & kOnes * 0x10) != 0 ||
        digits + kOnes * '0' + letters * ('a' - '0' - 10) != bytes) {
      return false;
    }
    uint64_t value = (digits | digits >> 4) & 0x00ff00ff00ff00ff;
    value = (value | value >> 8) & 0x0000ffff0000ffff;
    *number = (value | value >> 16) & 0xffffffff;
    return true;
  }
  void skip_blanks() {
    while (class_of(*at_) == kBlank) {
      ++at_;
    }
  }

  const char* at_;
  const char* end_;
};

#endif  // INSPECT_FIELD_WALKER_H_
