// The library's own cycle on a thread, on the system's clock, measured between its rests and held
// where its table can be looked at.
#ifndef STORM_CYCLE_H_
#define STORM_CYCLE_H_

#include <cstdint>

#include "proctable/process_records.h"

// What lies between two rests is a slice: more than one of the cycle's own where it skips a rest.
struct CycleFigures {
  int64_t passes = 0;
  int64_t longest_pass_us = 0;  // rests included
  int64_t longest_slice_us = 0;
  int64_t most_cpu_us = 0;  // that a slice took
};

class Cycle {
 public:
  // Starts taskwarden_start(), which never ends; rests are cut to `longest_rest_ms`. With
  // `whole_clock` its clock goes on as if they were not. Once a process.
  Cycle(int longest_rest_ms, bool whole_clock);
  Cycle& operator=(Cycle&&) = delete;  // nor any copy

  // Returns when `passes` whole passes have been made that began after the call. The cycle then
  // stands still until resume(), and all of the library is the caller's. Ends the program when the
  // cycle has ended or does not get there in five minutes.
  const tw_process_list* hold_after(int passes);
  void resume();

  // While the cycle stands.
  const CycleFigures& figures() const;
};

#endif  // STORM_CYCLE_H_
