// The names of two inventories, one a line, the second from the first empty line on: each as a
// thread's and as what a descriptor's link points to.
#include "inspect/open_files.h"
#include "inspect/threads.h"
#include "target.h"

// Only what begins with one of `prefixes` goes by another name, which is in angle brackets.
static void require_folded(std::string_view name, std::string_view family,
                           std::initializer_list<std::string_view> prefixes) {
  const bool folded = std::any_of(prefixes.begin(), prefixes.end(),
                                  [&](auto prefix) { return name.starts_with(prefix); });
  require(folded ? family.starts_with('<') && family.ends_with('>') : family == name);
}

void fuzz(std::string_view text) {
  StringCounter counters[2];
  int32_t names[2] = {};
  size_t inventory = 0;
  each_line(text, [&](std::string_view name) {
    inventory = name == "\n" ? 1 : inventory;
    const std::string_view families[] = {tw_thread_family(name), tw_open_file_kind(name)};
    require_folded(name, families[0], {"Binder:", "HwBinder:", "Thread-", "POSIX timer"});
    require_folded(name, families[1], {"socket:", "pipe:", "/dev/ashmem"});
    for (const std::string_view family : families) counters[inventory].add(family);
    names[inventory] += 2;
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
