#include "host/common/time_words.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace host {

std::string iso_time(std::chrono::system_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - seconds);
  const time_t clock = std::chrono::system_clock::to_time_t(seconds);
  tm parts = {};
  ::gmtime_r(&clock, &parts);
  char date[32];
  char milliseconds[8];
  ::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(milliseconds, sizeof(milliseconds), ".%03uZ", static_cast<unsigned>(rest.count()));
  return std::string(date) + milliseconds;
}

std::string span_words(double seconds) {
  constexpr double kMinute = 60;
  constexpr double kHour = 3600;
  constexpr double kDay = 86400;
  const auto [unit, word] = seconds < 1.5 * kMinute ? std::pair(1.0, " s")
                            : seconds < 1.5 * kHour ? std::pair(kMinute, " min")
                            : seconds < 2 * kDay    ? std::pair(kHour, " h")
                                                    : std::pair(kDay, " days");
  char text[32];
  std::snprintf(text, sizeof(text), "%.0f", std::max(std::round(seconds / unit), 0.0));
  return std::string(text) + word;
}

}  // namespace host
