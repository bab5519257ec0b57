#include "proctable/inspection.h"

#include <errno.h>
#include <string.h>

#include "audit/entry_blocks.h"
#include "audit/event_draft.h"
#include "audit/event_ids.h"
#include "audit/poll.h"
#include "audit/poll_entry.h"
#include "inspect/maps_parse.h"
#include "inspect/open_files_count.h"
#include "inspect/start_time.h"
#include "inspect/status_parse.h"
#include "interest/interest_mark.h"
#include "platform/clock.h"
#include "platform/progress.h"
#include "proctable/kept_visits.h"
#include "proctable/table_notes.h"
#include "proctable/zygote.h"
#include "report/log.h"
#include "report/observers.h"

namespace {

void unlink_entry(tw_process_list* list, tw_process_entry* entry) {
  if (list->head == entry) {
    list->head = entry->next;
  } else {
    entry->prev->next = entry->next;
    if (entry->next != nullptr) {
      entry->next->prev = entry->prev;
    }
  }
  --list->count;
  entry->next = nullptr;
  entry->prev = nullptr;
}

// The handler sees the process as it last was, outside the table, before the slot is free.
void retire(tw_process_list* list, tw_process_entry* entry) {
  unlink_entry(list, entry);
  tw_event_poll_proc2exit(entry, Event_ProcExited);
  const uint32_t pid = entry->pid;
  tw_note_baselines(entry->baseline_taken ? -1 : 0);
  if (tw_process_note* const note = tw_process_note_of(list, pid)) {
    *note = {};
  }
  *entry = {};
  tw_give_back_slot(list, pid);
  tw_note_gone(pid);
}

bool is_dummy_name(const char* name) {
  return strncmp(name, "<dummy", 6) == 0;
}

// The slot's process goes by another name than `previous`, the slot as it was before this visit,
// which takes the blocks with it: whoever is told of the event releases them.
void begin_identity(tw_process_entry* entry, tw_process_entry* previous, tw_process_note* note,
                    int64_t now) {
  tw_note_identity(note);
  if (previous->desc.name[0] != '\0' && !is_dummy_name(previous->desc.name)) {
    EventDraft::current().set_new_name(entry->desc.name);
    tw_event_poll_proc2exit(previous, Event_ProcRenamed);
    tw_note_event(note);
  } else {
    // A slot polled under its dummy name may have blocks too, and no event goes out for it.
    tw_release_entry_blocks(previous);
  }
  entry->identity_time = now;
  tw_note_baselines(entry->baseline_taken ? -1 : 0);
  entry->baseline_taken = false;
  entry->interested = is_interest(entry->desc.name);
  entry->divisions_block = nullptr;
  entry->files_counter_block = nullptr;
  entry->threads_counter_block = nullptr;
}

void poll_if_watched(tw_process_list* list, tw_process_entry* entry, tw_process_note* note,
                     int64_t now) {
  entry->inspected_time = now;
  if (!entry->baseline_taken) {
    const uint64_t age = static_cast<uint64_t>(now) - static_cast<uint64_t>(entry->identity_time);
    if (age < TW_BASELINE_DELAY_S) {
      return;
    }
    entry->baseline = entry->desc;
    entry->baseline_taken = true;
    tw_note_baselines(1);
  }
  if (tw_poll_process_entry(list, entry)) {
    tw_note_event(note);
  }
}

// Once for a process, and only while somebody observes.
void note_start_time(const tw_process_entry& entry, tw_process_note* note) {
  if (note != nullptr && note->start_time == 0 && tw_is_observed()) {
    const uint64_t ticks = tw_read_start_time(entry.pid);
    note->start_time = ticks != 0 ? ticks : TW_NO_START_TIME;
  }
}

// The last number of the status file, and where there is one to be counted on, of the descriptors.
constexpr uint32_t kAskedOfKernelTask = TASKWARDEN_KNOWN_THREADS;
constexpr uint32_t kAsked = kAskedOfKernelTask | TASKWARDEN_KNOWN_OPEN_FILES;

// What a visit knows, out of what it `asked` for.
void count_known(const tw_process_list* list, uint32_t known, uint32_t asked) {
  if ((known & asked) != asked) {
    tw_count_unreadable(list);
  }
}

void note_known(const tw_process_list* list, tw_process_note* note, uint32_t known,
                uint32_t asked) {
  if (note != nullptr) {
    note->known = known;
  }
  count_known(list, known, asked);
}

// False for a kernel task, of which nothing more is asked.
bool count_kind(tw_process_list* list, const tw_process_entry& entry) {
  constexpr int32_t kInit = 1;
  if (entry.desc.ppid == TW_KTHREADD) {
    ++list->kthread_count;
    return false;
  }
  if (is_runtime_proc(entry.desc.ppid)) {
    ++list->runtime_count;
  } else if (entry.desc.ppid == kInit) {
    ++list->native_count;
  }
  return true;
}

// Reads all there is to be known of the process; `cpu_ns` was its CPU clock before.
void read_all(tw_process_list* list, tw_process_entry* entry, tw_process_note* note,
              uint64_t cpu_ns) {
  const int pid = static_cast<int>(entry->pid);
  const int64_t now = tw_clock_seconds();
  tw_process_entry previous = *entry;
  uint32_t known = tw_process_read_status(pid, &entry->desc);
  bool is_whole = (known & kAskedOfKernelTask) != 0;
  if (!count_kind(list, *entry)) {
    note_known(list, note, known, kAskedOfKernelTask);
    // Kernel tasks change their names all the time.
    if (note != nullptr && previous.desc.ppid != TW_KTHREADD) {
      note->start_time = 0;
    }
    note_start_time(*entry, note);
    tw_note_reading(list, *entry, note, cpu_ns, is_whole);
    return;
  }
  const bool renamed = strcmp(entry->desc.name, previous.desc.name) != 0;
  if (renamed && note != nullptr) {
    note->files = {};
  }
  uint32_t asked = kAsked;
  if (tw_process_recount_openfiles(pid, &entry->desc, note != nullptr ? &note->files : nullptr)) {
    known |= TASKWARDEN_KNOWN_OPEN_FILES;
  } else {
    // What we have no right to see, we shall not see before it has run either.
    is_whole = is_whole && errno == EACCES;
  }
  if (previous.interested) {
    asked |= TASKWARDEN_KNOWN_MAPPED;
    int32_t areas;
    known |= tw_process_read_maps(pid, &entry->desc, &areas) ? TASKWARDEN_KNOWN_MAPPED : 0;
  }
  note_known(list, note, known, asked);
  if (renamed) {
    begin_identity(entry, &previous, note, now);
    if (note != nullptr) {
      note->start_time = 0;
    }
  }
  note_start_time(*entry, note);
  poll_if_watched(list, entry, note, now);
  tw_note_reading(list, *entry, note, cpu_ns, is_whole);
}

// The visit of a process whose numbers are as they were.
void keep(tw_process_list* list, tw_process_entry* entry, tw_process_note* note) {
  const bool is_process = count_kind(list, *entry);
  count_known(list, note->known, is_process ? kAsked : kAskedOfKernelTask);
  note_start_time(*entry, note);
  if (is_process) {
    ++note->files.visits;
    poll_if_watched(list, entry, note, tw_clock_seconds());
  }
}

// False if the process is gone.
bool visit(tw_process_list* list, tw_process_entry* entry) {
  tw_process_note* const note = tw_process_note_of(list, entry->pid);
  uint64_t cpu_ns;
  switch (tw_begin_visit(*entry, note, &cpu_ns)) {
    case Finding::kGone:
      return false;
    case Finding::kRead:
      read_all(list, entry, note, cpu_ns);
      break;
    case Finding::kKeep:
      keep(list, entry, note);
      break;
  }
  return true;
}

void finish_pass(tw_process_list* list) {
  if (list->remaining != 0) {
    TW_LOG(TW_TAG_STATS, ">> something goes wrong in past iterations (%u)!!\n\n", list->remaining);
    return;
  }
  tw_event_poll_process_list(list);
}

}  // namespace

int32_t tw_process_list_iterate(tw_process_list* list, tw_process_entry* start, int32_t budget_ms,
                                tw_process_entry** cursor) {
  const timeval slice_start = tw_clock_now();
  uint32_t visited = 0;
  int32_t spent = 0;
  tw_process_entry* entry = start;
  tw_process_entry* next = nullptr;
  while (entry != nullptr) {
    next = entry->next;
    *cursor = next;
    ++visited;
    const bool is_there = visit(list, entry);
    if (!is_there) {
      retire(list, entry);
    }
    tw_note_step();
    if (is_there) {
      spent = tw_elapsed_ms(slice_start, tw_clock_now());
      if (spent >= budget_ms) {
        break;
      }
    }
    entry = next;
  }
  list->remaining -= visited;
  if (next == nullptr) {
    tw_note_pass_end();
    finish_pass(list);
  }
  return spent;
}
