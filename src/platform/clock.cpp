#include "platform/clock.h"

#include <errno.h>
#include <sys/select.h>
#include <time.h>

namespace {

// How many rests in a row ended early.
int interrupted_rests = 0;
constexpr int kMostInterruptedRests = 5;

int64_t monotonic_us() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

int system_rest(int64_t seconds, int64_t microseconds) {
  const int64_t end = monotonic_us() + seconds * 1000000 + microseconds;
  const auto rest = [](int64_t us) {
    timeval timeout = {.tv_sec = static_cast<time_t>(us / 1000000),
                       .tv_usec = static_cast<suseconds_t>(us % 1000000)};
    return ::select(0, nullptr, nullptr, nullptr, &timeout);
  };
  if (rest(seconds * 1000000 + microseconds) == 0) {
    interrupted_rests = 0;
    return 0;
  }
  if (interrupted_rests < kMostInterruptedRests) {
    ++interrupted_rests;
    return -1;
  }
  for (int64_t left; (left = end - monotonic_us()) > 0;) {
    rest(left);
  }
  return 0;
}

constexpr tw_clock system_clock = {
    .now = [](timeval* now) { ::gettimeofday(now, nullptr); },
    .seconds = [] { return static_cast<int64_t>(::time(nullptr)); },
    .rest = system_rest,
};

const tw_clock* current_clock = &system_clock;

}  // namespace

void tw_clock_replace(const tw_clock* clock) {
  current_clock = clock != nullptr ? clock : &system_clock;
}

timeval tw_clock_now() {
  timeval now;
  current_clock->now(&now);
  return now;
}

int64_t tw_clock_seconds() {
  return current_clock->seconds();
}

int32_t tw_elapsed_ms(const timeval& start, const timeval& end) {
  const int64_t seconds = int64_t{end.tv_sec} - int64_t{start.tv_sec};
  return static_cast<int32_t>(seconds * 1000 + end.tv_usec / 1000 - start.tv_usec / 1000);
}

int tw_rest(int64_t seconds, int64_t microseconds) {
  if (microseconds < 0 || microseconds > 999999) {
    errno = EINVAL;
    return -1;
  }
  return current_clock->rest(seconds, microseconds);
}
