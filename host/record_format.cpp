#include "host/record_format.h"

#include <time.h>

#include <cstddef>
#include <cstdio>
#include <nlohmann/json.hpp>

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

std::string iso_time(std::chrono::system_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - seconds);
  const time_t clock = std::chrono::system_clock::to_time_t(seconds);
  tm parts = {};
  ::gmtime_r(&clock, &parts);
  char date[32];
  char milliseconds[8];
  ::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(milliseconds, sizeof(milliseconds), ".%03uZ", static_cast<unsigned>(rest.count()));
  return std::string(date) + milliseconds;
}

}  // namespace

std::string escape_text(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  while (!text.empty()) {
    char32_t point = 0;
    const size_t length = decode(text, &point);
    const std::string_view bytes = text.substr(0, length == 0 ? 1 : length);
    text.remove_prefix(bytes.size());
    if (bytes == "\\") {
      out += "\\\\";
    } else if (length != 0 && is_printable(point)) {
      out += bytes;
    } else {
      for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
      }
    }
  }
  return out;
}

std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival) {
  const nlohmann::ordered_json object = {
      {"time", iso_time(arrival)}, {"pid", record.pid},        {"value", record.value},
      {"event", record.event},     {"name", record.name},      {"detail", record.detail},
      {"sender_uid", sender.uid},  {"sender_pid", sender.pid},
  };
  return object.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace host
