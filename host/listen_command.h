// `taskwarden listen`: the receiving end of the record socket alone.
#ifndef HOST_LISTEN_COMMAND_H_
#define HOST_LISTEN_COMMAND_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/reaction.h"
#include "host/record_server.h"

namespace host {

struct ListenOptions {
  std::string name = kRecordSocket;  // 1 to 107 bytes, in the abstract namespace
  bool json = false;
  uint32_t count = 0;  // records to end after; 0 for no end
  Senders senders = Senders::trusted();
  std::vector<std::string> events{};  // those to take; empty for all
  Reaction::Options reaction{};       // without a command, there is none
};

// Runs the command on the calling thread, main()'s, with the signals blocked as of block_signals().
// Returns the exit status of the program.
int run_listen(const ListenOptions& options);

}  // namespace host

#endif  // HOST_LISTEN_COMMAND_H_
