// What is kept of one process beside its slot in the table: nothing that an event depends on, but
// what spares the next visit work, and what an observer is told. A note of zeros knows nothing.
#ifndef PROCTABLE_PROCESS_NOTE_H_
#define PROCTABLE_PROCESS_NOTE_H_

#include <cstdint>

// The last listing of a process's descriptor directory, so that it need not be listed at each
// visit.
struct tw_fd_listing {
  uint32_t size;    // the directory's st_size then; 0: the next visit lists
  uint32_t visits;  // since then
  int32_t count;    // descriptors found
};

struct tw_process_note {
  tw_fd_listing files;
  uint32_t known;       // TASKWARDEN_KNOWN_ numbers that the last visit could read
  uint64_t start_time;  // in clock ticks after boot; 0: not asked for, or TW_NO_START_TIME
};

// Asked for in vain.
inline constexpr uint64_t TW_NO_START_TIME = UINT64_MAX;

#endif  // PROCTABLE_PROCESS_NOTE_H_
