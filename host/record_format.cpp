#include "host/record_format.h"

#include <nlohmann/json.hpp>

#include "host/escape.h"
#include "host/iso_time.h"

namespace host {

namespace {

using Json = nlohmann::ordered_json;

Json object_of(const Record& record, const Sender& sender,
               std::chrono::system_clock::time_point arrival) {
  return {
      {"time", iso_time(arrival)}, {"pid", record.pid},        {"value", record.value},
      {"event", record.event},     {"name", record.name},      {"detail", record.detail},
      {"sender_uid", sender.uid},  {"sender_pid", sender.pid},
  };
}

std::string line_of(const Json& object) {
  return object.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival) {
  return line_of(object_of(record, sender, arrival));
}

std::string record_json(const Record& record, const Sender& sender, const ProcessView& view,
                        std::chrono::system_clock::time_point arrival) {
  Json object = object_of(record, sender, arrival);
  object["cgroup"] = view.cgroup ? Json(*view.cgroup) : Json();
  object["command_line"] = view.command.empty() ? Json() : Json(view.command);
  return line_of(object);
}

std::string view_text(const ProcessView& view) {
  std::string text;
  if (view.cgroup) {
    text += "\tcontrol group: " + escape_text(*view.cgroup) + "\n";
  }
  for (const std::string& word : view.command) {
    text += (&word == &view.command.front() ? "\tcommand line: " : " ") + escape_text(word);
  }
  return text + (view.command.empty() ? "" : "\n");
}

}  // namespace host
