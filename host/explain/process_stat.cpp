#include "host/explain/process_stat.h"

#include "host/common/words.h"

namespace host {

std::optional<ProcessStat> parse_process_stat(std::string_view text) {
  constexpr int kParent = 4;
  constexpr int kStart = 22;
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');
  if (open == text.npos || close == text.npos || close < open) {
    return std::nullopt;
  }
  ProcessStat stat{.name = std::string(text.substr(open + 1, close - open - 1))};
  text.remove_prefix(close + 1);
  for (int field = 3; field <= kStart; ++field) {
    const std::string_view word = take_word(&text);
    const bool good = field == kParent  ? parse_number(word, &stat.parent)
                      : field == kStart ? parse_number(word, &stat.start)
                                        : !word.empty();
    if (!good) {
      return std::nullopt;
    }
  }
  return stat;
}

std::string thread_family_of(std::string_view name, std::string_view first) {
  const size_t end = name.find_last_not_of("0123456789") + 1;
  return name == first || end == name.size() ? std::string(name)
                                             : std::string(name.substr(0, end)) + "*";
}

}  // namespace host
