// The readings of maps and smaps files apart from the files.
#ifndef INSPECT_MAPS_PARSE_H_
#define INSPECT_MAPS_PARSE_H_

#include <cstdint>
#include <optional>

#include "inspect/line_reader.h"
#include "inspect/vma_division.h"
#include "proctable/process_records.h"

// Fills the five vss fields of `desc` from the lines of a maps file. Returns the number of areas;
// nothing, logged and with `desc` untouched, where a line is no area's header.
std::optional<int32_t> tw_maps_parse(int pid, LineReader& lines, tw_process_desc* desc);

// tw_process_check_maps(), its result in `*areas`. Returns whether the sizes are known: the file
// could be opened, read to its end, and taken apart.
bool tw_process_read_maps(int pid, tw_process_desc* desc, int32_t* areas);

// Adds the areas of an smaps file to `divisions`, VMA_DIVISION_COUNT of them. Returns the sum of
// the "Rss:" values, in kB.
uint64_t tw_smaps_parse(int pid, LineReader& lines, vma_division_t* divisions);

#endif  // INSPECT_MAPS_PARSE_H_
