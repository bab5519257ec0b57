// The judge of a running watch: copies of the table in, verdicts out. The cycle only copies
// (table_copy.h). Judging, reading limits and writing files happen on a thread of its own.
#ifndef HOST_WATCH_JUDGING_H_
#define HOST_WATCH_JUDGING_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/verdict/told_verdict.h"
#include "host/watch/limits.h"
#include "host/watch/sample_file.h"
#include "host/watch/state_file.h"
#include "host/watch/table_copy.h"
#include "judge/judge.h"

namespace host {

class Judging {
 public:
  // What a pass came to.
  struct Pass {
    uint32_t number = 0;
    uint32_t processes = 0;  // in the table
    uint32_t duration_ms = 0;
    uint32_t slices = 0;
    size_t judged = 0;  // no kernel tasks
  };
  // The same states as they stand now.
  using StandingFn = std::function<void(const std::vector<ToldVerdict>&)>;
  using TellFn = std::function<void(const ToldVerdict&)>;
  using PassFn = std::function<void(const Pass&)>;

  struct Options {
    LimitReader::Places places{};
    SampleFile* record = nullptr;  // open, or null
    std::string state{};           // file; empty for none
    std::string carried{};  // what bytes() gave, which is newer than the file; empty for none
    // On the judging thread, where they are there:
    ExplainFn explain{};
    TellFn tell{};          // each change of a state
    StandingFn standing{};  // all that is told: of a state that was loaded, and each minute
    PassFn after_pass{};    // after each pass that was judged
  };

  explicit Judging(Options options);

  // Has the library show its table, and starts the thread, which runs until the process ends, as
  // must this. Once. Throws std::system_error when the thread cannot be started.
  void start();

  // The state as bytes; empty if the judging thread does not let go of it in half a second. Any
  // thread.
  std::string bytes();
  // Keeps the state, unless the judging thread does not let go of it in half a second. For the end
  // of the program. Any thread.
  void save();

 private:
  // A process that is in the table.
  struct Watched {
    int32_t pid = 0;
    bool seen = false;  // in this pass
    int64_t start = -1;
    LimitReader::Place place{};
  };

  void run();
  void take(const SampledPass& pass);
  Watched& find(const SampledProcess& row, double now);
  void judge(const SampledPass& pass, const SampledProcess& row, Watched* watched);
  void end_others(double now);
  ToldVerdict told(const judge::Verdict& verdict) const;
  void tell(const judge::Verdict& verdict);
  std::vector<ToldVerdict> standing() const;

  const Options options_;
  TableCopy copy_;
  LimitReader limits_;
  std::mutex mutex_{};  // the judge and its file
  judge::Judge judge_;
  StateFile state_;
  std::vector<Watched> watched_{};  // by pid
  std::vector<Watched> fresh_{};    // those of this pass that are not among them yet
  double saved_ = 0;                // seconds after boot
  double shown_ = 0;                // likewise, of what is standing
  double record_origin_ = 0;        // of the times in the recorded samples
};

}  // namespace host

#endif  // HOST_WATCH_JUDGING_H_
