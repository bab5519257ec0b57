#include "proctable/kept_visits.h"

#include <unistd.h>

#include <atomic>
#include <utility>

#include "platform/proc_root.h"
#include "platform/process_calls.h"
#include "proctable/new_pids.h"
#include "proctable/table_notes.h"
#include "report/log.h"
#include "taskwarden/taskwarden.h"

namespace {

std::atomic<bool> wanted{false};
bool is_on = false;

// Pids, of which some may be mistaken for others.
class RoughPidSet {
 public:
  void add(uint32_t pid) {
    words_[word(pid)] |= bit(pid);
    is_empty_ = false;
  }
  bool may_have(uint32_t pid) const { return !is_empty_ && (words_[word(pid)] & bit(pid)) != 0; }
  void clear() {
    if (!is_empty_) {
      *this = {};
    }
  }

 private:
  static constexpr uint32_t kBits = 64, kWords = 64;
  static constexpr uint32_t word(uint32_t pid) { return pid / kBits % kWords; }
  static constexpr uint64_t bit(uint32_t pid) { return uint64_t{1} << pid % kBits; }

  uint64_t words_[kWords] = {};
  bool is_empty_ = true;
};

// The processes that left the table in the pass under way and in the one before it: a child that
// was visited before its parent is looked at a pass later.
RoughPidSet gone_now, gone_before;

bool is_kernel_task(const tw_process_entry& entry) {
  return entry.desc.ppid == TW_KTHREADD;
}

bool is_there(const tw_process_entry& entry) {
  return ::access(ProcPath(entry.pid, "").c_str(), F_OK) == 0;
}

bool has_lost_parent(const tw_process_entry& entry) {
  const auto parent = static_cast<uint32_t>(entry.desc.ppid);
  return gone_now.may_have(parent) || gone_before.may_have(parent);
}

// Counts the visit. Whether it is the one that reads whatever the clock says: the first of them
// comes after as many visits as the pid says.
bool is_due(uint32_t pid, tw_reading* reading) {
  reading->visits = static_cast<uint8_t>((reading->visits + 1) % TW_READING_RHYTHM);
  return reading->visits == pid % TW_READING_RHYTHM;
}

// Counts the visit. Whether it is one of those after an event.
bool follows_event(tw_reading* reading) {
  if (reading->event_visits == 0) {
    return false;
  }
  --reading->event_visits;
  return true;
}

bool may_have_changed(const tw_process_entry& entry, const tw_reading& reading, uint64_t cpu_ns) {
  const char state = entry.desc.state;
  return !reading.is_whole || reading.cpu_ns != cpu_ns || state == 'R' || state == 'D' ||
         reading.shares || entry.interested || (!entry.baseline_taken && !is_kernel_task(entry)) ||
         has_lost_parent(entry);
}

// Its parent may change with it, and is not always visited after it.
void tell_parent(const tw_process_list* list, const tw_process_entry& entry) {
  const auto parent = static_cast<uint32_t>(entry.desc.ppid);
  if (parent < tw_process_slots(list) && list->entries[parent].pid == parent) {
    tw_process_note_of(list, parent)->reading.child_shares = true;
  }
}

void note_sharing(const tw_process_list* list, const tw_process_entry& entry, tw_reading* reading) {
  if (!reading->is_sharing_known && entry.baseline_taken && entry.desc.ppid > 0) {
    reading->is_sharing_known = true;
    reading->shares = tw_share_state(entry.pid, static_cast<uint32_t>(entry.desc.ppid));
  }
  if (reading->shares) {
    tell_parent(list, entry);
  }
}

}  // namespace

void taskwarden_visit_only_what_ran(int only_what_ran) {
  wanted = only_what_ran != 0;
}

void tw_settle_kept_visits() {
  is_on = wanted && tw_has_own_pids(tw_proc_root());
  gone_now.clear();
  gone_before.clear();
  tw_forget_new_pids();
  static bool logged = false;
  if (wanted && !is_on && !std::exchange(logged, true)) {
    TW_LOG(TW_TAG_STATS, ">> every process is read at each visit, \"%s\" has other pids!!\n",
           tw_proc_root());
  }
}

bool tw_keeps_visits(const tw_process_list* list) {
  return is_on && tw_process_note_of(list, 0) != nullptr;
}

Finding tw_begin_visit(const tw_process_entry& entry, tw_process_note* note, uint64_t* cpu_ns) {
  *cpu_ns = 0;
  if (!is_on || note == nullptr) {
    return is_there(entry) ? Finding::kRead : Finding::kGone;
  }
  tw_reading& reading = note->reading;
  const bool due = is_due(entry.pid, &reading);
  const bool had_event = follows_event(&reading);
  const bool child_shares = std::exchange(reading.child_shares, false);
  const CpuClock clock = tw_read_cpu_clock(entry.pid, cpu_ns);
  if (clock == CpuClock::kGone) {
    return Finding::kGone;
  }
  if (clock == CpuClock::kUnreadable || (entry.baseline_taken && !reading.is_whole)) {
    // All of it may be hidden from us, which counts as gone.
    return is_there(entry) ? Finding::kRead : Finding::kGone;
  }
  const bool reads = due || had_event || child_shares || may_have_changed(entry, reading, *cpu_ns);
  return reads ? Finding::kRead : Finding::kKeep;
}

void tw_note_reading(const tw_process_list* list, const tw_process_entry& entry,
                     tw_process_note* note, uint64_t cpu_ns, bool is_whole) {
  if (!is_on || note == nullptr) {
    return;
  }
  tw_reading& reading = note->reading;
  reading.cpu_ns = cpu_ns;
  reading.is_whole = is_whole;
  note_sharing(list, entry, &reading);
}

void tw_note_event(tw_process_note* note) {
  if (note != nullptr) {
    note->reading.event_visits = TW_EVENT_VISITS;
  }
}

void tw_note_identity(tw_process_note* note) {
  if (note != nullptr) {
    note->reading.is_sharing_known = note->reading.shares = false;
  }
}

void tw_note_gone(uint32_t pid) {
  if (is_on) {
    gone_now.add(pid);
  }
}

void tw_note_pass_end() {
  gone_before.clear();
  std::swap(gone_before, gone_now);
}
