#include "platform/progress.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <atomic>

#include "platform/locks.h"

namespace {

// The file in the upper half, the pid in the lower.
std::atomic<uint64_t> reading{0};
std::atomic<int64_t> reading_since_ms{0};
std::atomic<uint64_t> steps{0};
std::atomic<uint32_t> passes_done{0};
std::atomic<uint32_t> slots_there{0};
std::atomic<bool> running{false};
std::atomic<bool> paused{false};
std::atomic<bool> slots_refused{false};

struct Spared {
  uint32_t pid;
  uint64_t start_time;

  bool operator==(const Spared&) const = default;
};

// Under Lock::kSparedProcesses, but for the count, which may be looked at without.
constexpr size_t kMostSpared = 64;
Spared spared[kMostSpared];
std::atomic<size_t> spared_count{0};

// Coarse: it costs a few nanoseconds, and is a few milliseconds late.
int64_t monotonic_ms() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// The time first: who sees the new file sees a time that is not older.
uint64_t read_now(uint64_t what) {
  const uint64_t before = reading.load(std::memory_order_relaxed);
  reading_since_ms.store(monotonic_ms(), std::memory_order_relaxed);
  reading.store(what, std::memory_order_release);
  return before;
}

}  // namespace

ReadingMark::ReadingMark(int file, unsigned pid)
    : before_(read_now(static_cast<uint64_t>(file) << 32 | pid)) {}

ReadingMark::~ReadingMark() {
  reading.store(before_, std::memory_order_release);
}

void tw_note_step() {
  steps.fetch_add(1, std::memory_order_relaxed);
}

void tw_note_running(bool is_running) {
  running = is_running;
}

void tw_note_paused(bool is_paused) {
  paused = is_paused;
}

void tw_note_passes(uint32_t passes) {
  passes_done = passes;
}

void tw_note_slots(uint32_t slots, bool were_refused) {
  slots_there = slots;
  slots_refused = were_refused;
}

bool tw_is_spared(unsigned pid, uint64_t (*start_time)(unsigned pid)) {
  if (spared_count.load(std::memory_order_relaxed) == 0) {
    return false;
  }
  const LockGuard lock(Lock::kSparedProcesses);
  return std::any_of(spared, spared + spared_count, [&](const Spared& process) {
    return process.pid == pid && process.start_time == start_time(pid);
  });
}

int taskwarden_spare(uint32_t pid, uint64_t start_time, int is_spared) {
  const LockGuard lock(Lock::kSparedProcesses);
  const Spared process = {pid, start_time};
  auto* const end = spared + spared_count;
  auto* const found = std::find(spared, end, process);
  if (is_spared == 0) {
    std::copy(std::min(found + 1, end), end, found);
    spared_count -= found != end ? 1 : 0;
  } else if (found == end) {
    if (spared_count == kMostSpared) {
      errno = ENOSPC;
      return -1;
    }
    *found = process;
    ++spared_count;
  }
  return 0;
}

void taskwarden_get_progress(taskwarden_progress* progress) {
  taskwarden_progress now = {};
  uint64_t what = reading.load(std::memory_order_acquire);
  uint64_t before;
  do {
    before = what;
    now.reads_since_ms = reading_since_ms.load(std::memory_order_relaxed);
    what = reading.load(std::memory_order_acquire);
  } while (what != before);
  now.size = std::min(progress->size, sizeof(now));
  now.is_running = running ? 1 : 0;
  now.is_paused = paused ? 1 : 0;
  now.steps = steps;
  now.passes = passes_done;
  now.slots = slots_there;
  now.slots_were_refused = slots_refused ? 1 : 0;
  now.reads = static_cast<int32_t>(what >> 32);
  now.reads_pid = static_cast<uint32_t>(what);
  memcpy(progress, &now, now.size);
}
