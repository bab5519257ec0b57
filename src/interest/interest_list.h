// The processes singled out for the costlier reading of their memory maps: by a text that occurs in
// their name, or by rank in resident size.
#ifndef INTEREST_INTEREST_LIST_H_
#define INTEREST_INTEREST_LIST_H_

#include <cstdint>

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Appends a copy of `text` (NUL-terminated, not null) to the list and reports it. Matched as a
// plain part of a process's name ("name#pid"), case-sensitive; an empty text matches every name.
// Takes effect for a process when its name is next seen to change. Any thread, at any time: the
// list is guarded.
TW_EXPORT void interest_builtin_add(const char* text);

// A hook for hosts that keep a schedule, without work of its own: 0 unless `tick` is a multiple of
// 30 (also 0 and negative ones), else the milliseconds between two readings of the clock. `list` is
// not looked at and may be null. Any thread.
TW_EXPORT int32_t tw_onschedule_stats(tw_process_list* list, int32_t tick);

#endif  // INTEREST_INTEREST_LIST_H_
