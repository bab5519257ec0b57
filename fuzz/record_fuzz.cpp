// A record as it arrives, taken apart, put together again, and shown.
#include "host/common/record.h"

#include <nlohmann/json.hpp>

#include "host/common/escape.h"
#include "host/common/record_format.h"
#include "target.h"

// The bytes that `shown` stands for, which must not drive a terminal.
static std::string unescaped(std::string_view shown) {
  std::string text;
  while (!shown.empty()) {
    const auto byte = static_cast<unsigned char>(shown[0]);
    require(byte >= 0x20 && byte != 0x7F);
    const bool escape = byte == '\\';
    const bool hex = escape && shown[1] == 'x';
    text += hex ? static_cast<char>(std::stoi(std::string(shown.substr(2, 2)), nullptr, 16))
                : shown[escape];
    shown.remove_prefix(hex ? 4 : escape ? 2 : 1);
  }
  return text;
}

void fuzz(std::string_view text) {
  require(unescaped(host::escape_text(text)) == text);
  std::string_view why;
  const auto record = host::parse_record(text, &why);
  if (!record) {
    require(why.starts_with("it"));
    return;
  }
  require(record->event.size() <= host::kEventMax && record->name.size() <= host::kNameMax &&
          record->detail.size() <= host::kDetailMax);
  const std::string tail = "@@" + record->event + "@@" + record->name + "@@" + record->detail;
  require(text.ends_with(tail));
  const std::string again =
      std::to_string(record->pid) + "@@" + std::to_string(record->value) + tail;
  const auto same = host::parse_record(again, &why);
  require(same && same->name == record->name && same->detail == record->detail);

  const std::string json = host::record_json(*record, {}, {});
  require(std::all_of(json.begin(), json.end(), [](char c) { return c >= 0x20 && c < 0x7F; }));
  const auto object = nlohmann::json::parse(json);
  require(object.size() == 8 && object["pid"] == record->pid && object["event"] == record->event);
}
