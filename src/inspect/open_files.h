// Counts one process's open descriptors, and on request what they point to.
#ifndef INSPECT_OPEN_FILES_H_
#define INSPECT_OPEN_FILES_H_

#include "inspect/string_counter.h"
#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Walks /proc/<pid>/fd. With `desc`, sets its open_files to the number of descriptors, whether or
// not their links can be read. With `counter`, refills it with the kind of each target and reports
// the kinds held more than 10 times. Either may be null. Where the directory may not be opened
// (EACCES) nothing changes, silently; any other failure changes nothing and is logged.
// Cycle's thread only.
TW_EXPORT void tw_process_check_openfiles(int pid, tw_process_desc* desc, StringCounter* counter);

#endif  // INSPECT_OPEN_FILES_H_
