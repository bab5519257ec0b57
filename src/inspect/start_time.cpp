#include "inspect/start_time.h"

#include <fcntl.h>

#include <charconv>

#include "platform/proc_root.h"
#include "platform/progress.h"
#include "platform/small_file.h"

uint64_t tw_read_start_time(unsigned pid) {
  // The name has at most 64 bytes, and each of the 20 numbers up to the field at most 20.
  const ReadingMark mark(TASKWARDEN_READS_STAT, pid);
  char text[1024];
  const ssize_t length =
      tw_read_small_file(AT_FDCWD, ProcPath(pid, "/stat").c_str(), 0, text, sizeof(text));
  return length > 0 ? tw_parse_start_time({text, static_cast<size_t>(length)}) : 0;
}

uint64_t tw_parse_start_time(std::string_view stat) {
  constexpr int kField = 22;
  constexpr int kName = 2;
  const size_t name_end = stat.rfind(')');
  stat.remove_prefix(name_end != stat.npos ? name_end : stat.size());
  for (int field = kName; field < kField; ++field) {
    const size_t blank = stat.find(' ');
    stat.remove_prefix(blank != stat.npos ? blank + 1 : stat.size());
  }
  uint64_t ticks = 0;
  std::from_chars(stat.data(), stat.data() + stat.size(), ticks);
  return ticks;
}
