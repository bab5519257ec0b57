// How a piece of work is entered among the benchmarks. Names are "group/variant"; variants of a
// group are compared with each other.
#ifndef BENCH_MEASURE_H_
#define BENCH_MEASURE_H_

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <utility>

// Ends the program: figures of work that finds something else are worth nothing.
inline void require(bool ok, const std::string& what) {
  if (!ok) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
  }
}

// Runs `work`, which returns whether it did what it should, on `items` things at a time. The time
// of one thing is the CPU time divided by the counter "items". `prepare`, unless null, runs untimed
// before each.
template <typename Prepare, typename Work>
void measure(benchmark::State& state, size_t items, Prepare prepare, Work work) {
  for ([[maybe_unused]] auto iteration : state) {
    if constexpr (!std::is_null_pointer_v<Prepare>) {
      state.PauseTiming();
      prepare();
      state.ResumeTiming();
    }
    const bool ok = work();
    benchmark::ClobberMemory();
    if (!ok) {
      state.SkipWithError("wrong result");
      break;
    }
  }
  state.counters["items"] = static_cast<double>(items);
}

template <typename Work>
void measure(benchmark::State& state, size_t items, Work work) {
  measure(state, items, nullptr, work);
}

// Runs what was registered and chosen on the command line. Returns the exit status.
inline int run_benchmarks(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  const size_t run = benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return run > 0 ? 0 : 1;
}

#endif  // BENCH_MEASURE_H_
