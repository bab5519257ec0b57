// All that `watch` does about verdicts, and its options: judges, prints, records,
// and feeds others.
#ifndef HOST_WATCH_VERDICTS_H_
#define HOST_WATCH_VERDICTS_H_

#include <CLI/CLI.hpp>
#include <string>

#include "host/watch/print_filter.h"
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
// that says why, if that cannot be. `filter`, of what is printed, lives until the process ends;
// null for none. `carried` is what carry_verdicts() gave, if it did.
bool start_verdicts(const VerdictOptions& options, const std::string& proc_root,
                    const PrintFilter* filter, const std::string& carried = {});

// What goes on when the program begins anew in its own place, as bytes: the judge and the counts.
// Without the judge, if its thread does not let go of it in half a second. Any thread.
std::string carry_verdicts();

// Keeps the state for the next watch, and says what was seen. At the end of the program.
void end_verdicts();

}  // namespace host

#endif  // HOST_WATCH_VERDICTS_H_
