#include "host/watch/explaining.h"

#include <chrono>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/common/event_kinds.h"
#include "host/common/output.h"

namespace host {
namespace {

using namespace std::chrono_literals;

// Never destroyed: the threads that use them run until the process ends.
Explanations* explanations = nullptr;
Explainer* explainer = nullptr;

Part part_of(std::string_view unit) {
  return unit == "threads" ? Part::kThreads : unit == "kB" ? Part::kMemory : Part::kFiles;
}

Part part_of(judge::Resource resource) {
  return resource == judge::Resource::kMemory    ? Part::kMemory
         : resource == judge::Resource::kThreads ? Part::kThreads
                                                 : Part::kFiles;
}

void explain_verdict(ToldVerdict* verdict) {
  const Explanation told = explanations->explain({
      .pid = verdict->pid,
      .start = verdict->start > 0 ? static_cast<uint64_t>(verdict->start) : 0,
      .name = verdict->name,
      .part = part_of(verdict->resource),
      .for_verdict = true,
      .is_first = verdict->state == judge::State::kSuspected,
  });
  if (told.is_empty()) {
    return;
  }
  for (std::string line : told.lines()) {
    // Below the verdict, all are rows.
    line = line.starts_with("-> ") ? line.substr(3) : "  " + line.substr(2);
    verdict->explanation.push_back(std::move(line));
  }
  verdict->details = Json::object();
  told.add_to(&verdict->details);
}

}  // namespace

std::optional<Question> question_about(const taskwarden_event& event) {
  if (event.kind == nullptr || event.kind->about != TASKWARDEN_ABOUT_PROCESS ||
      !is_logged(*event.kind)) {
    return std::nullopt;
  }
  return Question{.pid = event.pid,
                  .start = event.start_time,
                  .name = std::string(event.process.data, event.process.length),
                  .part = part_of(event.kind->unit)};
}

Explainer* start_explaining(const ExplainOptions& options) {
  if (options.off) {
    return nullptr;
  }
  explanations =
      new Explanations({.proc_root = options.proc_root, .no_arguments = options.no_arguments});
  auto* const started =
      new Explainer([](const Question& question) { return explanations->explain(question); });
  try {
    started->start();
    explainer = started;
  } catch (const std::system_error& error) {
    say(std::string("events are not explained: ") + error.what());
  }
  return explainer;
}

ExplainFn verdict_explainer() {
  return explanations != nullptr ? explain_verdict : ExplainFn();
}

void end_explaining() {
  if (explainer == nullptr) {
    return;
  }
  explainer->finish(std::chrono::steady_clock::now() + 500ms);
}

void say_unexplained() {
  if (const uint64_t dropped = explainer != nullptr ? explainer->dropped() : 0; dropped != 0) {
    say("events that there was no time to explain: " + std::to_string(dropped));
  }
}

}  // namespace host
