// The memory of the table's slots and of the notes beside them: the static pool, or, where the
// kernel hands out higher pids than that has slots for, one reservation of address space. Either
// costs memory only where it is in use: a page of which every byte is 0 again goes back to the
// kernel, which makes no difference to who reads it.
#ifndef PROCTABLE_POOL_H_
#define PROCTABLE_POOL_H_

#include <cstdint>

#include "proctable/process_note.h"
#include "proctable/process_records.h"

inline constexpr uint32_t TW_PROCESS_SLOTS = 35000;
// PID_MAX_LIMIT on 64-bit kernels (include/linux/threads.h): pids are below it.
inline constexpr uint32_t TW_LARGEST_PID_LIMIT = 4194304;

struct tw_process_pool {
  tw_process_entry* entries;  // all zero; lives until the process ends
  tw_process_note* notes;     // one beside each entry, likewise
  uint32_t slots;
  bool refused;    // there are fewer slots than asked for
  bool is_shared;  // the memory is a file's, which a forked child shares
};

// A pool for pids below `pid_limit`: the static one where that is enough or where the address space
// is refused (errno tells why). Limits above TW_LARGEST_PID_LIMIT count as that. Every call that
// goes beyond the static pool reserves anew. The memory of either is not locked, whatever the host
// does with its own (mlockall(2)). Where the kernel charges memory that is only reserved
// (overcommit_memory 2, proc(5)), it is that of a file without a name, which is charged as it is
// used; the host's forked children share it.
tw_process_pool tw_process_pool_reserve(uint64_t pid_limit);

// Gives the pages of the slot `pid` and of its note back where nothing is in them. errno is
// unspecified afterwards.
void tw_process_pool_give_back(const tw_process_pool& pool, uint32_t pid);

// The first pid that the kernel will not hand out, from sys/kernel/pid_max under the process file
// system (proc(5)); 0 where it cannot be read.
uint64_t tw_kernel_pid_limit();

#endif  // PROCTABLE_POOL_H_
