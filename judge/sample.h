// What goes into the judge and what comes out: plain records.
#ifndef JUDGE_SAMPLE_H_
#define JUDGE_SAMPLE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace judge {

constexpr int64_t kUnknown = -1;

// One look at one process. A number that was not read is kUnknown.
struct Sample {
  double time = 0;           // seconds since any origin, on a clock that goes on through a suspend
  int32_t pid = 0;           // with `start`, the identity of the process
  int64_t start = kUnknown;  // field 22 of /proc/<pid>/stat, see proc(5)
  std::string_view name{};   // any bytes; the caller's, for the length of the call
  int64_t resident_kb = kUnknown;
  int64_t swap_kb = kUnknown;  // counts as the process's memory where it is known
  int64_t threads = kUnknown;
  int64_t open_files = kUnknown;
  int64_t memory_limit_kb = kUnknown;      // the size at which this process fills its control group
  int64_t memory_available_kb = kUnknown;  // what the whole system can still hand out
  int64_t threads_limit = kUnknown;
  int64_t open_files_limit = kUnknown;  // the soft limit
};

enum class Resource : uint8_t { kMemory, kThreads, kOpenFiles };
constexpr size_t kResources = 3;

enum class State : uint8_t { kNone, kSuspected, kConfirmed, kUrgent, kEnded };

// Why a verdict is given. `span` is the time that the evidence covers, in seconds.
struct Evidence {
  enum class Kind : uint8_t {
    kGrowth,        // the floor rose all through `span`
    kSameHour,      // every hour's floor stands above that of the same hour a day before
    kFellBack,      // the floor is down again
    kStopped,       // no new height for `span`
    kProcessEnded,  // it ended, or became another program
  };
  Kind kind = Kind::kGrowth;
  double span = 0;
};

// A change of state. Levels are kB for memory, counts for the others.
struct Verdict {
  double time = 0;  // of the sample that led to it
  int32_t pid = 0;
  int64_t start = kUnknown;
  std::string_view name{};  // valid during the call
  Resource resource = Resource::kMemory;
  State state = State::kNone;
  double from = 0;                           // the level when the growth began ...
  double now = 0;                            // ... and the last that was read
  double since = 0;                          // when it began, on the clock of the samples
  std::optional<double> rate_per_hour{};     // at present; none where it ended
  std::optional<double> limit{};             // the nearest one that is known
  std::optional<double> seconds_to_limit{};  // at this rate; none without a rate or a limit
  Evidence evidence{};
};

// "memory", "threads", "open_files".
const char* resource_name(Resource resource);
// "suspected", "confirmed", "urgent", "ended".
const char* state_name(State state);
// One clause, such as "its floor rose all through 14 hours".
std::string evidence_clause(const Evidence& evidence);

}  // namespace judge

#endif  // JUDGE_SAMPLE_H_
