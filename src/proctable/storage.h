// The one process table and its set-up.
#ifndef PROCTABLE_STORAGE_H_
#define PROCTABLE_STORAGE_H_

#include <cstdint>

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// The table; the first call sets it up: empty, with its two rank collectors and a pool sized for
// the kernel's pids. Never torn down. Only the cycle's thread may touch what it points to; the
// first call is not guarded against a second thread.
TW_EXPORT tw_process_list* tw_process_list_create();

// One past the last pid that the table has a slot for.
uint32_t tw_process_slots();

#endif  // PROCTABLE_STORAGE_H_
