#include "platform/locks.h"

#include <time.h>

#include <iterator>
#include <new>

namespace {

constexpr int kLocks = static_cast<int>(Lock::kCount);

// A fork waits this long for a lock. What a lock guards changes within microseconds, on a busy
// machine within some time slices; one that is held longer is held around a call of the host's or a
// write, while nothing changes.
constexpr long kForkPatienceNs = 250'000'000;

pthread_mutex_t mutexes[] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER,
                             PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER,
                             PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER,
                             PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};
static_assert(std::size(mutexes) == kLocks);

thread_local bool held[kLocks];

pthread_mutex_t* mutex_of(Lock lock) {
  return &mutexes[static_cast<int>(lock)];
}

// Of the fork under way, which one thread makes at a time.
bool taken_for_fork[kLocks];

void before_fork() {
  for (int i = 0; i < kLocks; ++i) {
    timespec until;
    ::clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += kForkPatienceNs;
    until.tv_sec += until.tv_nsec / 1'000'000'000;
    until.tv_nsec %= 1'000'000'000;
    taken_for_fork[i] = !held[i] && ::pthread_mutex_timedlock(&mutexes[i], &until) == 0;
  }
}

void after_fork_in_parent() {
  for (int i = kLocks - 1; i >= 0; --i) {
    if (taken_for_fork[i]) {
      ::pthread_mutex_unlock(&mutexes[i]);
    }
  }
}

// A lock that could not be had belongs to a thread that is not here.
void after_fork_in_child() {
  for (int i = kLocks - 1; i >= 0; --i) {
    if (taken_for_fork[i]) {
      ::pthread_mutex_unlock(&mutexes[i]);
    } else if (!held[i]) {
      new (&mutexes[i]) pthread_mutex_t(PTHREAD_MUTEX_INITIALIZER);
    }
  }
}

__attribute__((constructor)) void watch_forks() {
  ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

LockGuard::LockGuard(Lock lock) : lock_(lock) {
  take();
}

LockGuard::~LockGuard() {
  release();
}

void LockGuard::take() {
  ::pthread_mutex_lock(mutex_of(lock_));
  held[static_cast<int>(lock_)] = true;
}

void LockGuard::release() {
  held[static_cast<int>(lock_)] = false;
  ::pthread_mutex_unlock(mutex_of(lock_));
}

void LockGuard::wait(pthread_cond_t* condition) {
  held[static_cast<int>(lock_)] = false;
  ::pthread_cond_wait(condition, mutex_of(lock_));
  held[static_cast<int>(lock_)] = true;
}

bool tw_holds(Lock lock) {
  return held[static_cast<int>(lock)];
}
