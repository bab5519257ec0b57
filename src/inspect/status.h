// Reads one process's status file and command line: its name, state, parent, threads, descriptor
// table and sizes.
#ifndef INSPECT_STATUS_H_
#define INSPECT_STATUS_H_

#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Fills `desc` (not null) from /proc/<pid>/status and cmdline. A field whose line is absent keeps
// its value. A failure is logged and ends the reading; the fields that come later in the file stay
// as they were, and the caller is not told. The name is the first argument of the command line
// if it has 1 to 57 bytes, else the task's short name up to its first blank; then "#" and the pid.
// A process of parent 1 whose name begins with "zygote64" or "zygote" becomes the known zygote.
// Cycle's thread only.
TW_EXPORT void tw_process_check_status(int pid, tw_process_desc* desc);

#endif  // INSPECT_STATUS_H_
