// The stat file of a process or a thread (proc_pid_stat(5)), and the names of threads. Pure.
#ifndef HOST_EXPLAIN_PROCESS_STAT_H_
#define HOST_EXPLAIN_PROCESS_STAT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

struct ProcessStat {
  std::string name{};  // any bytes, brackets too
  int32_t parent = 0;
  uint64_t start = 0;  // in clock ticks after boot
};

// Nothing where `text` is not such a file.
std::optional<ProcessStat> parse_process_stat(std::string_view text);

// The family of a thread: its name with "*" for the number at its end, "worker-*" of "worker-12".
// A thread that is called as the first thread, `first`, keeps its name, so that python3 is that.
// (The library's families, thread_family.h, are those of Android, which this rule covers.)
std::string thread_family_of(std::string_view name, std::string_view first);

}  // namespace host

#endif  // HOST_EXPLAIN_PROCESS_STAT_H_
