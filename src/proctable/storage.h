// The one process table and its set-up.
#ifndef PROCTABLE_STORAGE_H_
#define PROCTABLE_STORAGE_H_

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// The table. The first call sets it up: empty, with its two rank collectors and a slot for every
// pid that the kernel hands out. It is never torn down. Only the cycle's thread may touch what it
// points to; the first call is not guarded against a second thread.
TW_EXPORT tw_process_list* tw_process_list_create();

#endif  // PROCTABLE_STORAGE_H_
