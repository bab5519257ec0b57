// A pass that reads only what ran, beside an iterator over tasks inside the kernel, over one
// population of which 1 % runs between two passes. Takes root. Run it in a pid namespace of its
// own.
#include <bpf/bpf.h>
#include <bpf/libbpf.h>

#include <string>
#include <vector>

#include "measure.h"
#include "platform/unique_fd.h"
#include "proctable/kept_visits.h"
#include "subject.h"
#include "tasks_row.h"

namespace {

class TaskIterator {
 public:
  TaskIterator() {
    libbpf_set_print(nullptr);
    bpf_object* const program = bpf_object__open_file(TASKWARDEN_TASKS_ITERATOR, nullptr);
    require(program != nullptr && bpf_object__load(program) == 0,
            "the kernel does not take the iterator; it takes root");
    link_ = bpf_program__attach_iter(bpf_object__find_program_by_name(program, "visit"), nullptr);
    require(link_ != nullptr, "the iterator cannot be attached");
  }

  // The processes found, their threads and descriptors.
  struct Found {
    size_t processes = 0;
    TableTotals totals;
  };
  Found run() {
    const unique_fd file(bpf_iter_create(bpf_link__fd(link_)));
    Found found;
    ssize_t n;
    while ((n = read(file.get(), rows_.data(), rows_.size() * sizeof(tasks_row))) > 0) {
      for (size_t i = 0; i < static_cast<size_t>(n) / sizeof(tasks_row); ++i) {
        ++found.processes;
        found.totals.threads += rows_[i].threads;
        found.totals.open_files += rows_[i].descriptors;
      }
    }
    return found;
  }

 private:
  bpf_link* link_;
  std::vector<tasks_row> rows_ = std::vector<tasks_row>(1000);
};

void add(const std::string& population, TaskIterator* iterator) {
  const auto enter = [&](const std::string& variant, auto work) {
    benchmark::RegisterBenchmark(("iterator/" + population + "/" + variant).c_str(),
                                 [population, work](benchmark::State& state) {
                                   Subject& s = subject(population);
                                   s.table.visit_only_what_ran(true);
                                   const size_t all = s.population.pids().size(), some = all / 100;
                                   size_t pass = 0;
                                   measure(
                                       state, all, [&] { s.population.wake(pass++ * some, some); },
                                       [&] { return work(s); });
                                 })
        ->Iterations(TW_READING_RHYTHM)
        ->Unit(benchmark::kMillisecond);
  };
  enter("ours",
        [](Subject& s) { return s.table.scan_and_visit_all() && s.table.totals() == s.totals; });
  // It meets this program as well.
  enter("iterator", [iterator](Subject& s) {
    const TaskIterator::Found found = iterator->run();
    return found.processes > s.population.pids().size() &&
           found.totals.threads > s.totals.threads && found.totals.open_files > s.totals.open_files;
  });
}

}  // namespace

int main(int argc, char** argv) {
  TaskIterator iterator;
  prepare_library();
  add("1000", &iterator);
  add("3000", &iterator);
  return run_benchmarks(argc, argv);
}
