// The reading of a meminfo file apart from the file.
#ifndef INSPECT_SYSTEM_MEMINFO_PARSE_H_
#define INSPECT_SYSTEM_MEMINFO_PARSE_H_

#include "inspect/line_reader.h"
#include "inspect/system/meminfo_record.h"

// Fills `meminfo` up to the "SUnreclaim:" line, the end, or a failure (logged).
void tw_meminfo_parse(LineReader& lines, tw_meminfo_t* meminfo);

#endif  // INSPECT_SYSTEM_MEMINFO_PARSE_H_
