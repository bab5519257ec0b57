#include "host/common/record_format.h"

#include "host/common/time_words.h"

namespace host {

Json record_object(const Record& record, const Sender& sender,
                   std::chrono::system_clock::time_point arrival) {
  return {
      {"time", iso_time(arrival)}, {"pid", record.pid},        {"value", record.value},
      {"event", record.event},     {"name", record.name},      {"detail", record.detail},
      {"sender_uid", sender.uid},  {"sender_pid", sender.pid},
  };
}

std::string record_json(const Record& record, const Sender& sender,
                        std::chrono::system_clock::time_point arrival) {
  return json_line(record_object(record, sender, arrival));
}

}  // namespace host
