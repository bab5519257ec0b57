// A clock that stands still until told to move, in place of the system's while it lives.
#ifndef TESTS_SUPPORT_FAKE_CLOCK_H_
#define TESTS_SUPPORT_FAKE_CLOCK_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "platform/clock.h"

class FakeClock {
 public:
  FakeClock() {
    self = this;
    static constexpr tw_clock kClock = {
        .now = [](timeval* now) { self->read(now); },
        .seconds = [] { return self->us / 1000000; },
        .rest = [](int64_t s, int64_t rest_us) { return self->rest(s * 1000000 + rest_us); },
    };
    tw_clock_replace(&kClock);
  }
  ~FakeClock() { tw_clock_replace(nullptr); }
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  void advance_ms(int64_t ms) { us += ms * 1000; }

  int64_t us = 1'000'000'000;             // the time
  std::deque<int64_t> steps_ms;           // moves the clock before the next readings, one each
  std::vector<int64_t> rests_ms;          // what was slept
  std::function<void()> on_rest = [] {};  // runs at each rest, after the clock has moved

 private:
  void read(timeval* now) {
    if (!steps_ms.empty()) {
      advance_ms(steps_ms.front());
      steps_ms.pop_front();
    }
    *now = {.tv_sec = us / 1000000, .tv_usec = us % 1000000};
  }
  int rest(int64_t slept_us) {
    rests_ms.push_back(slept_us / 1000);
    us += slept_us;
    on_rest();
    return 0;
  }
  static inline FakeClock* self = nullptr;
};

#endif  // TESTS_SUPPORT_FAKE_CLOCK_H_
