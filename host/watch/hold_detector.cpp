#include "host/watch/hold_detector.h"

#include <algorithm>

namespace host {

bool HoldDetector::is_held(const taskwarden_progress& progress, int64_t now_ms) {
  const bool goes_on = progress.reads != TASKWARDEN_READS_NOTHING &&
                       progress.reads == seen_.reads && progress.reads_pid == seen_.reads_pid &&
                       progress.reads_since_ms == seen_.reads_since_ms &&
                       progress.steps == seen_.steps;
  held_ms_ = goes_on ? held_ms_ + std::clamp<int64_t>(now_ms - asked_ms_, 0, kAwakeMs) : 0;
  asked_ms_ = now_ms;
  seen_ = progress;
  if (held_ms_ < kHoldMs) {
    return false;
  }
  held_ms_ = kHoldMs - kAgainMs;
  return true;
}

const char* file_name(int reads) {
  switch (reads) {
    case TASKWARDEN_READS_DIRECTORY:
      return "list of processes";
    case TASKWARDEN_READS_MEMINFO:
      return "meminfo";
    case TASKWARDEN_READS_SLABINFO:
      return "slabinfo";
    case TASKWARDEN_READS_STATUS:
      return "status";
    case TASKWARDEN_READS_COMMAND_LINE:
      return "cmdline";
    case TASKWARDEN_READS_OPEN_FILES:
      return "fd";
    case TASKWARDEN_READS_MAPS:
      return "maps";
    case TASKWARDEN_READS_SMAPS:
      return "smaps";
    case TASKWARDEN_READS_THREADS:
      return "task";
    case TASKWARDEN_READS_STAT:
      return "stat";
    default:
      return "file";
  }
}

bool is_memory_file(int reads) {
  return reads == TASKWARDEN_READS_COMMAND_LINE || reads == TASKWARDEN_READS_MAPS ||
         reads == TASKWARDEN_READS_SMAPS;
}

}  // namespace host
