// The names of 100 threads, folded into a map.
#include <algorithm>
#include <memory>

#include "child_table.h"
#include "inspect/threads.h"
#include "measure.h"
#include "population.h"
#include "raw_calls.h"
#include "transcription.h"

namespace {

constexpr int kThreads = 100;

// Counts of the families by which the population names its threads, and of their sum.
bool complete(const StringCounter& counter) {
  int32_t sum = 0;
  for (const auto& [name, count] : counter) {
    sum += count;
  }
  return sum == kThreads && counter.count("<THREAD>") == kThreads / 5 &&
         counter.count("<BINDER THREAD>") == kThreads / 5 - 1;
}

template <typename Work>
void add(const char* name, Work work) {
  benchmark::RegisterBenchmark(name, [work](benchmark::State& state) mutable {
    measure(state, kThreads, work);
  })->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
  prepare_library();
  const ChildShape shape = {.threads = kThreads};
  const Population population(std::span(&shape, 1));
  const pid_t pid = population.pids()[0];
  const RawThreads raw(pid);
  StringCounter ours, transcribed;
  tw_process_check_threads(pid, &ours);
  transcription::threads(pid, &transcribed);
  require(complete(ours) &&
              std::equal(ours.begin(), ours.end(), transcribed.begin(), transcribed.end()),
          "the transcription and the library differ on the threads of a process");

  add("threads/100/ours", [&] {
    tw_process_check_threads(pid, &ours);
    return complete(ours);
  });
  add("threads/100/raw", [&] { return raw.read(); });
  add("threads/100/transcription", [&] {
    transcription::threads(pid, &transcribed);
    return complete(transcribed);
  });
  return run_benchmarks(argc, argv);
}
