// `taskwarden watch`: the library's host. Gives it a thread, two outputs and the signals.
#ifndef HOST_WATCH_COMMAND_H_
#define HOST_WATCH_COMMAND_H_

#include <string>

#include "host/watch_log.h"

namespace host {

struct WatchOptions {
  std::string interest{};   // empty: what the environment says; at most 91 bytes
  std::string proc_root{};  // empty: /proc
  bool no_service = false;  // leave the record socket alone
  LogStyle log{};
};

// Runs the command on the calling thread, main()'s, with the signals blocked as of block_signals().
// Returns the exit status of the program, with which main() is to return at once: the library's
// thread and those beside it run until the process ends. Once per process.
int run_watch(const WatchOptions& options);

}  // namespace host

#endif  // HOST_WATCH_COMMAND_H_
