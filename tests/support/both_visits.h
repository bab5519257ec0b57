// One population, looked at by two watches in processes of their own: one that reads every process
// at every visit, one that keeps the numbers of what did not run. Both have the same clock, which
// stands but for the passes.
#ifndef TESTS_SUPPORT_BOTH_VISITS_H_
#define TESTS_SUPPORT_BOTH_VISITS_H_

#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/unique_fd.h"
#include "support/child.h"
#include "support/record_listener.h"

// Whether no thread of the process runs or is about to.
bool is_asleep(pid_t pid);

// What a watch found in a pass.
struct Account {
  std::string told;  // reports, failures and records
  int natives = 0;   // children of the first process
  std::map<pid_t, std::string> numbers, levels;
  std::map<pid_t, pid_t> parents;
};

// A watch of all descendants of the process that makes it, but for watches.
class WatchProcess {
 public:
  explicit WatchProcess(bool only_what_ran);
  ~WatchProcess();
  WatchProcess& operator=(WatchProcess&&) = delete;  // nor any copy

  // One pass over `pids`, 2 s after the last.
  Account pass(const std::vector<pid_t>& pids, RecordListener& records);
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
  unique_fd orders_, answers_;
};

class BothVisits {
 public:
  // Makes the watches and the population, whose moves follow from `seed`.
  explicit BothVisits(unsigned seed);
  ~BothVisits();
  BothVisits& operator=(BothVisits&&) = delete;  // nor any copy

  // Moves some, waits until all sleep, and has both watches make a few passes, until `end`. Throws
  // where they differ.
  void compare_until(std::chrono::steady_clock::time_point end);
  // Has the population move while the watches look. Their numbers differ only of processes that ran
  // meanwhile, or by what the limits of kept visits allow; throws otherwise.
  void run_free_until(std::chrono::steady_clock::time_point end);

  // What happened so far: passes, moves, events, explained differences.
  const std::map<std::string, int>& counts() const { return counts_; }

 private:
  void move();
  void settle();
  std::vector<pid_t> population();
  int at_most(int n) { return std::uniform_int_distribution<int>(0, n)(random_); }

  std::mt19937 random_;
  RecordListener records_{64};
  WatchProcess full_{false}, kept_{true};
  std::vector<std::unique_ptr<Child>> actors_, ended_;
  Account before_;  // of the full watch
  std::map<std::string, int> counts_;
};

#endif  // TESTS_SUPPORT_BOTH_VISITS_H_
