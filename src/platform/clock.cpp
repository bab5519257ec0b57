#include "platform/clock.h"

#include <errno.h>
#include <sys/select.h>
#include <time.h>

namespace {

int system_rest(int64_t seconds, int64_t microseconds) {
  timeval timeout = {.tv_sec = static_cast<time_t>(seconds),
                     .tv_usec = static_cast<suseconds_t>(microseconds)};
  return ::select(0, nullptr, nullptr, nullptr, &timeout);
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
