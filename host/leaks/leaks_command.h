// `taskwarden leaks`: asks the running watch who leaks.
#ifndef HOST_LEAKS_LEAKS_COMMAND_H_
#define HOST_LEAKS_LEAKS_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>

namespace host {

// Adds the command to `app`. When `app` has parsed it, `*chosen` runs it on the calling thread,
// main()'s, and returns the exit status of the program. `chosen` must outlive the parsing.
void add_leaks_command(CLI::App& app, std::function<int()>* chosen);

}  // namespace host

#endif  // HOST_LEAKS_LEAKS_COMMAND_H_
