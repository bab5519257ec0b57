// Which processes the watch prints something about. What it sends, feeds, records and learns stays
// whole.
#ifndef HOST_WATCH_PRINT_FILTER_H_
#define HOST_WATCH_PRINT_FILTER_H_

#include <sys/types.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct FilterOptions {
  std::vector<std::string> ignored{};  // patterns of names (fnmatch(3))
  std::optional<uid_t> only_user{};
  uint32_t min_age = 0;  // seconds
  bool no_rankings = false;
};

// Adds the options to `command`.
void add_filter_options(CLI::App& command, FilterOptions* options);

class PrintFilter {
 public:
  // Looks for processes below `proc_root`.
  explicit PrintFilter(FilterOptions options, std::string proc_root = "/proc");

  // A process. What is 0 is unknown.
  struct Process {
    std::string_view name{};  // with "#pid" or without
    uint32_t pid = 0;
    uint64_t start_time = 0;  // in clock ticks after boot
  };

  // Whether anything can be left out.
  bool is_set() const;
  // Whether to print what is about `process`. One whose age is unknown is old enough. One whose
  // user is unknown, such as one that has ended, is not that of only_user. Any thread.
  bool shows(const Process& process) const;
  bool shows_rankings() const { return !options_.no_rankings; }

 private:
  const FilterOptions options_;
  const std::string proc_root_;
};

}  // namespace host

#endif  // HOST_WATCH_PRINT_FILTER_H_
