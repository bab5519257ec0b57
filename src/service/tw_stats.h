// The main cycle: what taskwarden_start() and taskwarden_notify() (taskwarden/taskwarden.h) run.
#ifndef SERVICE_TW_STATS_H_
#define SERVICE_TW_STATS_H_

#include <cstdint>

inline constexpr int32_t TW_SLICE_BUDGET_MS =
    60;                                       // of one slice, before a pass's set-up is taken off
inline constexpr int32_t TW_CYCLE_MS = 1000;  // what a slice's work is subtracted from
inline constexpr int32_t TW_OVERLOAD_MS = 10000;  // a pass of this length or more is an overload

#endif  // SERVICE_TW_STATS_H_
