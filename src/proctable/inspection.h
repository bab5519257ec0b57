// The inspection: walks the table in slices, reads each process, follows its identity, takes its
// baseline and hands it to the event polls.
#ifndef PROCTABLE_INSPECTION_H_
#define PROCTABLE_INSPECTION_H_

#include <cstdint>

#include "proctable/process_records.h"

// Seconds that an identity must have existed before its baseline is taken.
inline constexpr int64_t TW_BASELINE_DELAY_S = 3;

// Runs one slice of a pass from `start` on: inspects at least one live process, and goes on until
// `budget_ms` is spent, which is looked at after each live process only. Gone processes raise their
// exit event, are unlinked and freed. Stores through `cursor` where the next slice must begin, null
// when the pass is complete; with a null `start` nothing is visited, `cursor` stays, and the
// closing steps run. Returns the milliseconds spent, measured at the last look, 0 if no live
// process was met. Allocates nothing beyond the two strings of the status reader unless an
// event fires or a ranking changes. Cycle's thread only.
int32_t tw_process_list_iterate(tw_process_list* list, tw_process_entry* start, int32_t budget_ms,
                                tw_process_entry** cursor);

#endif  // PROCTABLE_INSPECTION_H_
