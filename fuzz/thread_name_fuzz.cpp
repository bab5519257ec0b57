// The threads' names of two inventories, one a line, the second from the first empty line on.
#include "inspect/threads.h"
#include "target.h"

void fuzz(std::string_view text) {
  StringCounter counters[2];
  int32_t names[2] = {};
  size_t inventory = 0;
  each_line(text, [&](std::string_view name) {
    inventory = name == "\n" ? 1 : inventory;
    const std::string_view family = tw_thread_family(name);
    const bool folded = name.starts_with("Binder:") || name.starts_with("HwBinder:") ||
                        name.starts_with("Thread-") || name.starts_with("POSIX timer");
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
