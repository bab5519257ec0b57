// Bytes that are known again when they come back: a mark of whose they are, the version of what is
// in them, their length and a checksum before them.
#ifndef JUDGE_SEALED_H_
#define JUDGE_SEALED_H_

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace judge {

// `content` behind a seal.
std::string seal(uint32_t version, std::string_view content);
// Whether the bytes begin as seal() begins them, of whatever version.
bool is_sealed(std::string_view bytes);
// Takes the content out of `sealed`, whose bytes it stays in. Returns null, or why they are not
// what seal() gave for this version.
const char* unseal(uint32_t version, std::string_view sealed, std::string_view* content);

// The unsigned number that has the bits of a value.
template <typename T>
auto bits_of(T value) {
  if constexpr (std::is_same_v<T, double>) {
    return std::bit_cast<uint64_t>(value);
  } else if constexpr (std::is_same_v<T, float>) {
    return std::bit_cast<uint32_t>(value);
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<std::make_unsigned_t<std::underlying_type_t<T>>>(value);
  } else if constexpr (std::is_same_v<T, bool>) {
    return static_cast<uint8_t>(value);
  } else {
    return static_cast<std::make_unsigned_t<T>>(value);
  }
}

// Writes values one behind another: numbers with the lowest byte first, strings behind their
// length.
class Writer {
 public:
  explicit Writer(std::string* bytes) : bytes_(bytes) {}

  template <typename T>
  void operator()(const T& value) {
    auto bits = bits_of(value);
    for (size_t i = 0; i < sizeof bits; ++i) {
      bytes_->push_back(static_cast<char>(static_cast<uint64_t>(bits) >> 8 * i & 0xFF));
    }
  }
  template <typename T, size_t kSize>
  void operator()(const T (&values)[kSize]) {
    for (const T& value : values) {
      (*this)(value);
    }
  }
  void operator()(std::string_view text) {
    (*this)(static_cast<uint32_t>(text.size()));
    bytes_->append(text);
  }
  void operator()(const std::string& text) { (*this)(std::string_view(text)); }

 private:
  std::string* bytes_;
};

// Reads what a Writer wrote, in the same order. Past the end everything is 0, and failed() is true.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : left_(bytes) {}

  template <typename T>
  void operator()(T& value) {
    decltype(bits_of(value)) bits = 0;
    if (left_.size() < sizeof bits) {
      fail();
    } else {
      uint64_t sum = 0;
      for (size_t i = 0; i < sizeof bits; ++i) {
        sum |= uint64_t{static_cast<uint8_t>(left_[i])} << 8 * i;
      }
      bits = static_cast<decltype(bits)>(sum);
      left_.remove_prefix(sizeof bits);
    }
    if constexpr (std::is_floating_point_v<T>) {
      value = std::bit_cast<T>(bits);
    } else {
      value = static_cast<T>(bits);
      if (bits_of(value) != bits) {
        fail();
      }
    }
  }
  template <typename T, size_t kSize>
  void operator()(T (&values)[kSize]) {
    for (T& value : values) {
      (*this)(value);
    }
  }
  void operator()(std::string& text) {
    uint32_t size = 0;
    (*this)(size);
    if (size > left_.size()) {
      fail();
      size = 0;
    }
    text.assign(left_, 0, size);
    left_.remove_prefix(size);
  }

  bool at_end() const { return left_.empty(); }
  bool failed() const { return failed_; }

 private:
  void fail() {
    failed_ = true;
    left_ = {};
  }

  std::string_view left_;
  bool failed_ = false;
};

}  // namespace judge

#endif  // JUDGE_SEALED_H_
