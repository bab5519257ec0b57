#include "host/common/iso_time.h"

#include <time.h>

#include <cstdio>

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

}  // namespace host
