// `taskwarden inspect`: one look at each of some processes, or a table of all.
#ifndef HOST_INSPECT_INSPECT_PROCESSES_H_
#define HOST_INSPECT_INSPECT_PROCESSES_H_

#include <string>
#include <vector>

namespace host {

struct ProcessOptions {
  std::vector<std::string> processes{};  // pids and names
  bool all = false;
  std::string sort = "resident";
  int every = 0;  // seconds; 0: one look
  bool zeros = false;
  bool no_arguments = false;
  bool json = false;
  std::string proc_root = "/proc";
};

// Prints what is asked for. Returns the exit status of the program. On main()'s thread: with
// `every` it blocks signals as block_signals() says. Throws std::runtime_error where the process
// file system cannot be read.
int inspect_processes(const ProcessOptions& options);

}  // namespace host

#endif  // HOST_INSPECT_INSPECT_PROCESSES_H_
