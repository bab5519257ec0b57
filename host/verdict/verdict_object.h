// Verdicts as JSON, in the log and in the feed. Any thread.
#ifndef HOST_VERDICT_VERDICT_OBJECT_H_
#define HOST_VERDICT_VERDICT_OBJECT_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/common/json_line.h"
#include "host/verdict/told_verdict.h"

namespace host {

// Its members; what is unknown is null:
//   time, since             UTC with milliseconds
//   pid, start, name, unit  the process; `start` in clock ticks after boot
//   resource, state         as of judge::resource_name() and judge::state_name()
//   from, now, limit        kB for memory, else counts
//   rate_per_hour, seconds_to_limit
//   evidence                a clause
//   explanation             an array of lines, if there are any; further members have the same
// Strings are the bytes that came.
Json verdict_object(const ToldVerdict& verdict);

// The members that are known and single values, as texts, with names in capitals: PID, START, NAME,
// RATE_PER_HOUR and so on.
std::vector<std::pair<std::string, std::string>> verdict_fields(const ToldVerdict& verdict);

// The object back. Nothing where a member is missing or is not what it should be.
std::optional<ToldVerdict> verdict_of(const Json& object);

// The wall clock of an iso_time(); nothing for other texts.
std::optional<std::chrono::system_clock::time_point> parse_iso_time(const std::string& text);

}  // namespace host

#endif  // HOST_VERDICT_VERDICT_OBJECT_H_
