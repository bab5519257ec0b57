// Reads where one process's memory sits: mapped, resident and proportional sizes by division. Costs
// far more than maps, so it is read on demand only.
#ifndef INSPECT_SMAPS_H_
#define INSPECT_SMAPS_H_

#include <cstdint>

#include "inspect/vma_division.h"
#include "taskwarden/export.h"

// Clears the VMA_DIVISION_COUNT totals at `divisions` and fills them from /proc/<pid>/smaps. An
// area counts once its "VmFlags:" line was read. Returns the sum of all "Rss:" values read, in kB.
// A failure is logged and ends the reading; totals and sum are then what was read before it.
// Cycle's thread only.
TW_EXPORT uint64_t tw_process_check_smaps(int pid, vma_division_t* divisions);

// Reads the same and reports a line a division, in kB (low 32 bits), whatever could be read.
// Cycle's thread only.
TW_EXPORT void tw_process_smaps_dump(int pid);

#endif  // INSPECT_SMAPS_H_
