// The wall clock and the rest. All readings of time in the library and all its sleeping pass
// through here, so that a test can put a clock of its own in place.
#ifndef PLATFORM_CLOCK_H_
#define PLATFORM_CLOCK_H_

#include <stdint.h>
#include <sys/time.h>

// What can be replaced. `rest` gets a count of microseconds that is already known to be in range.
struct tw_clock {
  void (*now)(timeval* now);
  int64_t (*seconds)();
  int (*rest)(int64_t seconds, int64_t microseconds);
};

// Puts `clock` in place (not owned; null restores the system's). Not while the cycle runs.
void tw_clock_replace(const tw_clock* clock);

timeval tw_clock_now();      // gettimeofday()
int64_t tw_clock_seconds();  // time()

// Milliseconds from `start` to `end`, each microsecond term truncated to milliseconds by itself,
// in 32-bit arithmetic: negative when the clock was set back.
int32_t tw_elapsed_ms(const timeval& start, const timeval& end);

// Sleeps; a signal makes a rest shorter. From the sixth rest in a row that signals interrupt on,
// each is slept to its end, so that signals at any rate cannot make the cycle run all the time.
// Microseconds outside 0 to 999999 are refused at once with
// -1 and EINVAL, as on the platform this was made for: the C library here would take 1000000 and
// more, and sleep longer.
int tw_rest(int64_t seconds, int64_t microseconds);

#endif  // PLATFORM_CLOCK_H_
