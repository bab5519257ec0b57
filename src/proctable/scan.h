// Takes new processes into the table at the start of a pass.
#ifndef PROCTABLE_SCAN_H_
#define PROCTABLE_SCAN_H_

#include <cstdint>

#include "proctable/process_records.h"

// The smallest pid that is watched.
inline constexpr int32_t TW_FIRST_TRACKED_PID = 300;

// Lists the process file system, links every pid that is not yet in the table at its head under the
// name "<dummy pid>", and resets the counters of the pass. Nothing is removed: a process that has
// gone is noticed by the inspection. Pids beyond the table's slots are skipped, the first of them
// with a log line. Returns the milliseconds it took, or -1 (logged, the table unchanged) when the
// directory cannot be opened. Allocates nothing. Cycle's thread only.
int32_t tw_process_list_refresh(tw_process_list* list);

// The same, except that where the process has no descriptor left to open the directory with
// (EMFILE, ENFILE), the one open at `spare_directory` is listed from its beginning. -1: there is
// none.
int32_t tw_process_list_scan(tw_process_list* list, int spare_directory);

#endif  // PROCTABLE_SCAN_H_
