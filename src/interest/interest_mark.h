// The list of interesting names as the library itself uses it, and the mark of a process.
#ifndef INTEREST_INTEREST_MARK_H_
#define INTEREST_INTEREST_MARK_H_

#include "proctable/process_records.h"

// Fills the list from the property "tw.stats.interest": its whole value, unsplit, unless it begins
// with "0" (the default). Called once at start.
void interest_builtin_load();

// Whether any text of the list occurs in `name`. Any thread.
bool is_interest(const char* name);

// Sets or clears the mark of `entry`; it stays on a process whose name is on the list. A null entry
// is ignored. Cycle's thread only.
void interested_proc_set(tw_process_entry* entry, bool mark);

#endif  // INTEREST_INTEREST_MARK_H_
