#include "host/listen/hook_fields.h"

#include <string>

#include "host/common/time_words.h"
#include "host/verdict/sentence.h"
#include "host/verdict/verdict_object.h"

namespace host {
namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

}  // namespace

HookFields hook_fields(const Record& record, const Sender& sender, const ProcessView& view,
                       std::chrono::system_clock::time_point arrival) {
  HookFields fields = {{"TIME", iso_time(arrival)},
                       {"PID", std::to_string(record.pid)},
                       {"VALUE", std::to_string(record.value)},
                       {"EVENT", record.event},
                       {"NAME", record.name},
                       {"DETAIL", record.detail},
                       {"SENDER_UID", std::to_string(sender.uid)},
                       {"SENDER_PID", std::to_string(sender.pid)}};
  if (!view.cgroup.empty()) {
    fields.emplace_back("CGROUP", view.cgroup);
  }
  if (!view.command.empty()) {
    fields.emplace_back("COMMAND_LINE", joined(view.command));
  }
  return fields;
}

HookFields hook_fields(const ToldVerdict& verdict) {
  HookFields fields = verdict_fields(verdict);
  fields.emplace_back("VERDICT", verdict_sentence(verdict));
  return fields;
}

}  // namespace host
