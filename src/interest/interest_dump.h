// A listing of the interesting processes and where their memory sits.
#ifndef INTEREST_INTEREST_DUMP_H_
#define INTEREST_INTEREST_DUMP_H_

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Reports each interesting process of `list`, numbered from 00 in list order, with the summary that
// its smaps give now. Cycle's thread only: a host asks through taskwarden_request_dump().
TW_EXPORT void interested_proc_dumpall(tw_process_list* list);

#endif  // INTEREST_INTEREST_DUMP_H_
