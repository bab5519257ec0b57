#include "host/text_pattern.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>

namespace host {
namespace {

using Fields = std::vector<nlohmann::ordered_json>;

constexpr std::string_view kDigits = "0123456789";

std::string_view without_leading_blanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

bool skip(std::string_view* text, std::string_view literal) {
  const bool there = text->starts_with(literal);
  text->remove_prefix(there ? literal.size() : 0);
  return there;
}

bool take_number(std::string_view* text, Fields* fields) {
  *text = without_leading_blanks(*text);
  int64_t number = 0;
  const auto [stop, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  text->remove_prefix(static_cast<size_t>(stop - text->data()));
  fields->push_back(number);
  return error == std::errc();
}

// Takes `pattern`, which has no text field, off the front of `*text`.
bool take(std::string_view* text, std::string_view pattern, Fields* fields) {
  for (size_t mark = 0; (mark = pattern.find("%d")) != pattern.npos;
       pattern.remove_prefix(mark + 2)) {
    // The blanks before a number are its padding as well as the pattern's.
    const std::string_view literal = pattern.substr(0, mark);
    if (!skip(text, literal.substr(0, literal.find_last_not_of(' ') + 1)) ||
        !take_number(text, fields)) {
      return false;
    }
  }
  return skip(text, pattern);
}

// Where "%s" or "%16s" begins in `pattern`, and its end; npos if there is none.
size_t find_text_field(std::string_view pattern, size_t* end) {
  for (size_t mark = 0; (mark = pattern.find('%', mark)) != pattern.npos; ++mark) {
    *end = pattern.find_first_not_of(kDigits, mark + 1);
    if (*end != pattern.npos && pattern[(*end)++] == 's') {
      return mark;
    }
  }
  return pattern.npos;
}

std::string_view without_padding(std::string_view text, std::string_view field) {
  size_t width = 0;
  std::from_chars(field.data() + 1, field.data() + field.size(), width);
  return text.size() == width ? without_leading_blanks(text) : text;
}

}  // namespace

bool match_pattern(std::string_view text, std::string_view pattern, Fields* fields) {
  size_t field_end = 0;
  const size_t mark = find_text_field(pattern, &field_end);
  Fields found;
  if (!take(&text, pattern.substr(0, mark), &found)) {
    return false;
  }
  if (mark == pattern.npos) {
    fields->insert(fields->end(), found.begin(), text.empty() ? found.end() : found.begin());
    return text.empty();
  }
  const std::string_view behind = pattern.substr(field_end);
  const std::string_view first = behind.substr(0, behind.find('%'));
  for (size_t end = text.rfind(first); end != text.npos;
       end = end == 0 ? text.npos : text.rfind(first, end - 1)) {
    std::string_view rest = text.substr(end);
    Fields tail;
    if (take(&rest, behind, &tail) && rest.empty()) {
      const std::string_view field = pattern.substr(mark, field_end - mark);
      found.emplace_back(std::string(without_padding(text.substr(0, end), field)));
      found.insert(found.end(), tail.begin(), tail.end());
      fields->insert(fields->end(), found.begin(), found.end());
      return true;
    }
  }
  return false;
}

}  // namespace host
