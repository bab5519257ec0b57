// The library's locks, all of them, in the order in which one thread may take them. They survive a
// fork: in the child every lock is free, except those that its one thread holds itself, so that the
// child's calls into the library return, whatever the other threads were doing.
#ifndef PLATFORM_LOCKS_H_
#define PLATFORM_LOCKS_H_

#include <pthread.h>

enum class Lock {
  kEventObserver,  // held while the observer is called
  kTableObserver,
  kPause,
  kInterestList,
  kReceivers,
  kSparedProcesses,
  kReporter,
  kOutput,  // held while the host's sink is called, or a text is written
  kCount
};

// Holds a lock while it lives.
class LockGuard {
 public:
  explicit LockGuard(Lock lock);
  ~LockGuard();
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

  // Waits for `condition` with the lock let go.
  void wait(pthread_cond_t* condition);
  // Runs `work` with the lock let go.
  template <typename Work>
  void unlocked(Work work) {
    release();
    work();
    take();
  }

 private:
  void take();
  void release();

  const Lock lock_;
};

// Whether the calling thread holds `lock`.
bool tw_holds(Lock lock);

#endif  // PLATFORM_LOCKS_H_
