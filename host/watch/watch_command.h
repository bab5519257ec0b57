// `taskwarden watch`: the library's host. Gives it a thread, two outputs and the signals.
#ifndef HOST_WATCH_WATCH_COMMAND_H_
#define HOST_WATCH_WATCH_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace host {

// Adds the command to `app`. When `app` has parsed it, `*chosen` runs it on the calling thread,
// main()'s, with the signals blocked as block_signals() says, and returns the exit status of the
// program. main() is to return that at once: the library's thread and those beside it run until the
// process ends. `chosen` must outlive the parsing. Once per process.
//
// `*arguments` are those that `app` is to parse, in their order; the options of the file that
// --config names are added to them. Throws WrongUsage where that file is wrong.
void add_watch_command(CLI::App& app, std::vector<std::string>* arguments,
                       std::function<int()>* chosen);

}  // namespace host

#endif  // HOST_WATCH_WATCH_COMMAND_H_
