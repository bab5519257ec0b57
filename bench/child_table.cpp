#include "child_table.h"

#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <stdexcept>

#include "audit/audit_initialize.h"
#include "audit/process_collector.h"
#include "platform/clock.h"
#include "proctable/inspection.h"
#include "proctable/kept_visits.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "proctable/table_notes.h"
#include "taskwarden/taskwarden.h"

namespace {

uint64_t failures = 0;

void discard(void* /*context*/, int output, const char* /*tag*/, const char* /*text*/,
             size_t /*length*/) {
  failures += output == TASKWARDEN_OUTPUT_LOG ? 1 : 0;
}

// The system's clock, ahead of its time by more than the age at which a baseline is taken.
class ClockAhead {
 public:
  ClockAhead() { tw_clock_replace(&kAhead); }
  ~ClockAhead() { tw_clock_replace(nullptr); }
  ClockAhead& operator=(ClockAhead&&) = delete;  // nor any copy

 private:
  static constexpr int64_t kBy = TW_BASELINE_DELAY_S + 1;
  static constexpr tw_clock kAhead = {
      .now =
          [](timeval* now) {
            gettimeofday(now, nullptr);
            now->tv_sec += kBy;
          },
      .seconds = [] { return static_cast<int64_t>(time(nullptr)) + kBy; },
      .rest = [](int64_t, int64_t) { return 0; },
  };
};

}  // namespace

void prepare_library() {
  taskwarden_set_output(discard, nullptr);
  tw_audit_initialize();
}

uint64_t logged_failures() {
  return failures;
}

ChildTable::ChildTable(std::span<const pid_t> pids) : list_(tw_process_list_create()) {
  for (const pid_t pid : pids) {
    link(pid);
  }
  visit_all();
  {
    const ClockAhead ahead;
    visit_all();
    visit_all();
  }
  // The ranking has singled out the largest, whose maps would be read as well.
  for (tw_process_entry* entry = list_->head; entry != nullptr; entry = entry->next) {
    entry->interested = false;
  }
  visit_all();
  if (!quiet()) {
    throw std::runtime_error("the visits of the population did not come to rest");
  }
}

ChildTable::~ChildTable() {
  while (tw_process_entry* entry = list_->head) {
    list_->head = entry->next;
    *tw_process_note_of(list_, entry->pid) = {};
    *entry = {};
  }
  for (ProcessCollector* ranking : {list_->runtime_collector, list_->native_collector}) {
    *ranking = ProcessCollector(ranking->name);
  }
  list_->count = list_->remaining = 0;
}

// As a scan does it: the newest is the head.
void ChildTable::link(pid_t pid) {
  if (static_cast<uint32_t>(pid) >= tw_process_slots(list_)) {
    throw std::runtime_error("a pid beyond the table");
  }
  tw_process_entry* entry = &list_->entries[pid];
  entry->pid = static_cast<uint32_t>(pid);
  entry->next = list_->head;
  if (list_->head != nullptr) {
    list_->head->prev = entry;
  }
  list_->head = entry;
  ++list_->count;
}

bool ChildTable::visit_all() {
  tw_process_entry* cursor = list_->head;
  list_->remaining = list_->count;
  tw_process_list_iterate(list_, list_->head, INT32_MAX, &cursor);
  return cursor == nullptr && list_->remaining == 0;
}

bool ChildTable::scan_and_visit_all() {
  return tw_process_list_refresh(list_) >= 0 && visit_all();
}

void ChildTable::visit_only_what_ran(bool only_what_ran) {
  taskwarden_visit_only_what_ran(only_what_ran ? 1 : 0);
  tw_settle_kept_visits();
  if (tw_keeps_visits(list_) != only_what_ran) {
    throw std::runtime_error("visits cannot be kept here");
  }
  for (int i = 0; i < 2; ++i) {
    visit_all();
  }
}

void ChildTable::put_off_readings() {
  for (tw_process_entry* entry = list_->head; entry != nullptr; entry = entry->next) {
    tw_process_note_of(list_, entry->pid)->reading.visits =
        static_cast<uint8_t>(entry->pid % TW_READING_RHYTHM);
  }
}

uint32_t ChildTable::visit_slice(int32_t budget_ms) {
  tw_process_entry* cursor = list_->head;
  list_->remaining = list_->count;
  tw_process_list_iterate(list_, list_->head, budget_ms, &cursor);
  return list_->count - list_->remaining;
}

void ChildTable::forget() {
  for (tw_process_entry* entry = list_->head; entry != nullptr; entry = entry->next) {
    entry->desc.threads = 0;
  }
}

TableTotals ChildTable::totals() const {
  TableTotals totals;
  for (const tw_process_entry* entry = list_->head; entry != nullptr; entry = entry->next) {
    totals.threads += entry->desc.threads;
    totals.open_files += entry->desc.open_files;
  }
  return totals;
}

bool ChildTable::quiet() const {
  for (const tw_process_entry* entry = list_->head; entry != nullptr; entry = entry->next) {
    if (!entry->baseline_taken || entry->interested || entry->files_counter_block != nullptr ||
        entry->threads_counter_block != nullptr || entry->divisions_block != nullptr) {
      return false;
    }
  }
  return failures == 0;
}
