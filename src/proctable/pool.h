// The memory of the table's slots: the static pool, or, where the kernel hands out higher pids than
// it has slots for, one reservation of address space that costs memory only where it is touched.
#ifndef PROCTABLE_POOL_H_
#define PROCTABLE_POOL_H_

#include <cstdint>

#include "inspect/fd_listing.h"
#include "proctable/process_records.h"

inline constexpr uint32_t TW_PROCESS_SLOTS = 35000;
// PID_MAX_LIMIT on 64-bit kernels (include/linux/threads.h): pids are below it.
inline constexpr uint32_t TW_LARGEST_PID_LIMIT = 4194304;

struct tw_process_pool {
  tw_process_entry* entries;  // all zero; lives until the process ends
  tw_fd_listing* listings;    // one beside each entry, likewise
  uint32_t slots;
};

// A pool for pids below `pid_limit`: the static one where that is enough or where the address space
// is refused. Limits above TW_LARGEST_PID_LIMIT count as that. Every call that goes beyond the
// static pool reserves anew.
tw_process_pool tw_process_pool_reserve(uint64_t pid_limit);

// The first pid that the kernel will not hand out, from sys/kernel/pid_max under the process file
// system (proc(5)); 0 where it cannot be read.
uint64_t tw_kernel_pid_limit();

#endif  // PROCTABLE_POOL_H_
