#include "cycle.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/clock.h"
#include "proctable/storage.h"
#include "taskwarden/taskwarden.h"

namespace {

constexpr std::chrono::minutes kPatience(5);

std::mutex mutex;
std::condition_variable changed;
bool hold_wanted = false;
bool held = false;
int64_t hold_at = 0;  // the count of passes

int64_t longest_rest_us = 0;
bool counts_whole_rests = false;
std::atomic<int64_t> skipped_us = 0;  // what the clock is ahead
CycleFigures figures_so_far;
int64_t slice_began_us, slice_began_cpu_us, pass_began_us;
uint32_t remained = 0;  // of the pass, at the last rest

int64_t reading_us(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

void begin_slice(bool of_new_pass) {
  slice_began_us = reading_us(CLOCK_MONOTONIC);
  slice_began_cpu_us = reading_us(CLOCK_THREAD_CPUTIME_ID);
  if (of_new_pass) {
    pass_began_us = slice_began_us;
  }
}

void end_pass(int64_t now) {
  CycleFigures& figures = figures_so_far;
  ++figures.passes;
  figures.longest_pass_us = std::max(figures.longest_pass_us, now - pass_began_us);
  pass_began_us = now;
}

void end_slice(uint32_t remaining) {
  CycleFigures& figures = figures_so_far;
  const int64_t now = reading_us(CLOCK_MONOTONIC);
  const int64_t cpu = reading_us(CLOCK_THREAD_CPUTIME_ID) - slice_began_cpu_us;
  figures.longest_slice_us = std::max(figures.longest_slice_us, now - slice_began_us);
  figures.most_cpu_us = std::max(figures.most_cpu_us, cpu);
  if (remained != 0 && remaining >= remained) {
    end_pass(slice_began_us);  // with work of 0 ms, after which there is no rest
  }
  if (remaining == 0) {
    end_pass(now);
  }
  remained = remaining;
}

int rest(int64_t seconds, int64_t microseconds) {
  const uint32_t remaining = tw_process_list_create()->remaining;
  const bool pass_complete = remaining == 0;
  {
    std::unique_lock lock(mutex);
    end_slice(remaining);
    if (pass_complete && hold_wanted && figures_so_far.passes >= hold_at) {
      held = true;
      changed.notify_all();
      changed.wait(lock, [] { return !hold_wanted; });
      held = false;
      changed.notify_all();
    }
  }
  const int64_t whole_us = seconds * 1000000 + microseconds;
  const int64_t rest_us = std::min(whole_us, longest_rest_us);
  usleep(static_cast<useconds_t>(rest_us));
  if (counts_whole_rests) {
    skipped_us += whole_us - rest_us;
  }
  begin_slice(pass_complete);
  return 0;
}

timeval clock_now() {
  timeval now;
  gettimeofday(&now, nullptr);
  const int64_t us = int64_t{now.tv_sec} * 1000000 + now.tv_usec + skipped_us;
  return {.tv_sec = us / 1000000, .tv_usec = us % 1000000};
}

constexpr tw_clock kMeasured = {
    .now = [](timeval* now) { *now = clock_now(); },
    .seconds = [] { return int64_t{clock_now().tv_sec}; },
    .rest = rest,
};

[[noreturn]] void give_up(const char* why) {
  fprintf(stderr, "%s\n", why);
  _exit(1);
}

}  // namespace

Cycle::Cycle(int longest_rest_ms, bool whole_clock) {
  longest_rest_us = int64_t{longest_rest_ms} * 1000;
  counts_whole_rests = whole_clock;
  tw_clock_replace(&kMeasured);
  std::thread([] {
    begin_slice(true);
    taskwarden_start();
    give_up("the cycle has ended");
  }).detach();
}

const tw_process_list* Cycle::hold_after(int passes) {
  std::unique_lock lock(mutex);
  // The one under way does not count.
  hold_at = figures_so_far.passes + passes + (held ? 0 : 1);
  hold_wanted = false;
  changed.notify_all();
  if (!changed.wait_for(lock, kPatience, [] { return !held; })) {
    give_up("the cycle does not go on");
  }
  hold_wanted = true;
  if (!changed.wait_for(lock, kPatience, [] { return held; })) {
    give_up("the cycle hangs");
  }
  return tw_process_list_create();
}

void Cycle::resume() {
  const std::lock_guard lock(mutex);
  hold_wanted = false;
  changed.notify_all();
}

const CycleFigures& Cycle::figures() const {
  return figures_so_far;
}
