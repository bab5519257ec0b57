// Where the thread that runs the cycle may be cancelled (pthread_cancel(3)). A cancellation unwinds
// the thread's stack at any call that can wait, so it is held back but for one place. Android has
// no cancellation.
#ifndef PLATFORM_CANCELLATION_H_
#define PLATFORM_CANCELLATION_H_

#include <pthread.h>

#if defined(__BIONIC__)

class NoCancellation {
 public:
  NoCancellation() {}
  ~NoCancellation() {}
};
using CancellationPoint = NoCancellation;

#else

// Sets the thread's state while it lives.
class CancelState {
 public:
  explicit CancelState(int state) { ::pthread_setcancelstate(state, &before_); }
  ~CancelState() { ::pthread_setcancelstate(before_, nullptr); }
  CancelState(const CancelState&) = delete;
  CancelState& operator=(const CancelState&) = delete;

 private:
  int before_ = 0;
};

// Holds a cancellation back while it lives.
class NoCancellation {
 public:
  NoCancellation() : state_(PTHREAD_CANCEL_DISABLE) {
    ::pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type_before_);
  }
  ~NoCancellation() { ::pthread_setcanceltype(type_before_, nullptr); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  CancelState state_;
  int type_before_ = 0;
};

// Lets it through while it lives.
class CancellationPoint {
 public:
  CancellationPoint() : state_(PTHREAD_CANCEL_ENABLE) { ::pthread_testcancel(); }

 private:
  const CancelState state_;
};

#endif

#endif  // PLATFORM_CANCELLATION_H_
