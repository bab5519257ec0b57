#include "service/tw_stats.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "audit/audit_initialize.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_dump.h"
#include "interest/interest_mark.h"
#include "platform/cancellation.h"
#include "platform/clock.h"
#include "platform/locks.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "platform/socket_wait.h"
#include "platform/unique_fd.h"
#include "proctable/inspection.h"
#include "proctable/kept_visits.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "proctable/suspicious_dump.h"
#include "proctable/table_view.h"
#include "report/log.h"
#include "report/observers.h"
#include "report/reporter.h"
#include "taskwarden/taskwarden.h"

namespace {

// Set once at start; host threads may ask at any time.
std::atomic<bool> standalone_mode = false;

// The pause state, shared with the host's threads, is only touched under the lock.
constexpr Lock __pause_mutex = Lock::kPause;
bool __pause_flag = false;
bool __dump_flag = false;
pthread_cond_t __pause_cond = PTHREAD_COND_INITIALIZER;

// Whether a thread is in taskwarden_start(), and whether this one is.
std::atomic<bool> is_running = false;
thread_local bool runs_here = false;

// In a child that was forked, nobody waits, and no cycle runs but the one that forked.
void forget_other_threads() {
  new (&__pause_cond) pthread_cond_t(PTHREAD_COND_INITIALIZER);
  is_running = runs_here;
  tw_note_running(runs_here);
}

__attribute__((constructor)) void watch_forks() {
  ::pthread_atfork(nullptr, nullptr, forget_other_threads);
}

// The one thread's turn in taskwarden_start(), however it ends.
class Turn {
 public:
  Turn() : taken_(!is_running.exchange(true)) {
    if (taken_) {
      runs_here = true;
      tw_note_running(true);
    }
  }
  ~Turn() {
    if (taken_) {
      runs_here = false;
      tw_note_running(false);
      tw_begin_waits_of_pass(false);
      is_running = false;
    }
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  bool is_taken() const { return taken_; }

 private:
  const bool taken_;
};

void dump(tw_process_list* table) {
  tw_process_list_dump(table);
  interested_proc_dumpall(table);
}

// Between two passes: waits while a pause lasts, and serves the dumps asked for, without the lock,
// since they read files and write at length.
void honour_requests(tw_process_list* table) {
  LockGuard lock(__pause_mutex);
  while (__pause_flag || __dump_flag) {
    if (__dump_flag) {
      __dump_flag = false;
      lock.unlocked([table] { dump(table); });
      continue;
    }
    TW_REPORT("-> taskwarden is paused...\n");
    tw_note_paused(true);
    lock.wait(&__pause_cond);
    tw_note_paused(false);
    TW_REPORT("-> taskwarden continues to run\n");
  }
}

// A rest of 1000 ms and what the work left of another 1000, so that slices start every 2000 ms.
// Work of 0 ms, of more than 1000, or (the clock was set back) of less than nothing, makes a count
// of microseconds that is refused, and there is no rest. In 64 bits, where none of them wraps.
// The only place in which the thread can be cancelled.
void rest_after(int64_t worked_ms) {
  tw_note_step();
  const CancellationPoint here;
  tw_rest(1, (TW_CYCLE_MS - worked_ms) * 1000);
}

// Counts and times the passes and their slices.
class PassClock {
 public:
  void begin() {
    start_ms_ = now_ms();
    slices_ = 0;
  }
  void end() {
    tw_note_passes(++passes_);
    duration_ms_ = static_cast<int32_t>(now_ms() - start_ms_);
    if (duration_ms_ >= TW_OVERLOAD_MS) {
      ++overloads_;
      TW_REPORT(">> overloaded cycle: %u ms, overload count: %u; total cycles: %u\n",
                static_cast<unsigned>(duration_ms_), overloads_, passes_);
    }
  }
  // After each slice, and after the pass's end.
  void show(const tw_process_list* table, bool pass_complete) {
    ++slices_;
    if (tw_is_table_observed(pass_complete)) {
      if (!pass_complete) {
        duration_ms_ = static_cast<int32_t>(now_ms() - start_ms_);
      }
      tw_show_table_after_slice(table,
                                {.pass = passes_ + (pass_complete ? 0 : 1),
                                 .slice = slices_,
                                 .duration_ms = static_cast<uint32_t>(std::max(0, duration_ms_)),
                                 .overloads = overloads_,
                                 .is_complete = pass_complete});
    }
  }

 private:
  static int64_t now_ms() {
    const timeval now = tw_clock_now();
    return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
  }

  int64_t start_ms_ = 0;
  int32_t duration_ms_ = 0;  // so far
  uint32_t passes_ = 0;
  uint32_t slices_ = 0;  // of the pass under way
  uint32_t overloads_ = 0;
};

}  // namespace

int32_t taskwarden_start() {
  const Turn turn;
  if (!turn.is_taken()) {
    return TASKWARDEN_IS_RUNNING;
  }
  const NoCancellation elsewhere;
  TW_REPORT("Start the Task Warden\n");
  if (getuid() == 0 || getuid() == 2000) {
    standalone_mode = true;
  }
  tw_audit_initialize();
  interest_builtin_load();
  tw_process_list* table = tw_process_list_create();
  tw_settle_kept_visits();
  tw_process_entry* cursor = nullptr;
  PassClock pass;
  // For when there is no descriptor left to open it with.
  const unique_fd spare_directory =
      tw_own_fd(::open(tw_proc_root(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));

  while (true) {
    int32_t setup = 0;
    if (cursor == nullptr) {
      pass.begin();
      tw_begin_waits_of_pass(true);
      const int32_t scanned = tw_process_list_scan(table, spare_directory.get());
      if (scanned < 0) {
        return scanned;
      }
      cursor = table->head;
      if (cursor == nullptr) {
        return TW_LOG(TW_TAG_MAIN, ">> there's no process to iterate!!");
      }
      setup = static_cast<int32_t>(int64_t{scanned} + tw_system_check_meminfo(nullptr));
    }
    const auto budget = static_cast<int32_t>(int64_t{TW_SLICE_BUDGET_MS} - setup);
    const int32_t spent = tw_process_list_iterate(table, cursor, budget, &cursor);
    const bool pass_complete = cursor == nullptr;
    if (pass_complete) {
      pass.end();
    }
    pass.show(table, pass_complete);
    // Kept visits may be done before the clock has moved.
    const int64_t least_ms = tw_keeps_visits(table) ? 1 : INT64_MIN;
    rest_after(std::max(int64_t{setup} + spent, least_ms));
    if (pass_complete) {
      honour_requests(table);
    }
  }
}

void taskwarden_notify(int pause) {
  const LockGuard lock(__pause_mutex);
  __pause_flag = (pause & 1) != 0;
  if (__pause_flag) {
    TW_REPORT("-> pause taskwarden\n");
  } else {
    TW_REPORT("-> resume taskwarden\n");
    pthread_cond_signal(&__pause_cond);
  }
}

void taskwarden_request_dump() {
  const LockGuard lock(__pause_mutex);
  __dump_flag = true;
  pthread_cond_signal(&__pause_cond);
}

bool is_standalone() {
  return standalone_mode;
}
