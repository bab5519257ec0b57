// `taskwarden demo`: children that leak on purpose, for a watch to see.
#ifndef HOST_DEMO_COMMAND_H_
#define HOST_DEMO_COMMAND_H_

#include <string>
#include <vector>

namespace host {

// What children leak, in their order: "threads", "sockets" and so on.
std::vector<std::string> demo_kinds();

struct DemoOptions {
  std::vector<std::string> kinds{};  // of demo_kinds(); empty for all
  int pace = 3;                      // seconds from one leak to the next
};

// Runs the command on the calling thread, main()'s, while it is the only one. Returns the exit
// status of the program. Its children end with it, however it ends.
int run_demo(const DemoOptions& options);

// What a child of `kind` does: leaks once for each byte that comes on standard input, and ends with
// it. Does not return.
[[noreturn]] void run_demo_child(const std::string& kind);

}  // namespace host

#endif  // HOST_DEMO_COMMAND_H_
