// The storms there are.
#ifndef STORM_STORMS_H_
#define STORM_STORMS_H_

#include <span>
#include <string_view>

#include "storm.h"

inline constexpr std::string_view kStormNames[] = {
    "forks",   "pids",       "execs", "processes", "descriptors", "made-descriptors", "areas",
    "threads", "once-round", "day",   "locked",    "charged",     "refused"};

// Call it while the process has one thread. `command_line` is the memory of its arguments: children
// write their names there. `quick` storms are short and small, for a look.
Storm make_storm(std::string_view name, bool quick, std::span<char> command_line);

#endif  // STORM_STORMS_H_
