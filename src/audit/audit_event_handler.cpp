#include "audit/audit_event_handler.h"

#include <algorithm>
#include <cstring>

#include "audit/entry_blocks.h"
#include "audit/event_block.h"
#include "audit/process_collector.h"
#include "blocks/tagged_block.h"
#include "inspect/open_files.h"
#include "inspect/smaps.h"
#include "inspect/system/slabinfo.h"
#include "inspect/threads.h"
#include "interest/interest_list.h"
#include "proctable/process_records.h"
#include "report/event_socket.h"
#include "report/reporter.h"

namespace {

void report_process_counts(const tw_process_list& list) {
  tw_reporter().report(1, "-> There're %u running processes:\n", list.count);
  tw_reporter().report(1, "\t KThread: %u, Native : %u, Runtime: %u\n", list.kthread_count,
                       list.native_count, list.runtime_count);
}

// A change may name a slot that was freed since, which must stay all zero.
void mark(tw_process_entry* entry, bool interested) {
  if (entry != nullptr && entry->pid != 0) {
    interested_proc_set(entry, interested);
  }
}

void announce_ranking(ProcessCollector* collector) {
  tw_reporter().report(1, "\n");
  tw_reporter().report(1, "%s", TW_EVENT_RULE);
  tw_reporter().report(1, "-> Update process'RSS rank of \"%s\":\n", collector->name);
  collector->sort();
  collector->dump();
  for (const auto& [newcomer, evicted] : collector->changes) {
    mark(newcomer, true);
    mark(evicted, false);
  }
}

// Compares the inventory `current` with the one kept in `field`, lists what grew, sends the record,
// and keeps `current` instead. The first inventory of an identity is only kept.
void explain_growth(const tw_process_entry& entry, CounterBlock current, void** field,
                    const char* heading, const char* row_format, int32_t amount,
                    const char* event) {
  const CounterBlock previous(static_cast<StringCounter*>(*field));
  if (previous != nullptr) {
    tw_reporter().report(1, "%s", heading);
    for (const auto& [name, increase] : StringCounter_diff(previous.get(), current.get())) {
      tw_reporter().report(1, row_format, name.c_str(), increase);
    }
  }
  *field = current.release();
  if (previous != nullptr) {
    reportEvent(static_cast<int32_t>(entry.pid), amount, event, entry.desc.name, "");
  }
}

void explain_threads(tw_process_entry& entry) {
  tw_reporter().report(1, "-> Too many threads in proc %u \"%s\": %u\n", entry.pid, entry.desc.name,
                       static_cast<unsigned>(entry.desc.threads));
  CounterBlock current = make_counter_block();
  if (current != nullptr) {
    tw_process_check_threads(static_cast<int>(entry.pid), current.get());
    explain_growth(entry, std::move(current), &entry.threads_counter_block,
                   "-> Here they're the newly created:\n", "\t \"%16s\" created: %d\n",
                   entry.desc.threads, "Event_ThreadAmount");
  }
}

void explain_open_files(tw_process_entry& entry) {
  tw_reporter().report(1, "-> Too many open files in proc %u \"%s\": %u\n", entry.pid,
                       entry.desc.name, static_cast<unsigned>(entry.desc.open_files));
  CounterBlock current = make_counter_block();
  if (current != nullptr) {
    tw_process_check_openfiles(static_cast<int>(entry.pid), nullptr, current.get());
    explain_growth(entry, std::move(current), &entry.files_counter_block,
                   "-> Here they're the newly opened:\n", "\t \"%s\" added: %d\n",
                   entry.desc.open_files, "Event_OpenFileAmount");
  }
}

// One line for each division that grew, and one for that which grew most: the first of several, and
// division 0 when none did.
void report_division_growth(const vma_division_t* before, const vma_division_t* now) {
  int32_t largest = 0;
  int most = 0;
  for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
    // On the low 32 bits, as they are shown.
    const auto increase = static_cast<int32_t>(static_cast<uint32_t>(now[i].rss_kb) -
                                               static_cast<uint32_t>(before[i].rss_kb));
    if (increase < 1) {
      continue;
    }
    tw_reporter().report(
        1, "\t #%02d: \"%10s\" eaten %8u kB in %3u areas; increased %8d kB, %d areas\n", i,
        vma_division_typename(static_cast<VMA_DIVISION_TYPE>(i)),
        static_cast<unsigned>(now[i].rss_kb), now[i].vma_count, increase,
        static_cast<int32_t>(now[i].vma_count - before[i].vma_count));
    if (increase > largest) {
      largest = increase;
      most = i;
    }
  }
  tw_reporter().report(1, "\t -> THE MAX INCREASE is \"%s\" (%d)\n",
                       vma_division_typename(static_cast<VMA_DIVISION_TYPE>(most)), most);
}

void explain_resident_size(tw_process_entry& entry) {
  tw_reporter().report(1, "-> RSS is too large in proc %u \"%s\": %u\n", entry.pid, entry.desc.name,
                       static_cast<unsigned>(entry.desc.vm_rss_kb));
  vma_division_t now[VMA_DIVISION_COUNT];
  tw_process_check_smaps(static_cast<int>(entry.pid), now);
  auto* kept = static_cast<vma_division_t*>(entry.divisions_block);
  if (kept == nullptr) {
    entry.divisions_block = tw_allocate(sizeof(now));
    if (entry.divisions_block != nullptr) {
      memcpy(entry.divisions_block, now, sizeof(now));
    }
    return;
  }
  if (std::equal(std::begin(now), std::end(now), kept)) {
    return;
  }
  report_division_growth(kept, now);
  reportEvent(static_cast<int32_t>(entry.pid), static_cast<int64_t>(entry.desc.vm_rss_kb),
              "Event_ResidentSize", entry.desc.name, "");
  std::copy(std::begin(now), std::end(now), kept);
}

void report_slab_census() {
  constexpr int32_t kRows = 10;
  tw_slabinfo_t census;
  tw_system_check_slabinfo(&census);
  tw_slabinfo_dump(&census, kRows);
}

void on_process_list_event(int32_t id, tw_process_list& list) {
  switch (id) {
    case Event_ProcTotalAmount:
    case Event_ProcKthreadAmount:
    case Event_ProcNativeAmount:
    case Event_ProcRuntimeAmount:
      report_process_counts(list);
      break;
    case Event_ProcRankRuntime:
      announce_ranking(list.runtime_collector);
      break;
    case Event_ProcRankNative:
      announce_ranking(list.native_collector);
      break;
    default:
      break;
  }
}

void on_process_event(int32_t id, tw_process_entry& entry) {
  switch (id) {
    case Event_ProcExited:
    case Event_ProcRenamed:
      tw_release_entry_blocks(&entry);
      break;
    case Event_ThreadAmount:
      explain_threads(entry);
      break;
    case Event_OpenFileAmount:
      explain_open_files(entry);
      break;
    case Event_OpenFileFDSize:
      tw_reporter().report(1, "-> Too large \"FDSize\" in proc %u \"%s\": %u\n", entry.pid,
                           entry.desc.name, static_cast<unsigned>(entry.desc.fd_size));
      break;
    case Event_ResidentSize:
      explain_resident_size(entry);
      break;
    default:
      break;
  }
}

}  // namespace

bool AuditEventHandler::onEventIncoming(AuditEvent* event) {
  if (event->source == AUDIT_SOURCE_PROCLIST) {
    on_process_list_event(event->id, *static_cast<tw_process_list*>(event->data));
  } else if (event->source == AUDIT_SOURCE_PROCENTRY) {
    on_process_event(event->id, *static_cast<tw_process_entry*>(event->data));
  } else if (event->source == AUDIT_SOURCE_MEMINFO && event->id == AuditEvent_SlabUnreclaimSize) {
    report_slab_census();
  }
  return true;
}
