// What makes growth a leak. Pure functions over floors; judge.h says how the rules came about.
#ifndef JUDGE_RULES_H_
#define JUDGE_RULES_H_

#include <cstdint>

#include "judge/floors.h"
#include "judge/sample.h"

namespace judge {

// Growth that was found.
struct Growth {
  Evidence::Kind kind = Evidence::Kind::kGrowth;
  double from = 0;           // the level when it began
  uint32_t ago = 0;          // minutes since then, as far as the windows go back
  uint32_t minutes = 0;      // over which it was measured
  double rate_per_hour = 0;  // the whole's or that of the younger half, which is faster
};

// `minute` is the open minute, counted from the first sample. Each looks at what closed last and
// returns whether there is such growth.

// Growth over the last windows of one ring that is even enough to be suspected.
bool find_suspicion(const Floors& floors, Scale scale, uint32_t minute, Resource resource,
                    Growth* growth);
// Growth over so many hours that nothing healthy explains it.
bool find_leak(const Floors& floors, uint32_t minute, Resource resource, Growth* growth);
// The fastest even growth in 8 windows or more of one ring, into heights not seen before.
bool find_rush(const Floors& floors, Scale scale, uint32_t minute, Resource resource,
               Growth* growth);

// Whether such growth can reach the limit soon: within its windows it can be no more than all there
// is.
inline bool can_rush(double now, double limit, Scale scale) {
  const uint32_t windows = scale == kHours ? 5 : 9;
  return limit - now <= now * 120 / (windows * kMinutesPerWindow[scale]);
}

}  // namespace judge

#endif  // JUDGE_RULES_H_
