#include "host/inspect/document.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "host/common/escape.h"

namespace host {
namespace {

using Rows = std::vector<std::vector<std::string>>;

bool is_table(const Json& value) {
  return value.is_array() && !value.empty();
}

std::string label(std::string key) {
  std::replace(key.begin(), key.end(), '_', ' ');
  return key.ends_with(" kb") ? key.replace(key.size() - 1, 1, "B") : key;
}

std::string shown(const Json& value) {
  if (value.empty()) {
    return "none";
  }
  return value.is_string() ? escape_text(value.get_ref<const std::string&>()) : value.dump();
}

// All columns but the last, which may hold names of any length, are as wide as their widest cell. A
// table of numbers is indented, and they stand to the right.
std::string aligned(const Rows& rows, bool numbers) {
  std::vector<size_t> widths(rows.empty() ? 0 : rows[0].size());
  for (const auto& row : rows) {
    for (size_t i = 0; i + 1 < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string text;
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string space(widths[i] - std::min(widths[i], row[i].size()), ' ');
      text += (numbers || i > 0 ? "  " : "") + (numbers ? space + row[i] : row[i] + space);
    }
    text += '\n';
  }
  return text;
}

// Whether it has numbers, and all are 0.
bool is_zero(const Json& object) {
  bool any = false;
  for (const Json& value : object) {
    any |= value.is_number();
    if (value.is_number() && value != 0) {
      return false;
    }
  }
  return any;
}

std::string table(const Json& list, bool zeros) {
  Rows rows(1);
  for (const auto& member : list[0].items()) {
    rows[0].push_back(label(member.key()));
  }
  for (const Json& object : list) {
    if (!zeros && is_zero(object)) {
      continue;
    }
    auto& row = rows.emplace_back();
    for (const Json& value : object) {
      row.push_back(shown(value));
    }
  }
  return aligned(rows, true);
}

}  // namespace

void Document::set(const std::string& key, Json value, const std::string& why) {
  values_[key] = why.empty() || is_table(value) ? std::move(value) : Json();
  if (!why.empty()) {
    reasons_[key] = why;
  }
}

void Document::attach(const std::string& key, Json value, const std::string& title,
                      const std::vector<std::string>& lines, const std::string& why) {
  const bool is_part = !why.empty() && !lines.empty();
  attached_[key] = why.empty() || is_part ? std::move(value) : Json();
  attached_text_ += "\n" + title + "\n";
  for (const std::string& line : lines) {
    attached_text_ += "  " + line + "\n";
  }
  if (!why.empty()) {
    attached_reasons_[key] = why;
    attached_text_ += "  not readable: " + escape_text(why) + "\n";
  }
}

std::string Document::why_nothing() const {
  return reasons_.size() < values_.size() ? "" : reasons_.front().get<std::string>();
}

std::string Document::json(Json given) const {
  given.update(values_);
  given.update(attached_);
  given["unreadable"] = reasons_;
  given["unreadable"].update(attached_reasons_);
  return json_line(given) + "\n";
}

std::string Document::text(bool zeros) const {
  Rows figures;
  std::string tables;
  for (const auto& [key, value] : values_.items()) {
    const std::string why =
        reasons_.contains(key) ? "not readable: " + shown(reasons_.at(key)) : std::string();
    if (is_table(value)) {
      tables +=
          "\n" + label(key) + "\n" + table(value, zeros) + (why.empty() ? "" : "  " + why + "\n");
    } else {
      figures.push_back({label(key), why.empty() ? shown(value) : why});
    }
  }
  return aligned(figures, false) + attached_text_ + tables;
}

}  // namespace host
