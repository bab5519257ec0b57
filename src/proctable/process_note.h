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

// What decides whether a visit can keep the process's numbers; see proctable/kept_visits.h.
struct tw_reading {
  uint64_t cpu_ns;        // the CPU clock before they were last read
  bool is_whole;          // that reading found all there is to be read, and `cpu_ns` is right
  bool is_sharing_known;  // it was asked whether it shares anything with its parent,
  bool shares;            // and it does
  bool child_shares;      // a child that does was visited since the last visit
  uint8_t visits;         // modulo the rhythm of readings
  uint8_t event_visits;   // that are left of those after an event
};

struct tw_process_note {
  tw_fd_listing files;
  uint32_t known;       // TASKWARDEN_KNOWN_ numbers that the last reading found
  uint64_t start_time;  // in clock ticks after boot; 0: not asked for, or TW_NO_START_TIME
  tw_reading reading;
};

// Asked for in vain.
inline constexpr uint64_t TW_NO_START_TIME = UINT64_MAX;

#endif  // PROCTABLE_PROCESS_NOTE_H_
