// The library's visit beside the same items asked of libproc2, with the descriptors counted, in one
// program and over the same population.
#include <dirent.h>
#include <libproc2/pids.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "inspect/open_files_count.h"
#include "measure.h"
#include "subject.h"

namespace {

// libproc2 has no item for the peak resident size, which stands in the same file.
enum Item { kPid, kCommand, kCommandLine, kState, kParent, kResident, kThreads };
pids_item items[] = {PIDS_ID_PID,  PIDS_CMD,    PIDS_CMDLINE, PIDS_STATE,
                     PIDS_ID_PPID, PIDS_VM_RSS, PIDS_NLWP};

int count_descriptors(int pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/fd";
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(path.c_str()), closedir);
  int count = 0;
  while (const dirent* entry = listing ? readdir(listing.get()) : nullptr) {
    count += entry->d_name[0] != '.' ? 1 : 0;
  }
  return count;
}

struct Visited {
  TableTotals totals;
  size_t processes = 0;
};

class Pids {
 public:
  Pids() {
    if (procps_pids_new(&info_, items, std::size(items)) < 0) {
      throw std::runtime_error("libproc2 does not start");
    }
  }
  ~Pids() { procps_pids_unref(&info_); }
  Pids& operator=(Pids&&) = delete;  // nor any copy

  // All there are on this machine.
  Visited visit_all() {
    Visited visited;
    add(procps_pids_reap(info_, PIDS_FETCH_TASKS_ONLY), &visited);
    return visited;
  }
  // Only these. Before each, libproc2 reads its status once more to see whose thread it is.
  Visited visit(const std::vector<pid_t>& pids) {
    constexpr size_t kMostAtOnce = 250;  // procps_pids_select(3) takes up to 254
    Visited visited;
    std::vector<unsigned> wanted(pids.begin(), pids.end());
    for (size_t from = 0; from < wanted.size(); from += kMostAtOnce) {
      const size_t count = std::min(kMostAtOnce, wanted.size() - from);
      add(procps_pids_select(info_, &wanted[from], static_cast<int>(count), PIDS_SELECT_PID),
          &visited);
    }
    return visited;
  }

 private:
  void add(const pids_fetch* fetch, Visited* visited) {
    for (int i = 0; fetch != nullptr && i < fetch->counts->total; ++i) {
      const pids_result* found = fetch->stacks[i]->head;
      benchmark::DoNotOptimize(found[kCommandLine].result.str);
      benchmark::DoNotOptimize(found[kResident].result.ul_int);
      visited->totals.threads += found[kThreads].result.s_int;
      visited->totals.open_files += count_descriptors(found[kPid].result.s_int);
      ++visited->processes;
    }
  }

  pids_info* info_ = nullptr;
};

// `run` sets the number of processes that it has visited.
void add(const std::string& population, benchmark::IterationCount iterations) {
  const auto enter = [&](const std::string& variant, auto run) {
    benchmark::RegisterBenchmark(("peers/" + population + "/" + variant).c_str(),
                                 [population, run](benchmark::State& state) {
                                   Subject& s = subject(population);
                                   size_t processes = s.population.pids().size();
                                   measure(state, 0, [&] { return run(s, &processes); });
                                   state.counters["items"] = static_cast<double>(processes);
                                 })
        ->Iterations(iterations)
        ->Unit(benchmark::kMillisecond);
  };
  static Pids pids;
  enter("ours", [](Subject& s, size_t*) { return s.visit(); });
  enter("libproc2", [](Subject& s, size_t* processes) {
    const Visited visited = pids.visit_all();
    *processes = visited.processes;
    return visited.totals.threads >= s.totals.threads &&
           visited.totals.open_files >= s.totals.open_files;
  });
  enter("libproc2_select",
        [](Subject& s, size_t*) { return pids.visit(s.population.pids()).totals == s.totals; });
}

}  // namespace

int main(int argc, char** argv) {
  prepare_library();
  add("300", 30);
  add("1000", 15);
  add("3000", 5);
  add("mixed50", TW_FD_LISTING_RHYTHM);
  return run_benchmarks(argc, argv);
}
