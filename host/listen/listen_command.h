// `taskwarden listen`: the receiving end of the record socket alone.
#ifndef HOST_LISTEN_LISTEN_COMMAND_H_
#define HOST_LISTEN_LISTEN_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace host {

// Adds the command to `app`. When `app` has parsed it, `*chosen` runs it on the calling thread,
// main()'s, with the signals blocked as block_signals() says, and returns the exit status of the
// program. `chosen` must outlive the parsing.
//
// `*arguments` are those that `app` is to parse, in their order. What follows the first word of
// --exec belongs to that command and is taken out, since it may look like options.
void add_listen_command(CLI::App& app, std::vector<std::string>* arguments,
                        std::function<int()>* chosen);

}  // namespace host

#endif  // HOST_LISTEN_LISTEN_COMMAND_H_
