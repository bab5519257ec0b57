// The cycle with nothing observed and its output thrown away, in a host that counts its passes:
// cycle_cost ran|every SECONDS prints, of so many seconds once baselines are taken, the passes and
// slices, the CPU time of a pass in microseconds, and the resident size in kB.
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "child_table.h"
#include "platform/clock.h"
#include "proctable/storage.h"
#include "taskwarden/taskwarden.h"

namespace {

constexpr int64_t kWarmUpUs = 30'000'000;

int64_t run_us;
struct Mark {
  int64_t time_us, cpu_us, slices, passes;
};
Mark first = {}, now = {};

int64_t reading_us(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
}

[[noreturn]] void tell() {
  long resident = 0;
  std::ifstream("/proc/self/statm") >> resident >> resident;
  const int64_t passes = now.passes - first.passes;
  std::printf("%ld %ld %.1f %ld\n", passes, now.slices - first.slices,
              static_cast<double>(now.cpu_us - first.cpu_us) / static_cast<double>(passes),
              resident * sysconf(_SC_PAGESIZE) / 1024);
  std::fflush(stdout);
  _exit(0);
}

// The end of a slice. A measurement begins and ends at the end of a pass.
int rest(int64_t seconds, int64_t microseconds) {
  ++now.slices;
  if (tw_process_list_create()->remaining == 0) {
    ++now.passes;
    now.time_us = reading_us(CLOCK_MONOTONIC);
    now.cpu_us = reading_us(CLOCK_PROCESS_CPUTIME_ID);
    static const int64_t begin_us = now.time_us;
    if (first.passes == 0 && now.time_us - begin_us >= kWarmUpUs) {
      first = now;
    } else if (first.passes != 0 && now.time_us - first.time_us >= run_us) {
      tell();
    }
  }
  usleep(static_cast<useconds_t>(seconds * 1000000 + microseconds));
  return 0;
}

constexpr tw_clock kCounting = {
    .now = [](timeval* time) { gettimeofday(time, nullptr); },
    .seconds = [] { return static_cast<int64_t>(time(nullptr)); },
    .rest = rest,
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  run_us = std::atol(argv[2]) * 1000000;
  taskwarden_visit_only_what_ran(std::strcmp(argv[1], "ran") == 0 ? 1 : 0);
  prepare_library();
  tw_clock_replace(&kCounting);
  return taskwarden_start() != 0;
}
