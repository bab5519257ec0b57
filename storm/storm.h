// What a storm is made of.
#ifndef STORM_STORM_H_
#define STORM_STORM_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/made_tree.h"

struct Storm {
  std::string what;  // in figures
  // Made one after the other in a process apart, which owns through them what they start.
  std::vector<std::function<void()>> steps = {};
  int passes = 1;                       // after each step
  int longest_rest_ms = 2000;           // the cycle's own rests are cut to this
  bool whole_clock = false;             // its clock goes on as if they were not cut
  bool still = false;                   // the cycle stands while a step is made
  std::unique_ptr<MadeTree> tree = {};  // what it sees in place of the process file system
  // What the host does to itself before the cycle starts.
  std::function<void()> prepare_host = [] {};
  // The most that the host may have in memory and locked, in kB: from the start on, and in the end.
  size_t resident_limit_kb = SIZE_MAX;
  size_t locked_limit_kb = SIZE_MAX;
};

#endif  // STORM_STORM_H_
