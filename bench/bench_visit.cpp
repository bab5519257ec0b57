// The ordinary visit over whole populations, the slice, the bookkeeping of one visit, and, as an
// experiment, what it would cost to ask first whether a process has run at all.
#include <fcntl.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "inspect/open_files_count.h"
#include "measure.h"
#include "platform/unique_fd.h"
#include "raw_calls.h"
#include "subject.h"
#include "taskwarden/observers.h"
#include "transcription.h"

namespace {

constexpr int32_t kSliceBudgetMs = 60;

bool same_numbers(const tw_process_desc& a, const tw_process_desc& b) {
  return strcmp(a.name, b.name) == 0 && a.ppid == b.ppid && a.state == b.state &&
         a.threads == b.threads && a.fd_size == b.fd_size && a.vm_hwm_kb == b.vm_hwm_kb &&
         a.vm_rss_kb == b.vm_rss_kb && a.open_files == b.open_files;
}

// The transcription's records of a subject, checked once against the library's.
class Transcribed {
 public:
  explicit Transcribed(const Subject& subject)
      : subject_(subject), found_(subject.population.pids().size()) {
    require(visit(), "the transcription finds other totals than there are");
    const auto& pids = subject.population.pids();
    for (size_t i = 0; i < pids.size(); ++i) {
      require(same_numbers(found_[i], subject.table.entry(pids[i]).desc),
              "the transcription and the library differ on " + std::string(found_[i].name));
    }
  }
  void forget() {
    for (tw_process_desc& desc : found_) {
      desc.threads = 0;
    }
  }
  bool read() {
    bool ok = true;
    const auto& pids = subject_.population.pids();
    for (size_t i = 0; i < pids.size(); ++i) {
      ok &= transcription::visit(pids[i], &found_[i]);
    }
    return ok;
  }
  bool complete() const {
    TableTotals totals;
    for (const tw_process_desc& desc : found_) {
      totals.threads += desc.threads;
      totals.open_files += desc.open_files;
    }
    return totals == subject_.totals;
  }
  bool visit() { return read() && complete(); }

 private:
  const Subject& subject_;
  std::vector<tw_process_desc> found_;
};

struct VisitSubject {
  explicit VisitSubject(Subject& subject)
      : whole(subject), raw(subject.population.pids()), transcribed(subject) {}
  Subject& whole;
  RawVisits raw;
  Transcribed transcribed;
};

VisitSubject& visit_subject(const std::string& population) {
  static Subject* current = nullptr;
  static std::unique_ptr<VisitSubject> made;
  Subject& wanted = subject(population);
  if (current != &wanted || made == nullptr ||
      made->whole.population.pids() != wanted.population.pids()) {
    made = std::make_unique<VisitSubject>(wanted);
    current = &wanted;
  }
  return *made;
}

// `iterations` is chosen so that a measurement lasts some tenths of a second; as many passes as
// the rhythm of listings has meet every costly one of a mixed population exactly once.
void add_visits(const std::string& population, benchmark::IterationCount iterations) {
  const auto add = [&](const std::string& variant, auto run) {
    benchmark::RegisterBenchmark(("visit/" + population + "/" + variant).c_str(),
                                 [population, run](benchmark::State& state) {
                                   VisitSubject& s = visit_subject(population);
                                   run(state, s, s.whole.population.pids().size());
                                 })
        ->Iterations(iterations)
        ->Unit(benchmark::kMillisecond);
  };
  add("ours", [](benchmark::State& state, VisitSubject& s, size_t items) {
    measure(
        state, items, [&] { s.whole.table.forget(); }, [&] { return s.whole.visit(); });
    require(s.whole.table.quiet(), "an event fired during the measurement");
  });
  add("raw", [](benchmark::State& state, VisitSubject& s, size_t items) {
    measure(state, items, [&] { return s.raw.plain(); });
  });
  add("raw_own", [](benchmark::State& state, VisitSubject& s, size_t items) {
    measure(state, items, [&] { return s.raw.own(); });
  });
  add("transcription", [](benchmark::State& state, VisitSubject& s, size_t items) {
    measure(
        state, items, [&] { s.transcribed.forget(); }, [&] { return s.transcribed.visit(); });
  });
}

// Where the kernel spends the time of a visit.
void add_pieces(const std::string& population) {
  const auto add = [&](const std::string& variant, bool (RawVisits::*calls)() const) {
    benchmark::RegisterBenchmark(("pieces/" + population + "/" + variant).c_str(),
                                 [population, calls](benchmark::State& state) {
                                   const Population& processes = subject(population).population;
                                   const RawVisits raw(processes.pids());
                                   measure(state, processes.pids().size(),
                                           [&] { return (raw.*calls)(); });
                                 })
        ->Unit(benchmark::kMillisecond);
  };
  add("access", &RawVisits::accesses);
  add("status", &RawVisits::statuses);
  add("command_line", &RawVisits::command_lines);
  add("size", &RawVisits::sizes);
  add("listing", &RawVisits::listings);
}

// How many processes the slice of a pass takes in.
void add_slice(const std::string& population) {
  benchmark::RegisterBenchmark(("slice/" + population + "/ours").c_str(),
                               [population](benchmark::State& state) {
                                 ChildTable& table = subject(population).table;
                                 uint32_t visited = 0;
                                 measure(state, 1, [&] {
                                   visited = table.visit_slice(kSliceBudgetMs);
                                   return visited > 0;
                                 });
                                 state.counters["visited"] = visited;
                               })
      ->Iterations(3)
      ->Unit(benchmark::kMillisecond);
}

// What an observer of events costs a visit in which nothing happens: turns with and without one
// alternate, and each is divided by the one before.
void add_observer(const std::string& population, int turns) {
  benchmark::RegisterBenchmark(("observer/" + population + "/ours").c_str(),
                               [population, turns](benchmark::State& state) {
                                 Subject& s = subject(population);
                                 const auto visit = [&s] {
                                   timespec begin, end;
                                   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &begin);
                                   require(s.visit(), "wrong result");
                                   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
                                   return static_cast<double>(end.tv_sec - begin.tv_sec) * 1e9 +
                                          static_cast<double>(end.tv_nsec - begin.tv_nsec);
                                 };
                                 for ([[maybe_unused]] auto iteration : state) {
                                   std::vector<double> ratios;
                                   for (int turn = 0; turn < turns; ++turn) {
                                     const double without = visit();
                                     taskwarden_observe_events(
                                         [](void*, const taskwarden_event*) {}, nullptr, 0);
                                     ratios.push_back(visit() / without);
                                     taskwarden_observe_events(nullptr, nullptr, 0);
                                   }
                                   std::sort(ratios.begin(), ratios.end());
                                   state.counters["ratio"] = ratios[ratios.size() / 2];
                                 }
                               })
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void add_bookkeeping() {
  const auto add = [](const std::string& variant, auto work) {
    benchmark::RegisterBenchmark(("bookkeeping/one visit/" + variant).c_str(),
                                 [work](benchmark::State& state) { measure(state, 1, work); });
  };
  static tw_process_entry entry, copy;
  snprintf(entry.desc.name, sizeof(entry.desc.name), "com.example.application#12345");
  add("copy", [] {
    benchmark::DoNotOptimize(&entry);
    copy = entry;
    benchmark::DoNotOptimize(&copy);
    return true;
  });
  add("names", [] {
    benchmark::DoNotOptimize(&copy);
    copy.desc = entry.desc;
    return strcmp(entry.desc.name, copy.desc.name) == 0;
  });
  add("clock", [] {
    timeval now;
    return gettimeofday(&now, nullptr) == 0 && time(nullptr) > 0;
  });
}

// Experiment: a question that tells whether a process has run since the last visit, as a number or
// text that stays the same if it has not. Where that holds the rest of a visit could be left out.
//
// `cpu_clock` covers all threads, also those that have ended, to the nanosecond; `schedstat` the
// first thread only; `stat` all threads, but in ticks, which is too coarse to prove anything. What
// others do to a process that sleeps none of them sees: docs/performance.md lists it.
class RunProbes {
 public:
  struct Process {
    clockid_t clock;
    timespec cpu;
    std::string directory, schedstat, stat;
  };

  explicit RunProbes(const Population& population) {
    for (const pid_t pid : population.pids()) {
      Process process;
      require(clock_getcpuclockid(pid, &process.clock) == 0, "no CPU clock of a child");
      process.directory = "/proc/" + std::to_string(pid);
      process.schedstat = process.directory + "/schedstat";
      process.stat = process.directory + "/stat";
      clock_gettime(process.clock, &process.cpu);
      processes_.push_back(process);
    }
  }

  // Whether nobody has run, which holds here.
  bool cpu_clock() {
    bool still = true;
    for (Process& process : processes_) {
      timespec now = {};
      still &= access(process.directory.c_str(), F_OK) == 0;
      still &= clock_gettime(process.clock, &now) == 0 && now.tv_sec == process.cpu.tv_sec &&
               now.tv_nsec == process.cpu.tv_nsec;
    }
    return still;
  }
  bool file(std::string Process::*path) {
    bool read_all = true;
    for (const Process& process : processes_) {
      char text[1024];
      read_all &= access(process.directory.c_str(), F_OK) == 0;
      const unique_fd file(open((process.*path).c_str(), O_RDONLY | O_CLOEXEC));
      read_all &= read(file.get(), text, sizeof(text)) > 0;
    }
    return read_all;
  }

 private:
  std::vector<Process> processes_;
};

void add_experiment(const std::string& population) {
  const auto add = [&](const std::string& variant, auto work) {
    benchmark::RegisterBenchmark(("experiment/" + population + "/" + variant).c_str(),
                                 [population, work](benchmark::State& state) {
                                   Subject& s = subject(population);
                                   RunProbes probes(s.population);
                                   measure(state, s.population.pids().size(),
                                           [&] { return work(s, probes); });
                                 })
        ->Unit(benchmark::kMillisecond);
  };
  add("ours", [](Subject& s, RunProbes&) { return s.visit(); });
  add("cpu_clock", [](Subject&, RunProbes& probes) { return probes.cpu_clock(); });
  add("schedstat",
      [](Subject&, RunProbes& probes) { return probes.file(&RunProbes::Process::schedstat); });
  add("stat", [](Subject&, RunProbes& probes) { return probes.file(&RunProbes::Process::stat); });
}

}  // namespace

int main(int argc, char** argv) {
  prepare_library();
  add_visits("300", 20);
  add_visits("1000", 6);
  add_visits("3000", 3);
  add_visits("10000", 1);
  add_visits("mixed20", TW_FD_LISTING_RHYTHM);
  add_visits("mixed50", TW_FD_LISTING_RHYTHM);
  add_pieces("1000");
  add_slice("3000");
  add_slice("10000");
  add_observer("300", 201);
  add_bookkeeping();
  add_experiment("1000");
  return run_benchmarks(argc, argv);
}
