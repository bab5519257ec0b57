// A listing of the processes whose numbers look suspicious.
#ifndef PROCTABLE_SUSPICIOUS_DUMP_H_
#define PROCTABLE_SUSPICIOUS_DUMP_H_

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Reports the processes of `list`, from the newest, that are zombies or in uninterruptible sleep,
// or have more than 200 MiB resident, 50 threads or 200 open files, as they were when last
// inspected; children of pids below 3 never. Each with its index in the whole list. Cycle's thread
// only: a host asks through taskwarden_request_dump().
TW_EXPORT void tw_process_list_dump(tw_process_list* list);

#endif  // PROCTABLE_SUSPICIOUS_DUMP_H_
