// What the judge needs of the table of processes, copied on the cycle's thread and handed to
// another one. The cycle never waits: while the last copy is in use, it makes none.
#ifndef HOST_WATCH_TABLE_COPY_H_
#define HOST_WATCH_TABLE_COPY_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "taskwarden/observers.h"

namespace host {

// Seconds after boot, suspends included (CLOCK_BOOTTIME).
double seconds_after_boot();

// One process that is no kernel task. -1 for a number that is not known. Without a name it is only
// there: it was not visited yet, or could not be read.
struct SampledProcess {
  int32_t pid = 0;
  int32_t threads = -1;
  int32_t open_files = -1;
  uint32_t name_at = 0;  // in SampledPass::names
  int64_t start = -1;    // clock ticks after boot
  int64_t resident_kb = -1;
  uint32_t name_length = 0;
};

struct SampledPass {
  double time = 0;  // seconds_after_boot()
  uint32_t processes = 0;
  uint32_t duration_ms = 0;  // of the pass, with the rests between its slices
  uint32_t slices = 0;
  uint32_t pass = 0;
  bool whole = false;  // all processes had room
  std::vector<SampledProcess> rows{};
  std::vector<char> names{};

  // Without "#pid".
  std::string_view name(const SampledProcess& row) const {
    return {names.data() + row.name_at, row.name_length};
  }
};

class TableCopy {
 public:
  // Copies at most once in `interval`.
  explicit TableCopy(std::chrono::milliseconds interval);

  // The cycle's thread, inside a table observer. Allocates nothing.
  void offer(const taskwarden_table* table);

  // Waits for the next copy, which stays until release(). One other thread.
  const SampledPass& wait();
  // Lets the cycle copy again, with room for all where the last copy had not.
  void release();

 private:
  void copy(const taskwarden_table* table);

  const double interval_;
  double last_ = -1e9;
  std::atomic<bool> full_{false};
  SampledPass pass_{};  // the cycle's while it is not full, else the other thread's
};

}  // namespace host

#endif  // HOST_WATCH_TABLE_COPY_H_
