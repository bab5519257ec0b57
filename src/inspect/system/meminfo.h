// Reads /proc/meminfo and polls the memory events with what it found.
#ifndef INSPECT_SYSTEM_MEMINFO_H_
#define INSPECT_SYSTEM_MEMINFO_H_

#include <cstdint>

#include "inspect/system/meminfo_record.h"
#include "taskwarden/export.h"

// Fills `meminfo`, or a static record of its own when given null, and polls the memory events with
// it, also when the reading stopped at a line that could not be parsed (logged). Returns the
// milliseconds that all took; 0, with no poll and the record all 0, when the file cannot be opened
// (logged). Figures are 32-bit: one of 2^31 kB (2 TiB) or more is not represented. Cycle's thread
// only.
TW_EXPORT uint32_t tw_system_check_meminfo(tw_meminfo_t* meminfo);

#endif  // INSPECT_SYSTEM_MEMINFO_H_
