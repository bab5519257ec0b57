#include "proctable/scan.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "platform/clock.h"
#include "platform/directory.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "proctable/kept_visits.h"
#include "proctable/new_pids.h"
#include "proctable/table_notes.h"
#include "report/log.h"

namespace {

void link_at_head(tw_process_list* list, uint32_t pid) {
  tw_process_entry* entry = &list->entries[pid];
  if (list->head != nullptr) {
    entry->next = list->head;
    list->head->prev = entry;
  }
  list->head = entry;
  ++list->count;
  entry->pid = pid;
  snprintf(entry->desc.name, sizeof(entry->desc.name), "<dummy %u>", pid);
}

void log_beyond_slots(long pid, uint32_t slots) {
  static bool logged = false;
  if (!logged) {
    logged = true;
    TW_LOG(TW_TAG_STATS, ">> no slot for pid %ld, pids of %u and above are not watched!!\n", pid,
           slots);
  }
}

// Links what is not yet in `list`. False when the directory cannot be opened, which is logged.
bool list_processes(tw_process_list* list, int spare_directory) {
  Directory directory(tw_proc_root());
  if (!directory.ok() && (errno == EMFILE || errno == ENFILE) && spare_directory >= 0) {
    directory.rewind(spare_directory);
  }
  if (!directory.ok()) {
    TW_LOG(TW_TAG_STATS, ">> failed to open \"proc\": %s\n", strerror(errno));
    return false;
  }
  const uint32_t slots = tw_process_slots(list);
  tw_dirent found;
  while (directory.next(&found)) {
    if (found.type != DT_DIR || found.name[0] < '0' || found.name[0] > '9') {
      continue;
    }
    const long pid = strtol(found.name, nullptr, 10);
    if (pid < TW_FIRST_TRACKED_PID) {
      continue;
    }
    if (static_cast<unsigned long>(pid) >= slots) {
      log_beyond_slots(pid, slots);
      continue;
    }
    if (list->entries[pid].pid == 0) {
      link_at_head(list, static_cast<uint32_t>(pid));
    }
  }
  if (!directory.failed()) {
    tw_note_listing();
  }
  return true;
}

}  // namespace

int32_t tw_process_list_refresh(tw_process_list* list) {
  return tw_process_list_scan(list, -1);
}

int32_t tw_process_list_scan(tw_process_list* list, int spare_directory) {
  const timeval start = tw_clock_now();
  const ReadingMark mark(TASKWARDEN_READS_DIRECTORY);
  const bool may_be_left_out = tw_keeps_visits(list) && list->head != nullptr;
  if ((!may_be_left_out || tw_may_have_new_pids()) && !list_processes(list, spare_directory)) {
    return -1;
  }
  list->native_count = 0;
  list->runtime_count = 0;
  list->kthread_count = 0;
  list->remaining = list->count;
  tw_reset_unreadable_count(list);
  // A clock that was set back meanwhile must not look like a failure.
  return std::max(0, tw_elapsed_ms(start, tw_clock_now()));
}
