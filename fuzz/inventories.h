// The names of two inventories, one a line, the second from the first empty line on.
#ifndef FUZZ_INVENTORIES_H_
#define FUZZ_INVENTORIES_H_

#include "inspect/string_counter.h"
#include "target.h"

// Only what begins with one of `prefixes` is folded: it goes by another name, in angle brackets.
template <typename Fold>
void check_inventories(std::string_view text, Fold fold,
                       std::initializer_list<std::string_view> prefixes) {
  StringCounter counters[2];
  int32_t names[2] = {};
  size_t inventory = 0;
  each_line(text, [&](std::string_view name) {
    inventory = name == "\n" ? 1 : inventory;
    const std::string_view family = fold(name);
    const bool folded = std::any_of(prefixes.begin(), prefixes.end(),
                                    [&](auto prefix) { return name.starts_with(prefix); });
    require(folded ? family.starts_with('<') && family.ends_with('>') : family == name);
    counters[inventory].add(family);
    ++names[inventory];
  });
  const auto& [before, now] = counters;
  const StringCounter grown = StringCounter_diff(&before, &now);
  for (const auto& [name, count] : now) {
    require(grown.count(name) == std::max(0, count - before.count(name)));
    names[1] -= count;
  }
  for (const auto& [name, count] : before) names[0] -= count;
  require(names[0] == 0 && names[1] == 0);
  for (const auto& [name, count] : grown) require(count >= 1 && now.count(name) >= count);
}

#endif  // FUZZ_INVENTORIES_H_
