// When a process started, which tells it from others that had its pid before.
#ifndef INSPECT_START_TIME_H_
#define INSPECT_START_TIME_H_

#include <cstdint>
#include <string_view>

// Field 22 of the process's stat file: clock ticks from boot to the start of the process (proc(5)).
// 0 where it cannot be read. Nothing is logged.
uint64_t tw_read_start_time(unsigned pid);

// The same field of the text of a stat file; 0 where it has none. The name in the second field may
// hold anything, also blanks and brackets.
uint64_t tw_parse_start_time(std::string_view stat);

#endif  // INSPECT_START_TIME_H_
