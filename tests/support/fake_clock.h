// A clock that stands still until told to move, in place of the system's while it lives.
#ifndef TESTS_SUPPORT_FAKE_CLOCK_H_
#define TESTS_SUPPORT_FAKE_CLOCK_H_

#include <cmath>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "platform/clock.h"

class FakeClock {
 public:
  FakeClock() {
    self = this;
    static constexpr tw_clock kClock = {read, [] { return self->us / 1000000; }, rest};
    tw_clock_replace(&kClock);
  }
  ~FakeClock() { tw_clock_replace(nullptr); }
  FakeClock& operator=(FakeClock&&) = delete;  // nor any copy

  void advance_ms(double ms) { us += llround(ms * 1000); }

  int64_t us = 1'000'000'000;             // the time
  std::deque<double> steps_ms;            // moves the clock before the next readings, one each
  std::vector<int64_t> rests_ms;          // what was slept
  std::function<void()> on_rest = [] {};  // runs at each rest, after the clock has moved

 private:
  static void read(timeval* now) {
    if (!self->steps_ms.empty()) {
      self->advance_ms(self->steps_ms.front());
      self->steps_ms.pop_front();
    }
    *now = {self->us / 1000000, self->us % 1000000};
  }
  static int rest(int64_t seconds, int64_t rest_us) {
    self->rests_ms.push_back(seconds * 1000 + rest_us / 1000);
    self->us += seconds * 1000000 + rest_us;
    self->on_rest();
    return 0;
  }
  static inline FakeClock* self = nullptr;
};

#endif  // TESTS_SUPPORT_FAKE_CLOCK_H_
