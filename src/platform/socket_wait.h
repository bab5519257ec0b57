// How long a connection to a service may be waited for. The cycle must not be held up: all its
// records of one pass wait for no longer than TW_PASS_WAIT_MS together, and after a service that
// did not answer in time the rest of the pass's records are tried without waiting. A thread that
// runs no cycle waits up to TW_SOCKET_WAIT_MS each time. Any thread; each has an account of its
// own.
#ifndef PLATFORM_SOCKET_WAIT_H_
#define PLATFORM_SOCKET_WAIT_H_

#include <cstdint>

inline constexpr int TW_SOCKET_WAIT_MS = 50;
inline constexpr int TW_PASS_WAIT_MS = 100;

// A pass begins on this thread, or (false) it runs no cycle any more.
void tw_begin_waits_of_pass(bool in_cycle);

// The microseconds that the next connection may wait for; 0 for none.
int64_t tw_wait_left_us();

// A connection took `us`, and may have been given up for that.
void tw_spend_wait(int64_t us, bool timed_out);

#endif  // PLATFORM_SOCKET_WAIT_H_
