// A moment as text. Any thread.
#ifndef HOST_COMMON_ISO_TIME_H_
#define HOST_COMMON_ISO_TIME_H_

#include <chrono>
#include <string>

namespace host {

// UTC, ISO 8601 with milliseconds: "2026-02-03T04:05:06.789Z".
std::string iso_time(std::chrono::system_clock::time_point time);

}  // namespace host

#endif  // HOST_COMMON_ISO_TIME_H_
