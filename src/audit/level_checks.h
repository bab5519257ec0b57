// What the two hubs share that hold figures of the whole system against fixed limits: an event is
// raised at every poll for as long as its limit is reached.
#ifndef AUDIT_LEVEL_CHECKS_H_
#define AUDIT_LEVEL_CHECKS_H_

#include <cstdint>
#include <vector>

// Runs the checks of the events about `source` over `data`, logs a block for each that fires, and
// returns their ids in the order of the facts.
std::vector<int32_t> tw_check_levels(int32_t source, const void* data);

#endif  // AUDIT_LEVEL_CHECKS_H_
