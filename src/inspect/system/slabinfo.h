// Reads /proc/slabinfo (root only) and ranks the kernel's caches by the bytes of their live
// objects.
#ifndef INSPECT_SYSTEM_SLABINFO_H_
#define INSPECT_SYSTEM_SLABINFO_H_

#include <cstdint>

#include "inspect/system/slabinfo_record.h"
#include "taskwarden/export.h"

// Fills `slabinfo`, or a static record of its own when given null: the first 256 caches with live
// objects, largest first by their totals taken as signed 32-bit numbers, equals in no particular
// order; a full table is logged. Returns the milliseconds it took; 0, the record empty, when the
// file cannot be opened (logged). Cycle's thread only.
TW_EXPORT uint32_t tw_system_check_slabinfo(tw_slabinfo_t* slabinfo);

// Reports a header and the first `top_n` rows (at most 256; none below 1), empty ones included.
// `slabinfo` must not be null, and is not changed. Cycle's thread only.
TW_EXPORT void tw_slabinfo_dump(tw_slabinfo_t* slabinfo, int32_t top_n);

#endif  // INSPECT_SYSTEM_SLABINFO_H_
