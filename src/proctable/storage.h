// The one process table and its set-up.
#ifndef PROCTABLE_STORAGE_H_
#define PROCTABLE_STORAGE_H_

#include <cstdint>

#include "inspect/fd_listing.h"
#include "proctable/process_records.h"
#include "taskwarden/export.h"

// The table; the first call sets it up: empty, with its two rank collectors and a pool sized for
// the kernel's pids. Never torn down. Only the cycle's thread may touch what it points to; the
// first call is not guarded against a second thread.
TW_EXPORT tw_process_list* tw_process_list_create();

// What is kept of the descriptor directory of the process in the slot of `pid`, which has one.
// Cycle's thread only, after tw_process_list_create().
tw_fd_listing* tw_fd_listing_of(uint32_t pid);

// One past the last pid that the table has a slot for.
uint32_t tw_process_slots();

#endif  // PROCTABLE_STORAGE_H_
