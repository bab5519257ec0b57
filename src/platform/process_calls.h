// What is asked about another process by a call, not through its files.
#ifndef PLATFORM_PROCESS_CALLS_H_
#define PLATFORM_PROCESS_CALLS_H_

#include <cstdint>

enum class CpuClock {
  kRead,
  kGone,       // there is no process of this pid, not even a zombie
  kUnreadable  // the call is not allowed, or unknown
};

// Reads how long the threads of process `pid`, ended ones included, have run, in nanoseconds
// (clock_getcpuclockid(3)). What a thread has run since the scheduler's last tick is not in it
// while that thread is on a processor. `pid` is one of the caller's own pid namespace; the calling
// process's rights do not matter. `*ns` is unchanged unless the result is kRead.
CpuClock tw_read_cpu_clock(uint32_t pid, uint64_t* ns);

// Whether the two share their memory or their descriptor table (kcmp(2)). False also where that may
// not be asked: it takes the right to trace both.
bool tw_share_state(uint32_t pid, uint32_t other);

// Whether `path` is a file of a procfs.
bool tw_is_on_procfs(const char* path);

// Whether the process file system at `root` shows the pids of the caller's own pid namespace, so
// that they mean the same in a call: it is a procfs, and under it the calling process has no pid
// but getpid() (proc(5), NSpid).
bool tw_has_own_pids(const char* root);

#endif  // PLATFORM_PROCESS_CALLS_H_
