// Reads one process's status file and command line: its name, state, parent, threads, descriptor
// table and sizes.
#ifndef INSPECT_STATUS_H_
#define INSPECT_STATUS_H_

#include <string>

#include "inspect/line_reader.h"
#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Fills `desc` (not null) from /proc/<pid>/status and cmdline. A field whose line is absent keeps
// its value; a failure is logged, ends the reading and leaves the fields that come later in the
// file as they were, and the caller is not told. The name is the first argument of the command line
// if it has 1 to 57 bytes, else the task's short name up to its first blank; then "#" and the pid.
// A process of parent 1 whose name begins with "zygote64" or "zygote" becomes the known zygote
// (proctable/zygote.h). Cycle's thread only.
TW_EXPORT void tw_process_check_status(int pid, tw_process_desc* desc);

// Delivers the command line file of `pid` in `content`, at least its first 58 bytes; false when it
// cannot be read.
using CommandLineReader = bool (*)(int pid, std::string* content);

// The same on text alone: takes the lines of a status file, in the order in which they come, until
// "Threads:" or a failure. `read_command_line` is called once for each "Name:" line.
void tw_status_parse(int pid, LineReader& lines, CommandLineReader read_command_line,
                     tw_process_desc* desc);

#endif  // INSPECT_STATUS_H_
