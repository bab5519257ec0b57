// Running until SIGINT or SIGTERM: the main thread waits for the signals while others work, so that
// neither a rest nor a stalled output delays the end.
#ifndef HOST_COMMON_UNTIL_SIGNAL_H_
#define HOST_COMMON_UNTIL_SIGNAL_H_

#include <signal.h>

#include <functional>
#include <initializer_list>

namespace host {

sigset_t signal_set(std::initializer_list<int> signals);

// Blocks SIGINT, SIGTERM and `others`, and no other signal, in the calling thread and all that it
// starts. To be called before any thread is started.
void block_signals(std::initializer_list<int> others);

// Runs `work` on a thread of its own, for good, and returns its result when it returns; or 0 as
// soon as SIGINT or SIGTERM arrives, while `work` still runs: the caller then returns from main()
// without destroying anything that `work` uses. Throws std::system_error when the means are
// lacking.
int run_until_signal(std::function<int()> work);

}  // namespace host

#endif  // HOST_COMMON_UNTIL_SIGNAL_H_
