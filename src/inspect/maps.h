// Reads how much address space one process has mapped, by division.
#ifndef INSPECT_MAPS_H_
#define INSPECT_MAPS_H_

#include <cstdint>

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Fills the five vss fields of `desc` (not null) from /proc/<pid>/maps. Returns the number of
// areas; 0, logged and with `desc` untouched, when the file cannot be opened or a line is no area's
// header (the second piece of a line of more than 1023 bytes is none). A process without memory has
// an empty file: 0, and sizes of 0. Areas may be met twice or missed while the process changes its
// map. Cycle's thread only.
TW_EXPORT int32_t tw_process_check_maps(int pid, tw_process_desc* desc);

#endif  // INSPECT_MAPS_H_
