#include "host/common/escape.h"

#include <algorithm>
#include <cstddef>

namespace host {
namespace {

// The length of the well-formed UTF-8 character at the front of `text`, and its code point; 0 when
// there is none (RFC 3629: nothing overlong, no surrogates, nothing past U+10FFFF).
size_t decode(std::string_view text, char32_t* point) {
  static constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) {
    *point = lead;
    return 1;
  }
  const size_t length = lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : 0;
  if (length == 0 || text.size() < length) {
    return 0;
  }
  *point = lead & (0x7Fu >> length);
  for (const char c : text.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) {
      return 0;
    }
    *point = *point << 6 | (byte & 0x3F);
  }
  const bool surrogate = *point >= 0xD800 && *point <= 0xDFFF;
  return *point < kLeast[length] || *point > 0x10FFFF || surrogate ? 0 : length;
}

bool is_printable(char32_t point) {
  return point >= 0x20 && !(point >= 0x7F && point <= 0x9F) && point != 0x200E && point != 0x200F &&
         !(point >= 0x2028 && point <= 0x202E) && !(point >= 0x2066 && point <= 0x2069);
}

void append_hex(std::string_view bytes, std::string* out) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    *out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
  }
}

void append_printable(std::string_view text, std::string* out) {
  while (!text.empty()) {
    char32_t point = 0;
    const size_t length = decode(text, &point);
    const std::string_view bytes = text.substr(0, length == 0 ? 1 : length);
    text.remove_prefix(bytes.size());
    if (length != 0 && is_printable(point)) {
      *out += bytes;
    } else {
      append_hex(bytes, out);
    }
  }
}

}  // namespace

std::string escape_text(std::string_view text) {
  std::string out;
  for (size_t end = 0; (end = text.find('\\')) != text.npos; text.remove_prefix(end + 1)) {
    append_printable(text.substr(0, end), &out);
    out += "\\\\";
  }
  append_printable(text, &out);
  return out;
}

std::string quote_text(std::string_view text) {
  std::string out = "\"";
  for (const char c : escape_text(text)) {
    out += c == '"' ? "\\x22" : std::string(1, c);
  }
  return out + "\"";
}

std::string log_text_for_terminal(std::string_view text) {
  const size_t head = text.starts_with('\t') ? 1 : 0;
  const size_t tail = std::max(text.find_last_not_of('\n') + 1, head);
  std::string out(text.substr(0, head));
  append_printable(text.substr(head, tail - head), &out);
  out += text.substr(tail);
  return out;
}

std::string log_text_for_pipe(std::string_view text) {
  const size_t tail = text.find_last_not_of('\n') + 1;
  std::string out;
  for (const char& c : text.substr(0, tail)) {
    if (c == '\r' || c == '\n') {
      append_hex({&c, 1}, &out);
    } else {
      out += c;
    }
  }
  out += text.substr(tail);
  return out;
}

}  // namespace host
