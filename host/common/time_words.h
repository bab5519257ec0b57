// Moments and spans of time as text. Any thread.
#ifndef HOST_COMMON_TIME_WORDS_H_
#define HOST_COMMON_TIME_WORDS_H_

#include <chrono>
#include <string>

namespace host {

// UTC, ISO 8601 with milliseconds: "2026-02-03T04:05:06.789Z".
std::string iso_time(std::chrono::system_clock::time_point time);
// "40 s", "25 min", "17 h", "3 days": rounded, from 0 on.
std::string span_words(double seconds);

}  // namespace host

#endif  // HOST_COMMON_TIME_WORDS_H_
