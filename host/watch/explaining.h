// What `watch` explains: events and verdicts, each with who the process is and what grew in it.
#ifndef HOST_WATCH_EXPLAINING_H_
#define HOST_WATCH_EXPLAINING_H_

#include <cstdint>
#include <optional>
#include <string>

#include "host/explain/explanation.h"
#include "host/verdict/told_verdict.h"
#include "host/watch/explainer.h"
#include "taskwarden/observers.h"

namespace host {

struct ExplainOptions {
  bool off = false;
  bool no_arguments = false;
  std::string proc_root = "/proc";
};

// What is to be asked about an event; nothing for those that are about no process.
std::optional<Question> question_about(const taskwarden_event& event);

// Begins to explain. Once; returns the explainer of events, or null if nothing is to be explained
// or no thread can be had, which is said. What it returns lives until the process ends.
Explainer* start_explaining(const ExplainOptions& options);

// What explains verdicts from then on; empty without start_explaining(). The first look is taken
// when something is suspected first.
ExplainFn verdict_explainer();

// Waits, half a second at the most, until all that is queued is written, from now on without
// explanations.
void end_explaining();
// Says how many events there was no time to explain, if there were any.
void say_unexplained();

}  // namespace host

#endif  // HOST_WATCH_EXPLAINING_H_
