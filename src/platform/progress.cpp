#include "platform/progress.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>

#include "platform/locks.h"
#include "platform/proc_root.h"

namespace {

// The file in the upper half, the pid in the lower.
std::atomic<uint64_t> reading{0};
std::atomic<int64_t> reading_since_ms{0};
std::atomic<uint64_t> steps{0};
std::atomic<uint32_t> passes_done{0};
std::atomic<uint32_t> slots_there{0};
std::atomic<uint32_t> baselines_there{0};
std::atomic<bool> running{false};
std::atomic<bool> paused{false};
std::atomic<bool> slots_refused{false};

struct Spared {
  uint32_t pid;
  uint64_t start_time;

  bool operator==(const Spared&) const = default;
};

// What is spared. Under Lock::kSparedProcesses, but for its being empty, which may be looked at
// without.
template <typename Item, size_t kMost>
class SparedSet {
 public:
  bool is_empty() const { return count_.load(std::memory_order_relaxed) == 0; }
  template <typename Test>
  bool has(Test test) const {
    return std::any_of(items_, items_ + count_, test);
  }
  // As of taskwarden_spare().
  int set(const Item& item, bool is_spared) {
    Item* const end = items_ + count_;
    Item* const found = std::find(items_, end, item);
    if (!is_spared) {
      std::copy(std::min(found + 1, end), end, found);
      count_ -= found != end ? 1 : 0;
    } else if (found == end) {
      if (count_ == kMost) {
        errno = ENOSPC;
        return -1;
      }
      *found = item;
      ++count_;
    }
    return 0;
  }

 private:
  Item items_[kMost];
  std::atomic<size_t> count_{0};
};

SparedSet<Spared, 64> spared;
SparedSet<uint32_t, 16> spared_users;

// The directory of a process belongs to its effective user, whatever its files do (proc(5)).
bool is_of_spared_user(unsigned pid) {
  struct stat status;
  return spared_users.has([](uint32_t uid) { return uid == TASKWARDEN_EVERYBODY; }) ||
         (::stat(ProcPath(pid, "").c_str(), &status) == 0 &&
          spared_users.has([&status](uint32_t uid) { return uid == status.st_uid; }));
}

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

void tw_note_baselines(int32_t more) {
  baselines_there += static_cast<uint32_t>(more);
}

bool tw_is_spared(unsigned pid, uint64_t (*start_time)(unsigned pid)) {
  if (spared.is_empty() && spared_users.is_empty()) {
    return false;
  }
  const LockGuard lock(Lock::kSparedProcesses);
  return spared.has([&](const Spared& process) {
    return process.pid == pid && process.start_time == start_time(pid);
  }) || (!spared_users.is_empty() && is_of_spared_user(pid));
}

int taskwarden_spare(uint32_t pid, uint64_t start_time, int is_spared) {
  const LockGuard lock(Lock::kSparedProcesses);
  return spared.set({pid, start_time}, is_spared != 0);
}

int taskwarden_spare_user(uint32_t uid, int is_spared) {
  const LockGuard lock(Lock::kSparedProcesses);
  return spared_users.set(uid, is_spared != 0);
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
  now.baselines = baselines_there;
  now.reads = static_cast<int32_t>(what >> 32);
  now.reads_pid = static_cast<uint32_t>(what);
  memcpy(progress, &now, now.size);
}
