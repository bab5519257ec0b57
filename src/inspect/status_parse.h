// The reading of a status file apart from the file, and what of it was found.
#ifndef INSPECT_STATUS_PARSE_H_
#define INSPECT_STATUS_PARSE_H_

#include <cstdint>
#include <string>

#include "inspect/line_reader.h"
#include "proctable/process_records.h"

// Delivers the command line file of `pid` in `content`, at least its first 58 bytes; false when it
// cannot be read.
using CommandLineReader = bool (*)(int pid, std::string* content);

// Takes the lines of a status file, in the order in which they come, until "Threads:" or a failure.
// `read_command_line` is called once for each "Name:" line. Returns the TASKWARDEN_KNOWN_ bits of
// the fields that were filled; 0 where the file is another process's.
uint32_t tw_status_parse(int pid, LineReader& lines, CommandLineReader read_command_line,
                         tw_process_desc* desc);

// tw_process_check_status() with that result; 0 where the file cannot be opened.
uint32_t tw_process_read_status(int pid, tw_process_desc* desc);

#endif  // INSPECT_STATUS_PARSE_H_
