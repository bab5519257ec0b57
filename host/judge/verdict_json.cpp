#include "host/judge/verdict_json.h"

#include <cmath>

#include "host/common/json_line.h"

namespace host {
namespace {

// Whole numbers without a point, as far as doubles are exact.
Json number(double value) {
  const bool whole = value == std::floor(value) && std::fabs(value) < 0x1p53;
  return whole ? Json(static_cast<int64_t>(value)) : Json(value);
}

Json whole(const std::optional<double>& value) {
  return value ? number(std::round(*value)) : Json();
}

}  // namespace

std::string verdict_json(const judge::Verdict& verdict) {
  Json object;
  object["time"] = number(verdict.time);
  object["pid"] = verdict.pid;
  object["start"] = verdict.start < 0 ? Json() : Json(verdict.start);
  object["name"] = verdict.name;
  object["resource"] = judge::resource_name(verdict.resource);
  object["state"] = judge::state_name(verdict.state);
  object["from"] = number(std::round(verdict.from));
  object["now"] = number(std::round(verdict.now));
  object["since"] = number(verdict.since);
  object["rate_per_hour"] =
      verdict.rate_per_hour ? number(std::round(*verdict.rate_per_hour * 100) / 100) : Json();
  object["limit"] = whole(verdict.limit);
  object["seconds_to_limit"] = whole(verdict.seconds_to_limit);
  object["evidence"] = judge::evidence_clause(verdict.evidence);
  return json_line(object);
}

}  // namespace host
