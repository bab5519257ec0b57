#include "host/events/events_command.h"

#include <memory>
#include <string>

#include "host/common/event_kinds.h"
#include "host/common/json_line.h"
#include "host/common/output.h"

namespace host {
namespace {

constexpr char kFooter[] =
    R"(Prints each kind of event with its unit, what it measures, and when it is raised. The most important
ones also send records. Those that are not in the log reach only programs that host the library.

With --json each line is one object:
  event, id               name and number
  about                   "process", "processes" or "memory" (of the machine)
  what, unit              what is measured; the unit is null if nothing is
  rule                    when the event is raised
  logged, record          whether the log has it, and whether it sends a record

Exit status: 0 on success, 1 when standard output fails, 2 on wrong usage.

Example: taskwarden events --json | jq -r 'select(.record).event')";

const char* about(int32_t about) {
  return about == TASKWARDEN_ABOUT_PROCESS     ? "process"
         : about == TASKWARDEN_ABOUT_PROCESSES ? "processes"
                                               : "memory";
}

std::string line(const taskwarden_event_kind& kind) {
  return json_line({{"event", kind.name},
                    {"id", kind.id},
                    {"about", about(kind.about)},
                    {"what", kind.what},
                    {"unit", *kind.unit != '\0' ? Json(kind.unit) : Json()},
                    {"rule", kind.rule},
                    {"logged", is_logged(kind)},
                    {"record", kind.has_record != 0}});
}

std::string text(const taskwarden_event_kind& kind) {
  std::string head = kind.name;
  const auto add = [&head](const std::string& note) { head += note.empty() ? "" : ", " + note; };
  add(kind.unit);
  add(is_logged(kind) ? "" : "not in the log");
  add(kind.has_record != 0 ? "sends a record" : "");
  return head + "\n    " + kind.what + ": " + kind.rule;
}

int run(bool json) {
  bool written = true;
  for (const taskwarden_event_kind* kind : event_kinds()) {
    written = written && write_line(Stream::kOut, json ? line(*kind) : text(*kind));
  }
  return written ? 0 : 1;
}

}  // namespace

void add_events_command(CLI::App& app, std::function<int()>* chosen) {
  const auto json = std::make_shared<bool>(false);
  CLI::App& command = *app.add_subcommand("events", "Print the events that a watch knows");
  command.footer(kFooter);
  command.add_flag("--json", *json, "Print objects instead of text");
  command.callback([=] { *chosen = [json] { return run(*json); }; });
}

}  // namespace host
