// Who leaks: samples of processes in, verdicts out. Pure arithmetic: no file, no clock, no thread,
// and no allocation but for the table of processes. The same samples give the same verdicts.
//
// The method, for each resource of each process:
//
// - Floors. Only minima over windows of 1 minute, 8 minutes and 1 hour are kept (floors.h), up to
// 72
//   hours of them. Bursts, collections of garbage and spikes do not show in a minimum. A window
//   without a sample is unknown, so a gap or a suspend is missing time and not growth.
// - Suspected. The last 13 minutes, the last 104 minutes or the last 9 hours rose by 5 % at least,
//   evenly: every quarter of them took part, and the later half no less than the earlier.
// - Confirmed. The same over 15 hours to 3 days, with what tells leaks from healthy growth, in two
//   looks an hour apart (rules.h):
//     A cache that fills and a warm-up die away. The growth may not have been faster before, and it
//     has to be straighter than a logarithm of the age, by more than the scatter of the floors may
//     deceive.
//     A daily load comes back. The floor has to stand above all that was before.
//     What fills with the work grows unevenly, as the work does. Up to a day of growth counts only
//     if it is smooth: the floors lie close to a curve. After that it has lasted through every hour
//     of the day.
//     A step of the configuration is one rise. There have to be several.
//   Minima over 4 and 8 hours find what hides below a slow sawtooth. Under a strong daily load each
//   hour is compared with the same hour of the day before, for 30 hours.
// - Urgent. At its rate a limit is reached within the hour, and it grew in 8 windows at least, to
//   heights not seen before. What is confirmed counts with what it needs above its floor, as its
//   last hours show, and with the rate of its fastest hours: a limit is reached by peaks and
//   bursts. What is not confirmed has to be 50 minutes from the limit, and to have grown for twice
//   the time that is left.
// - Ended. It fell back, or had no new height for 26 hours (of what was only suspected: for twice
//   the time of the evidence, 30 minutes to 12 hours), or the process ended. For 25 hours after an
//   alert there is no other one, except that what is confirmed may become urgent.
#ifndef JUDGE_JUDGE_H_
#define JUDGE_JUDGE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include "judge/history.h"
#include "judge/sample.h"

namespace judge {

class Judge {
 public:
  using Tell = std::function<void(const Verdict&)>;

  // Calls `tell` with each change of state, from within take() and end(), which it must not call.
  explicit Judge(Tell tell) : tell_(std::move(tell)) {}

  // Takes a sample. Samples come in order of time; one that is older than the last of its process
  // is left out. Another start time means that the pid was used again, and a new name together with
  // a memory that is another by half an exec: either begins a new history. A process without a
  // sample for 25 minutes, while others have some, has ended.
  void take(const Sample& sample);
  // The process has ended at `time`. Nothing happens if it is not known.
  void end(int32_t pid, double time);

  size_t processes() const { return processes_.size(); }
  // Seconds that samples came in, gaps left out.
  double watched() const { return watched_; }
  // Calls `show` with everything that is suspected, confirmed or urgent now, in no order: with the
  // level, rate, limit and evidence at the last sample of its process.
  void for_each_told(const Tell& show) const;

 private:
  friend struct SavedState;

  struct Process {
    int64_t start = kUnknown;
    double first = 0;    // time of the first sample
    double last = 0;     // ... and of the last
    double watched = 0;  // watched_ at the last
    int64_t memory_kb = kUnknown;
    uint32_t minute = 0;  // of the last sample
    std::string name{};
    History histories[kResources]{};

    uint32_t minute_at(double time) const {
      return static_cast<uint32_t>(std::min((time - first) / 60, 4e9));
    }
  };

  Process& find(const Sample& sample, int64_t memory_kb);
  static Verdict verdict_of(int32_t pid, const Process& process, Resource resource,
                            const Change& change);
  void end_all(int32_t pid, Process& process, double time);
  void forget_lost(double time);

  Tell tell_;
  std::unordered_map<int32_t, Process> processes_{};
  double last_ = 0;     // time of the last sample of any process
  double watched_ = 0;  // seconds watched, gaps left out
  double swept_ = 0;    // watched_ at the last search for lost processes
};

}  // namespace judge

#endif  // JUDGE_JUDGE_H_
