#include "host/common/record.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace host {
namespace {

constexpr std::string_view kSeparator = "@@";
// The length at which a watchdog cuts the names of its processes.
constexpr size_t kNameCut = 63;

bool parse_number(std::string_view text, int32_t* number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *number);
  return error == std::errc() && stop == end;
}

bool is_event(std::string_view text) {
  return !text.empty() && text.size() <= kEventMax &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                  c == '_';
         });
}

// Whether `name` ends as a watchdog makes it: in `tail`, of which a name cut short may lack digits.
bool is_own_name(std::string_view name, std::string_view tail) {
  if (name.ends_with(tail)) {
    return true;
  }
  const size_t hash = name.rfind('#');
  return name.size() == kNameCut && hash != name.npos && tail.starts_with(name.substr(hash));
}

// Where the name ends in `text`, "name@@detail"; npos when no end keeps both within their limits.
// The detail is taken to be empty where that can be, since senders leave it so.
size_t find_name_end(std::string_view text, int32_t pid) {
  const std::string tail = '#' + std::to_string(pid);
  const auto fits = [text](size_t end) {
    return end <= kNameMax && text.size() - end - kSeparator.size() <= kDetailMax;
  };
  const size_t last =
      text.ends_with(kSeparator) ? text.size() - kSeparator.size() : std::string_view::npos;
  if (fits(last) && is_own_name(text.substr(0, last), tail)) {
    return last;
  }
  const size_t first = text.find(kSeparator);
  for (size_t end = first; end <= kNameMax; end = text.find(kSeparator, end + 1)) {
    if (fits(end) && is_own_name(text.substr(0, end), tail)) {
      return end;
    }
  }
  if (fits(last)) {
    return last;
  }
  return fits(first) ? first : std::string_view::npos;
}

}  // namespace

std::optional<Record> parse_record(std::string_view text, std::string_view* why) {
  if (text.size() > kRecordMax) {
    *why = "it is longer than 8191 bytes";
    return std::nullopt;
  }
  std::array<std::string_view, 3> fields;
  for (std::string_view& field : fields) {
    const size_t end = text.find(kSeparator);
    if (end == text.npos) {
      *why = "it has fewer than five fields";
      return std::nullopt;
    }
    field = text.substr(0, end);
    text.remove_prefix(end + kSeparator.size());
  }
  Record record;
  if (!parse_number(fields[0], &record.pid)) {
    *why = "its pid is not a number of 32 bits";
  } else if (!parse_number(fields[1], &record.value)) {
    *why = "its value is not a number of 32 bits";
  } else if (!is_event(fields[2])) {
    *why = "its event is not a name of 1 to 29 letters, digits and underscores";
  } else if (text.find(kSeparator) == text.npos) {
    *why = "it has fewer than five fields";
  } else if (const size_t end = find_name_end(text, record.pid); end == text.npos) {
    *why = "its name or its detail is too long";
  } else {
    record.event = fields[2];
    record.name = text.substr(0, end);
    record.detail = text.substr(end + kSeparator.size());
    return record;
  }
  return std::nullopt;
}

}  // namespace host
