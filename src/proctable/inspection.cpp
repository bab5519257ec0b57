#include "proctable/inspection.h"

#include <string.h>
#include <unistd.h>

#include "audit/entry_blocks.h"
#include "audit/event_draft.h"
#include "audit/event_ids.h"
#include "audit/poll.h"
#include "inspect/maps_parse.h"
#include "inspect/open_files_count.h"
#include "inspect/start_time.h"
#include "inspect/status_parse.h"
#include "interest/interest_mark.h"
#include "platform/clock.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "proctable/table_notes.h"
#include "proctable/zygote.h"
#include "report/log.h"
#include "report/observers.h"

namespace {

bool is_alive(const tw_process_entry& entry) {
  return ::access(ProcPath(entry.pid, "").c_str(), F_OK) == 0;
}

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
  if (tw_process_note* const note = tw_process_note_of(list, pid)) {
    *note = {};
  }
  *entry = {};
  tw_give_back_slot(list, pid);
}

bool is_dummy_name(const char* name) {
  return strncmp(name, "<dummy", 6) == 0;
}

// The slot's process goes by another name than `previous`, the slot as it was before this visit,
// which takes the blocks with it: whoever is told of the event releases them.
void begin_identity(tw_process_entry* entry, tw_process_entry* previous, int64_t now) {
  if (previous->desc.name[0] != '\0' && !is_dummy_name(previous->desc.name)) {
    EventDraft::current().set_new_name(entry->desc.name);
    tw_event_poll_proc2exit(previous, Event_ProcRenamed);
  } else {
    // A slot polled under its dummy name may have blocks too, and no event goes out for it.
    tw_release_entry_blocks(previous);
  }
  entry->identity_time = now;
  entry->baseline_taken = false;
  entry->interested = is_interest(entry->desc.name);
  entry->divisions_block = nullptr;
  entry->files_counter_block = nullptr;
  entry->threads_counter_block = nullptr;
}

void poll_if_watched(tw_process_list* list, tw_process_entry* entry, int64_t now) {
  entry->inspected_time = now;
  if (!entry->baseline_taken) {
    const uint64_t age = static_cast<uint64_t>(now) - static_cast<uint64_t>(entry->identity_time);
    if (age < TW_BASELINE_DELAY_S) {
      return;
    }
    entry->baseline = entry->desc;
    entry->baseline_taken = true;
  }
  tw_event_poll_process_entry(list, entry);
}

// Once for a process, and only while somebody observes.
void note_start_time(const tw_process_entry& entry, tw_process_note* note) {
  if (note != nullptr && note->start_time == 0 && tw_is_observed()) {
    const uint64_t ticks = tw_read_start_time(entry.pid);
    note->start_time = ticks != 0 ? ticks : TW_NO_START_TIME;
  }
}

// What a visit could read, out of what it `asked` for.
void note_known(const tw_process_list* list, tw_process_note* note, uint32_t known,
                uint32_t asked) {
  if (note != nullptr) {
    note->known = known;
  }
  if ((known & asked) != asked) {
    tw_count_unreadable(list);
  }
}

void inspect(tw_process_list* list, tw_process_entry* entry) {
  constexpr int32_t kKthreadd = 2;
  constexpr int32_t kInit = 1;
  const int pid = static_cast<int>(entry->pid);
  const int64_t now = tw_clock_seconds();
  tw_process_note* const note = tw_process_note_of(list, entry->pid);
  tw_process_entry previous = *entry;
  uint32_t known = tw_process_read_status(pid, &entry->desc);
  uint32_t asked = TASKWARDEN_KNOWN_THREADS;  // the last number of the status file
  if (entry->desc.ppid == kKthreadd) {
    ++list->kthread_count;
    note_known(list, note, known, asked);
    // Kernel tasks change their names all the time.
    if (note != nullptr && previous.desc.ppid != kKthreadd) {
      note->start_time = 0;
    }
    note_start_time(*entry, note);
    return;
  }
  if (is_runtime_proc(entry->desc.ppid)) {
    ++list->runtime_count;
  } else if (entry->desc.ppid == kInit) {
    ++list->native_count;
  }
  const bool renamed = strcmp(entry->desc.name, previous.desc.name) != 0;
  if (renamed && note != nullptr) {
    note->files = {};
  }
  asked |= TASKWARDEN_KNOWN_OPEN_FILES;
  if (tw_process_recount_openfiles(pid, &entry->desc, note != nullptr ? &note->files : nullptr)) {
    known |= TASKWARDEN_KNOWN_OPEN_FILES;
  }
  if (previous.interested) {
    asked |= TASKWARDEN_KNOWN_MAPPED;
    int32_t areas;
    known |= tw_process_read_maps(pid, &entry->desc, &areas) ? TASKWARDEN_KNOWN_MAPPED : 0;
  }
  note_known(list, note, known, asked);
  if (renamed) {
    begin_identity(entry, &previous, now);
    if (note != nullptr) {
      note->start_time = 0;
    }
  }
  note_start_time(*entry, note);
  poll_if_watched(list, entry, now);
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
    if (!is_alive(*entry)) {
      retire(list, entry);
      tw_note_step();
    } else {
      inspect(list, entry);
      tw_note_step();
      spent = tw_elapsed_ms(slice_start, tw_clock_now());
      if (spent >= budget_ms) {
        break;
      }
    }
    entry = next;
  }
  list->remaining -= visited;
  if (next == nullptr) {
    finish_pass(list);
  }
  return spent;
}
