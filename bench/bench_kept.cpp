// Visits that read only what ran, beside visits that read all, over one population. Run it in a pid
// namespace of its own: a pass begins with a scan, and takes in whatever there is.
#include <string>

#include "measure.h"
#include "platform/process_calls.h"
#include "proctable/kept_visits.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "raw_calls.h"
#include "subject.h"
#include "taskwarden/taskwarden.h"

namespace {

enum class Visits { kOnlyWhatRan, kEvery };

// A measurement of `work` over a population, of which the table is as `visits` says; `prepare` runs
// untimed before each, with the number of the pass.
template <typename Prepare, typename Work>
void add(const std::string& group, const std::string& variant, const std::string& population,
         Visits visits, benchmark::IterationCount passes, Prepare prepare, Work work) {
  benchmark::RegisterBenchmark((group + "/" + population + "/" + variant).c_str(),
                               [=](benchmark::State& state) {
                                 Subject& s = subject(population);
                                 s.table.visit_only_what_ran(visits == Visits::kOnlyWhatRan);
                                 RawVisits raw(s.population.pids());
                                 size_t pass = 0;
                                 measure(
                                     state, s.population.pids().size(), [&] { prepare(s, pass++); },
                                     [&] { return work(s, raw); });
                                 require(s.table.totals() == s.totals && s.table.quiet(),
                                         "the visits found something else");
                               })
      ->Iterations(passes)
      ->Unit(benchmark::kMillisecond);
}

constexpr benchmark::IterationCount kAllTurns = TW_READING_RHYTHM;  // each is read in its turn once
constexpr benchmark::IterationCount kFew = 5;

// A whole pass. Between two of them one process in `one_in` runs.
void add_passes(const std::string& group, const std::string& population, size_t one_in,
                benchmark::IterationCount full_passes) {
  const auto wake = [one_in](Subject& s, size_t pass) {
    const size_t count = s.population.pids().size() / one_in;
    s.population.wake(pass * count, count);
  };
  const auto pass = [](Subject& s, RawVisits&) { return s.table.scan_and_visit_all(); };
  add(group, "ours", population, Visits::kOnlyWhatRan, kAllTurns, wake, pass);
  add(group, "every_visit", population, Visits::kEvery, full_passes, wake, pass);
  add(group, "raw", population, Visits::kEvery, full_passes, wake,
      [](Subject&, RawVisits& raw) { return raw.plain(); });
}

// The visits of processes that have not run and whose turn has not come.
void add_idle(const std::string& population) {
  const auto put_off = [](Subject& s, size_t) { s.table.put_off_readings(); };
  const auto visits = [](Subject& s, RawVisits&) { return s.table.visit_all(); };
  add("idle", "ours", population, Visits::kOnlyWhatRan, kAllTurns, put_off, visits);
  add("idle", "every_visit", population, Visits::kEvery, kFew, put_off, visits);
  add("idle", "cpu_clocks", population, Visits::kEvery, kAllTurns, put_off,
      [](Subject& s, RawVisits&) {
        bool ok = true;
        for (const pid_t pid : s.population.pids()) {
          uint64_t ns;
          ok &= tw_read_cpu_clock(static_cast<uint32_t>(pid), &ns) == CpuClock::kRead;
        }
        return ok;
      });
}

// The scan with nothing new in it.
void add_rescan(const std::string& population) {
  const auto nothing = [](Subject&, size_t) {};
  constexpr benchmark::IterationCount kScans = 100;
  const auto scan = [](Subject&, RawVisits&) {
    return tw_process_list_refresh(tw_process_list_create()) >= 0;
  };
  add("rescan", "ours", population, Visits::kOnlyWhatRan, kScans, nothing, scan);
  add("rescan", "every_visit", population, Visits::kEvery, kScans, nothing, scan);
  add("rescan", "raw", population, Visits::kEvery, kScans, nothing,
      [](Subject&, RawVisits&) { return raw_list("/proc"); });
}

}  // namespace

int main(int argc, char** argv) {
  prepare_library();
  add_passes("pass", "300", 100, kAllTurns);
  add_passes("pass", "3000", 100, kFew);
  add_passes("pass", "10000", 100, kFew);
  add_passes("all_ran", "1000", 1, kFew);
  add_idle("3000");
  add_rescan("3000");
  return run_benchmarks(argc, argv);
}
