// The two processes that start applications. The status reader finds them; 0 while unknown; never
// cleared. Cycle's thread only.
#ifndef PROCTABLE_ZYGOTE_H_
#define PROCTABLE_ZYGOTE_H_

#include <cstdint>

extern int32_t pid_of_zygote;
extern int32_t pid_of_zygote64;

// Whether a process with the parent `ppid` was started by a zygote. An unknown zygote is nobody's
// parent, although a parent pid of 0 is real in containers.
bool is_runtime_proc(int ppid);

#endif  // PROCTABLE_ZYGOTE_H_
