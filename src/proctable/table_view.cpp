#include "proctable/table_view.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "proctable/table_notes.h"
#include "report/event_record.h"
#include "report/observers.h"

namespace {

// A number that `known` does not name stays 0.
taskwarden_process row_of(const tw_process_entry& entry, const tw_process_note& note) {
  const tw_process_desc& desc = entry.desc;
  const bool started = note.start_time != 0 && note.start_time != TW_NO_START_TIME;
  taskwarden_process row = {};
  row.size = sizeof(row);
  row.pid = entry.pid;
  row.known = note.known | (started ? uint32_t{TASKWARDEN_KNOWN_START_TIME} : 0);
  row.name = {desc.name, strlen(desc.name)};
  row.start_time = started ? note.start_time : 0;
  row.known_since = entry.identity_time;
  row.visited = entry.inspected_time;
  row.is_watched = entry.baseline_taken ? 1 : 0;
  row.is_interesting = entry.interested ? 1 : 0;
  const auto knows = [&row](uint32_t number) { return (row.known & number) != 0; };
  const auto fill = [&](uint32_t number, auto* to, auto value) {
    if (knows(number)) {
      *to = value;
    }
  };
  fill(TASKWARDEN_KNOWN_STATE, &row.state, static_cast<unsigned char>(desc.state));
  fill(TASKWARDEN_KNOWN_PARENT, &row.parent, desc.ppid);
  fill(TASKWARDEN_KNOWN_PARENT, &row.is_kernel_task, desc.ppid == TW_KTHREADD ? 1 : 0);
  fill(TASKWARDEN_KNOWN_DESCRIPTOR_TABLE, &row.descriptor_table, desc.fd_size);
  fill(TASKWARDEN_KNOWN_PEAK, &row.peak_kb, desc.vm_hwm_kb);
  fill(TASKWARDEN_KNOWN_RESIDENT, &row.resident_kb, desc.vm_rss_kb);
  fill(TASKWARDEN_KNOWN_THREADS, &row.threads, desc.threads);
  fill(TASKWARDEN_KNOWN_OPEN_FILES, &row.open_files, desc.open_files);
  fill(TASKWARDEN_KNOWN_MAPPED, &row.dalvik_kb, desc.vss_dalvik_kb);
  fill(TASKWARDEN_KNOWN_MAPPED, &row.heap_kb, desc.vss_heap_kb);
  fill(TASKWARDEN_KNOWN_MAPPED, &row.ashmem_kb, desc.vss_ashmem_kb);
  fill(TASKWARDEN_KNOWN_MAPPED, &row.kgsl_kb, desc.vss_kgsl_kb);
  fill(TASKWARDEN_KNOWN_MAPPED, &row.dmabuf_kb, desc.vss_dmabuf_kb);
  return row;
}

}  // namespace

void tw_show_table_after_slice(const tw_process_list* list, const tw_pass_figures& figures) {
  const tw_record_counts records = tw_records_so_far();
  tw_show_table({.size = sizeof(taskwarden_table),
                 .is_complete = figures.is_complete ? 1 : 0,
                 .pass = figures.pass,
                 .slice = figures.slice,
                 .processes = list->count,
                 .native = list->native_count,
                 .runtime = list->runtime_count,
                 .kernel = list->kthread_count,
                 .unreadable = tw_unreadable_count(list),
                 .duration_ms = figures.duration_ms,
                 .overloads = figures.overloads,
                 .records_sent = records.sent,
                 .records_lost = records.lost,
                 .list = list});
}

int taskwarden_next_process(const taskwarden_table* table, taskwarden_process* process) {
  const auto* const list = static_cast<const tw_process_list*>(table->list);
  if (process->size < offsetof(taskwarden_process, known)) {
    return 0;
  }
  const uint32_t pid = process->pid;
  const tw_process_entry* entry = list->head;
  if (pid != 0) {
    const bool has_slot = pid < tw_process_slots(list) && list->entries[pid].pid == pid;
    entry = has_slot ? list->entries[pid].next : nullptr;
  }
  if (entry == nullptr) {
    return 0;
  }
  const tw_process_note* const note = tw_process_note_of(list, entry->pid);
  const taskwarden_process row = row_of(*entry, note != nullptr ? *note : tw_process_note{});
  const size_t size = std::min(process->size, sizeof(row));
  memcpy(process, &row, size);
  process->size = size;
  return 1;
}
