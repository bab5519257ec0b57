// The event socket's name belongs to a network namespace, and a watch may be running on this
// machine.
#ifndef TESTS_SUPPORT_OWN_NETWORK_H_
#define TESTS_SUPPORT_OWN_NETWORK_H_

#include <sched.h>

// Moves the calling thread, and what it starts from now on, to a namespace of its own, where that
// is allowed. Once a thread.
inline void own_network() {
  [[maybe_unused]] static thread_local const int moved = unshare(CLONE_NEWNET);
}

#endif  // TESTS_SUPPORT_OWN_NETWORK_H_
