#include "host/record_format.h"

#include <nlohmann/json.hpp>

#include "host/iso_time.h"

namespace host {

std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival) {
  const nlohmann::ordered_json object = {
      {"time", iso_time(arrival)}, {"pid", record.pid},        {"value", record.value},
      {"event", record.event},     {"name", record.name},      {"detail", record.detail},
      {"sender_uid", sender.uid},  {"sender_pid", sender.pid},
  };
  return object.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace host
