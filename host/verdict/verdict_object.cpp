#include "host/verdict/verdict_object.h"

#include <time.h>

#include <cctype>
#include <cmath>
#include <cstdio>

#include "host/common/time_words.h"

namespace host {
namespace {

// Beyond it doubles are not exact, and no level is real.
constexpr double kMost = 0x1p53;

Json whole(double value) {
  return std::fabs(value) < kMost ? Json(std::llround(value)) : Json();
}

Json whole(const std::optional<double>& value) {
  return value ? whole(*value) : Json();
}

std::optional<double> number(const Json& value) {
  return value.is_number() ? std::optional(value.get<double>()) : std::nullopt;
}

// The value of `Kind` that goes by `name`, of those up to `last`.
template <typename Kind>
std::optional<Kind> named(const std::string& name, const char* (*name_of)(Kind), Kind last) {
  for (uint8_t i = 0; i <= static_cast<uint8_t>(last); ++i) {
    if (name == name_of(static_cast<Kind>(i))) {
      return static_cast<Kind>(i);
    }
  }
  return std::nullopt;
}

}  // namespace

Json verdict_object(const ToldVerdict& verdict) {
  Json object = {
      {"time", iso_time(verdict.time)},
      {"pid", verdict.pid},
      {"start", verdict.start < 0 ? Json() : Json(verdict.start)},
      {"name", verdict.name},
      {"unit", verdict.unit.empty() ? Json() : Json(verdict.unit)},
      {"resource", judge::resource_name(verdict.resource)},
      {"state", judge::state_name(verdict.state)},
      {"from", whole(verdict.from)},
      {"now", whole(verdict.now)},
      {"since", iso_time(verdict.since)},
      {"rate_per_hour",
       verdict.rate_per_hour ? Json(std::round(*verdict.rate_per_hour * 100) / 100) : Json()},
      {"limit", whole(verdict.limit)},
      {"seconds_to_limit", whole(verdict.seconds_to_limit)},
      {"evidence", verdict.evidence},
  };
  if (!verdict.explanation.empty()) {
    object["explanation"] = verdict.explanation;
  }
  if (verdict.details.is_object()) {
    object.update(verdict.details);
  }
  return object;
}

std::vector<std::pair<std::string, std::string>> verdict_fields(const ToldVerdict& verdict) {
  std::vector<std::pair<std::string, std::string>> fields;
  const Json object = verdict_object(verdict);
  for (const auto& [key, value] : object.items()) {
    if (value.is_null() || value.is_structured()) {
      continue;
    }
    std::string name;
    for (const char c : key) {
      name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    fields.emplace_back(name, value.is_string() ? value.get<std::string>() : json_line(value));
  }
  return fields;
}

std::optional<std::chrono::system_clock::time_point> parse_iso_time(const std::string& text) {
  tm parts = {};
  int milliseconds = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &parts.tm_year, &parts.tm_mon,
                  &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec,
                  &milliseconds) != 7) {
    return std::nullopt;
  }
  parts.tm_year -= 1900;
  parts.tm_mon -= 1;
  return std::chrono::system_clock::from_time_t(::timegm(&parts)) +
         std::chrono::milliseconds(milliseconds);
}

std::optional<ToldVerdict> verdict_of(const Json& object) {
  try {
    const auto time = parse_iso_time(object.at("time"));
    const auto since = parse_iso_time(object.at("since"));
    const auto resource =
        named(object.at("resource"), judge::resource_name, judge::Resource::kOpenFiles);
    const auto state = named(object.at("state"), judge::state_name, judge::State::kEnded);
    if (!time || !since || !resource || !state) {
      return std::nullopt;
    }
    const Json& start = object.at("start");
    const Json& unit = object.at("unit");
    return ToldVerdict{
        .time = *time,
        .pid = object.at("pid"),
        .start = start.is_null() ? judge::kUnknown : start.get<int64_t>(),
        .name = object.at("name"),
        .unit = unit.is_null() ? std::string() : unit.get<std::string>(),
        .resource = *resource,
        .state = *state,
        .from = number(object.at("from")).value_or(0),
        .now = number(object.at("now")).value_or(0),
        .since = *since,
        .rate_per_hour = number(object.at("rate_per_hour")),
        .limit = number(object.at("limit")),
        .seconds_to_limit = number(object.at("seconds_to_limit")),
        .evidence = object.at("evidence"),
        .explanation = object.value("explanation", std::vector<std::string>()),
    };
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

}  // namespace host
