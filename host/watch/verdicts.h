// All that `watch` does about verdicts, and its options: judges, prints, records,
// and feeds others.
#ifndef HOST_WATCH_VERDICTS_H_
#define HOST_WATCH_VERDICTS_H_

#include <CLI/CLI.hpp>
#include <string>

#include "judge/sample.h"

namespace host {

struct VerdictOptions {
  bool off = false;
  judge::State alert_on = judge::State::kConfirmed;
  std::string record{};  // file; empty for none
  std::string state{};   // likewise, for the default
  bool no_state = false;
  std::string feed{};  // path of its socket; empty for the default
  bool no_feed = false;
};

// Adds the options to `command`.
void add_verdict_options(CLI::App& command, VerdictOptions* options);

// Begins to judge. Once, when the log has started and before the library has. False, with a line
// that says why, if that cannot be.
bool start_verdicts(const VerdictOptions& options, const std::string& proc_root);

// Keeps the state for the next watch, and says what was seen. At the end of the program.
void end_verdicts();

}  // namespace host

#endif  // HOST_WATCH_VERDICTS_H_
