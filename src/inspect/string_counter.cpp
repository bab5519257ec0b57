#include "inspect/string_counter.h"

StringCounter StringCounter_diff(StringCounter* previous, StringCounter* current) {
  StringCounter grown;
  for (const auto& [name, count] : *current) {
    const auto before = previous->find(name);
    const int32_t old = before != previous->end() ? before->second : 0;
    // Wraps at 32 bits: a host's counts may be anything.
    const auto delta =
        static_cast<int32_t>(static_cast<uint32_t>(count) - static_cast<uint32_t>(old));
    if (delta >= 1) {
      grown.emplace_hint(grown.end(), name, delta);
    }
  }
  return grown;
}
