#include "service/tw_stats.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

#include "audit/audit_initialize.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_dump.h"
#include "interest/interest_list.h"
#include "platform/clock.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "proctable/suspicious_dump.h"
#include "report/log.h"
#include "report/reporter.h"
#include "taskwarden/taskwarden.h"

namespace {

// Set once at start; host threads may ask at any time.
std::atomic<bool> standalone_mode = false;

// The pause state, shared with the host's threads, is only touched under the mutex.
pthread_mutex_t __pause_mutex = PTHREAD_MUTEX_INITIALIZER;
bool __pause_flag = false;
bool __dump_flag = false;
pthread_cond_t __pause_cond = PTHREAD_COND_INITIALIZER;

class PauseLock {
 public:
  PauseLock() { pthread_mutex_lock(&__pause_mutex); }
  ~PauseLock() { pthread_mutex_unlock(&__pause_mutex); }
  template <typename Work>
  void unlocked(Work work) {
    pthread_mutex_unlock(&__pause_mutex);
    work();
    pthread_mutex_lock(&__pause_mutex);
  }
  PauseLock(const PauseLock&) = delete;
  PauseLock& operator=(const PauseLock&) = delete;
};

void dump(tw_process_list* table) {
  tw_process_list_dump(table);
  interested_proc_dumpall(table);
}

// Between two passes: waits while a pause lasts, and serves the dumps asked for, without the lock,
// since they read files and write at length.
void honour_requests(tw_process_list* table) {
  PauseLock lock;
  while (__pause_flag || __dump_flag) {
    if (__dump_flag) {
      __dump_flag = false;
      lock.unlocked([table] { dump(table); });
      continue;
    }
    tw_reporter().report(1, "-> taskwarden is paused...\n");
    pthread_cond_wait(&__pause_cond, &__pause_mutex);
    tw_reporter().report(1, "-> taskwarden continues to run\n");
  }
}

// A rest of 1000 ms and what the work left of another 1000, so that slices start every 2000 ms.
// Work of 0 ms, of more than 1000, or (the clock was set back) of less than nothing, makes a count
// of microseconds that is refused, and there is no rest. In 64 bits, where none of them wraps.
void rest_after(int64_t worked_ms) {
  tw_rest(1, (TW_CYCLE_MS - worked_ms) * 1000);
}

// Counts and times the passes.
class PassClock {
 public:
  void begin() { start_ms_ = now_ms(); }
  void end() {
    ++passes_;
    const auto duration = static_cast<int32_t>(now_ms() - start_ms_);
    if (duration >= TW_OVERLOAD_MS) {
      ++overloads_;
      tw_reporter().report(1, ">> overloaded cycle: %u ms, overload count: %u; total cycles: %u\n",
                           static_cast<unsigned>(duration), overloads_, passes_);
    }
  }

 private:
  static int64_t now_ms() {
    const timeval now = tw_clock_now();
    return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
  }

  int64_t start_ms_ = 0;
  uint32_t passes_ = 0;
  uint32_t overloads_ = 0;
};

}  // namespace

int32_t taskwarden_start() {
  tw_reporter().report(1, "Start the Task Warden\n");
  if (getuid() == 0 || getuid() == 2000) {
    standalone_mode = true;
  }
  tw_audit_initialize();
  interest_builtin_load();
  tw_process_list* table = tw_process_list_create();
  tw_process_entry* cursor = nullptr;
  PassClock pass;

  while (true) {
    int32_t setup = 0;
    if (cursor == nullptr) {
      pass.begin();
      const int32_t scanned = tw_process_list_refresh(table);
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
    rest_after(int64_t{setup} + spent);
    if (pass_complete) {
      honour_requests(table);
    }
  }
}

void taskwarden_notify(int pause) {
  const PauseLock lock;
  __pause_flag = (pause & 1) != 0;
  if (__pause_flag) {
    tw_reporter().report(1, "-> pause taskwarden\n");
  } else {
    tw_reporter().report(1, "-> resume taskwarden\n");
    pthread_cond_signal(&__pause_cond);
  }
}

void taskwarden_request_dump() {
  const PauseLock lock;
  __dump_flag = true;
  pthread_cond_signal(&__pause_cond);
}

bool is_standalone() {
  return standalone_mode;
}
