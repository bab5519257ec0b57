// `taskwarden demo`: children that leak on purpose, for a watch to see.
#ifndef HOST_DEMO_DEMO_COMMAND_H_
#define HOST_DEMO_DEMO_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace host {

// Adds the command to `app`, and the hidden one that its children run. When `app` has parsed one of
// them, `*chosen` runs it on the calling thread, main()'s, while it is the only one, and returns
// the exit status of the program. The children end with the command, however it ends. `chosen` must
// outlive the parsing.
void add_demo_commands(CLI::App& app, std::function<int()>* chosen);

// What a child of `kind` does: leaks once for each byte that comes on standard input, and ends with
// it. Does not return.
[[noreturn]] void run_demo_child(const std::string& kind);

}  // namespace host

#endif  // HOST_DEMO_DEMO_COMMAND_H_
