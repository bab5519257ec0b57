#include "inspect/string_counter.h"

void StringCounter::add(std::string_view name, int32_t times) {
  auto found = counts_.find(name);
  if (found == counts_.end()) {
    found = counts_.emplace(name, 0).first;
  }
  found->second += times;
}

int32_t StringCounter::count(std::string_view name) const {
  const auto found = counts_.find(name);
  return found != counts_.end() ? found->second : 0;
}

StringCounter StringCounter_diff(const StringCounter* previous, const StringCounter* current) {
  StringCounter grown;
  for (const auto& [name, count] : *current) {
    const int32_t delta = count - previous->count(name);
    if (delta >= 1) {
      grown.add(name, delta);
    }
  }
  return grown;
}
