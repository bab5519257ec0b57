// A verdict as it leaves the watch: with names of its own and on the wall clock. Plain records.
#ifndef HOST_VERDICT_TOLD_VERDICT_H_
#define HOST_VERDICT_TOLD_VERDICT_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/common/json_line.h"
#include "judge/sample.h"

namespace host {

struct ToldVerdict {
  using Time = std::chrono::system_clock::time_point;

  Time time{};  // of the sample that led to it
  int32_t pid = 0;
  int64_t start = judge::kUnknown;  // clock ticks after boot, see proc(5)
  std::string name{};               // any bytes, without "#pid"
  std::string unit{};               // of systemd, or a container; empty if it has neither
  judge::Resource resource = judge::Resource::kMemory;
  judge::State state = judge::State::kNone;
  double from = 0;  // levels: kB or a count
  double now = 0;
  Time since{};
  std::optional<double> rate_per_hour{};
  std::optional<double> limit{};
  std::optional<double> seconds_to_limit{};
  std::string evidence{};                  // a clause
  std::vector<std::string> explanation{};  // lines for people, escaped, such as what grew
  Json details{};                          // the same as members of an object, or null
};

// Adds an explanation to a verdict, on the thread that judges: at the first suspicion and at each
// later state, before it is told.
using ExplainFn = std::function<void(ToldVerdict*)>;

}  // namespace host

#endif  // HOST_VERDICT_TOLD_VERDICT_H_
