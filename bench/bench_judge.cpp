// What the judge costs for a sample: processes that stay as they are, and such as grow.
#include <vector>

#include "judge/judge.h"
#include "measure.h"

namespace {

constexpr int kProcesses = 1000;
constexpr int kRounds = 100;

// Passes over all processes, `interval` seconds apart, on a judge that has seen two days of them.
void add(const char* name, double interval, int64_t growth_kb) {
  benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
    size_t verdicts = 0;
    judge::Judge judge([&](const judge::Verdict&) { ++verdicts; });
    double time = 0;
    int64_t grown = 0;
    judge::Sample sample;
    sample.name = "process";
    sample.memory_limit_kb = int64_t{1} << 40;
    sample.open_files_limit = 1024;
    const auto pass = [&](double step) {
      time += step;
      grown += static_cast<int64_t>(step * static_cast<double>(growth_kb));
      for (int i = 0; i < kProcesses; ++i) {
        sample.time = time;
        sample.pid = 300 + i;
        sample.start = i;
        sample.resident_kb = 100000 + 97 * i + grown;
        sample.threads = 8;
        sample.open_files = 20 + (i + static_cast<int>(time)) % 5;
        judge.take(sample);
      }
    };
    for (int i = 0; i < 48 * 6; ++i) pass(600);
    measure(state, kProcesses * kRounds, [&] {
      for (int i = 0; i < kRounds; ++i) pass(interval);
      return judge.processes() == kProcesses && (verdicts > 0) == (growth_kb > 0);
    });
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kProcesses * kRounds);
  })->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  add("judge/steady every 2 s", 2, 0);
  add("judge/steady every 60 s", 60, 0);
  add("judge/steady every 600 s", 600, 0);
  add("judge/growing every 2 s", 2, 1);
  add("judge/growing every 60 s", 60, 1);
  add("judge/growing every 600 s", 600, 1);
  return run_benchmarks(argc, argv);
}
