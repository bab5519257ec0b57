// What the process file system tells of the process that a record is about, when the record comes.
#ifndef HOST_PROCESS_VIEW_H_
#define HOST_PROCESS_VIEW_H_

#include <optional>
#include <string>
#include <vector>

#include "host/record.h"

namespace host {

struct ProcessView {
  std::optional<std::string> cgroup{};  // its path, from the root of our hierarchy
  std::vector<std::string> command{};   // the words of its command line; empty if unknown or none
};

// Looks at the record's process under `proc_root`. Empty where its files cannot be read, and where
// the sender is not known to number processes as we do (pid_namespaces(7)). A command line is cut
// after some 4096 bytes, since its process can make it endless. Any thread.
ProcessView view_process(const Record& record, const Sender& sender,
                         const std::string& proc_root = "/proc");

}  // namespace host

#endif  // HOST_PROCESS_VIEW_H_
