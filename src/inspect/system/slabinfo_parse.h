// The reading of a slabinfo file apart from the file.
#ifndef INSPECT_SYSTEM_SLABINFO_PARSE_H_
#define INSPECT_SYSTEM_SLABINFO_PARSE_H_

#include <string_view>

#include "inspect/line_reader.h"
#include "inspect/system/slabinfo_record.h"

// Adds the caches with live objects to `slabinfo`, unranked; a full table ends it, logged.
void tw_slabinfo_parse(LineReader& lines, tw_slabinfo_t* slabinfo);

// The format of a cache's line, of which all five conversions must succeed.
inline constexpr const char* TW_SLAB_FORMAT = "%s %d %d %d %s";

// One line (at most 1023 bytes) into the first three fields of `entry`, with the result of sscanf
// with TW_SLAB_FORMAT. The name is cut at its field's size.
int parse_slab(std::string_view line, tw_slab_entry_t* entry);

#endif  // INSPECT_SYSTEM_SLABINFO_PARSE_H_
