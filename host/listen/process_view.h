// What /proc shows of the process that a record is about, when the record arrives.
#ifndef HOST_LISTEN_PROCESS_VIEW_H_
#define HOST_LISTEN_PROCESS_VIEW_H_

#include <string>
#include <vector>

#include "host/common/json_line.h"
#include "host/common/record.h"

namespace host {

struct ProcessView {
  std::string cgroup{};                // as GroupPlace::path
  std::vector<std::string> command{};  // the words of its command line; empty if unknown or none
};

// Looks at the record's process under `proc_root`. Empty where its files cannot be read or do not
// answer within kReadPatience, and where the sender is not known to number processes as we do
// (pid_namespaces(7)). A command line is cut after some 4096 bytes, since its process can make it
// endless. With `no_arguments` it is the path of the program alone. Any thread.
ProcessView view_process(const Record& record, const Sender& sender,
                         const std::string& proc_root = "/proc", bool no_arguments = false);

// Adds "cgroup" and "command_line" (an array) to `object`; null for what is not known.
void add_view(const ProcessView& view, Json* object);

// The same as lines that begin with a tab, escaped; empty if nothing is known.
std::string view_text(const ProcessView& view);

}  // namespace host

#endif  // HOST_LISTEN_PROCESS_VIEW_H_
