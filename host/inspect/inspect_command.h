// `taskwarden inspect`, `slabs` and `meminfo`: one look, printed.
#ifndef HOST_INSPECT_INSPECT_COMMAND_H_
#define HOST_INSPECT_INSPECT_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>

namespace host {

// Adds the three commands to `app`. When it has parsed one of them, `*chosen` runs that, on the
// calling thread, and returns the exit status of the program; else it is left alone. It throws
// std::runtime_error when the process to look at does not exist. `chosen` must outlive the parsing.
void add_inspect_commands(CLI::App& app, std::function<int()>* chosen);

}  // namespace host

#endif  // HOST_INSPECT_INSPECT_COMMAND_H_
