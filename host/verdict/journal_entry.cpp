#include "host/verdict/journal_entry.h"

#include "host/verdict/sentence.h"
#include "host/verdict/verdict_object.h"

namespace host {
namespace {

const char* priority(judge::State state) {
  return state == judge::State::kUrgent ? "2" : state == judge::State::kConfirmed ? "4" : "5";
}

}  // namespace

JournalFields journal_fields(const ToldVerdict& verdict) {
  std::string message = verdict_sentence(verdict);
  for (const std::string& line : verdict.explanation) {
    message += "\n" + line;
  }
  JournalFields fields = {{"MESSAGE", message},
                          {"PRIORITY", priority(verdict.state)},
                          {"SYSLOG_IDENTIFIER", "taskwarden"}};
  for (const auto& [name, value] : verdict_fields(verdict)) {
    if (name != "TIME") {
      fields.emplace_back("TASKWARDEN_" + name, value);
    }
  }
  return fields;
}

}  // namespace host
