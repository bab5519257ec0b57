// The storms: what each is made of.
#ifndef STORM_STORMS_H_
#define STORM_STORMS_H_

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/made_tree.h"

struct Storm {
  std::string what;  // in figures
  // Made one after the other in a process apart, which owns through them what they start.
  std::vector<std::function<void()>> steps = {};
  int passes = 1;                       // after each step
  int longest_rest_ms = 2000;           // the cycle's own rests are cut to this
  bool still = false;                   // the cycle stands while a step is made
  std::unique_ptr<MadeTree> tree = {};  // what it sees in place of the process file system
};

inline constexpr std::string_view kStormNames[] = {
    "forks", "pids", "execs", "processes", "descriptors", "made-descriptors", "areas", "threads"};

// Call it while the process has one thread. `command_line` is the memory of its arguments: children
// write their names there. `quick` storms are short and small, for a look.
Storm make_storm(std::string_view name, bool quick, std::span<char> command_line);

#endif  // STORM_STORMS_H_
