// `taskwarden events`: the kinds of events, as the library knows them.
#ifndef HOST_EVENTS_EVENTS_COMMAND_H_
#define HOST_EVENTS_EVENTS_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>

namespace host {

// Adds the command to `app`. When `app` has parsed it, `*chosen` runs it on the calling thread and
// returns the exit status of the program. `chosen` must outlive the parsing.
void add_events_command(CLI::App& app, std::function<int()>* chosen);

}  // namespace host

#endif  // HOST_EVENTS_EVENTS_COMMAND_H_
