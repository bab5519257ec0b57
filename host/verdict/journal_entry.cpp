#include "host/verdict/journal_entry.h"

#include <cctype>

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
  const Json object = verdict_object(verdict);
  for (const auto& [key, value] : object.items()) {
    if (value.is_null() || value.is_structured() || key == "time") {
      continue;
    }
    std::string name = "TASKWARDEN_";
    for (const char c : key) {
      name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    fields.emplace_back(name, value.is_string() ? value.get<std::string>() : json_line(value));
  }
  return fields;
}

}  // namespace host
