#include "host/record_format.h"

#include <time.h>

#include <cstdio>
#include <nlohmann/json.hpp>

namespace host {
namespace {

std::string iso_time(std::chrono::system_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - seconds);
  const time_t clock = std::chrono::system_clock::to_time_t(seconds);
  tm parts = {};
  ::gmtime_r(&clock, &parts);
  char date[32];
  char milliseconds[8];
  ::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(milliseconds, sizeof(milliseconds), ".%03uZ", static_cast<unsigned>(rest.count()));
  return std::string(date) + milliseconds;
}

}  // namespace

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
