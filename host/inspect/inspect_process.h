// One process, looked at once with the library's readers.
#ifndef HOST_INSPECT_INSPECT_PROCESS_H_
#define HOST_INSPECT_INSPECT_PROCESS_H_

#include <string>

#include "host/inspect/document.h"

namespace host {

struct Inspected {
  Document document{};
  // False once a file that comes from its memory did not answer in time: none is read after that.
  bool memory_answers = true;
};

// What the readers see of the process `pid` in the process file system at `root`, which has been
// set as the library's. What was read stands for that process alone: if it ends meanwhile, the rest
// is unreadable, even if another has taken its pid. Throws std::runtime_error when there is no such
// process, or none any more before anything was read. One thread at a time, and none that watches.
Inspected inspect_process(int pid, const std::string& root);

}  // namespace host

#endif  // HOST_INSPECT_INSPECT_PROCESS_H_
