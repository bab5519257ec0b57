// Whether the cycle waits for one file of one process: from what the library says of its progress,
// without a clock of its own.
#ifndef HOST_WATCH_HOLD_DETECTOR_H_
#define HOST_WATCH_HOLD_DETECTOR_H_

#include <cstdint>

#include "taskwarden/taskwarden.h"

namespace host {

class HoldDetector {
 public:
  // A file that was read for so long holds the cycle up,
  static constexpr int64_t kHoldMs = 10'000;
  // and once more after so long.
  static constexpr int64_t kAgainMs = 60'000;
  // Who asked last longer ago was asleep itself, with the cycle: the program or the machine was
  // stopped.
  static constexpr int64_t kAwakeMs = 2'000;

  // To be asked about once a second, `now_ms` being in ms of CLOCK_MONOTONIC. True when a hold has
  // lasted for kHoldMs of the time in which somebody asked. A long pass, a rest and a pause are
  // none.
  bool is_held(const taskwarden_progress& progress, int64_t now_ms);

 private:
  taskwarden_progress seen_ = {};
  int64_t asked_ms_ = 0;
  int64_t held_ms_ = 0;
};

// The file as it is called in the directory of a process, or the whole system's.
const char* file_name(int reads);

// Whether it comes from the memory of the process, and is left alone when that is spared.
bool is_memory_file(int reads);

}  // namespace host

#endif  // HOST_WATCH_HOLD_DETECTOR_H_
