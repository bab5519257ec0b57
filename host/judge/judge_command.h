// `taskwarden judge`: recorded samples in, verdicts out.
#ifndef HOST_JUDGE_JUDGE_COMMAND_H_
#define HOST_JUDGE_JUDGE_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>

namespace host {

// Adds the command to `app`. When it has been parsed, `*chosen` runs it on the calling thread and
// returns the exit status of the program; else it is left alone. `chosen` must outlive the parsing.
void add_judge_command(CLI::App& app, std::function<int()>* chosen);

}  // namespace host

#endif  // HOST_JUDGE_JUDGE_COMMAND_H_
