// The scan of the process file system with nothing new in it, beside listing it.
#include "child_table.h"
#include "measure.h"
#include "population.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "raw_calls.h"
#include "transcription.h"

namespace {

constexpr size_t kProcesses = 3000;

template <typename Work>
void add(const char* name, Work work) {
  benchmark::RegisterBenchmark(name, [work](benchmark::State& state) {
    measure(state, kProcesses, work);
  })->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
  prepare_library();
  const Population population(plain_shapes(kProcesses));
  tw_process_list* list = tw_process_list_create();
  require(tw_process_list_refresh(list) >= 0 && list->count >= kProcesses,
          "the scan does not find the population; are its pids below 300?");
  require(transcription::scan() >= kProcesses, "the transcription does not find the population");

  add("scan/3000/ours", [&] {
    list->remaining = 0;
    return tw_process_list_refresh(list) >= 0 && list->remaining >= kProcesses;
  });
  add("scan/3000/raw", [] { return raw_list("/proc"); });
  add("scan/3000/transcription", [] { return transcription::scan() >= kProcesses; });
  return run_benchmarks(argc, argv);
}
