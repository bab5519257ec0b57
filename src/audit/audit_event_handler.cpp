#include "audit/audit_event_handler.h"

#include "audit/entry_blocks.h"
#include "audit/event_block.h"
#include "audit/process_collector.h"
#include "inspect/open_files.h"
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
      tw_reporter().report(1, "-> RSS is too large in proc %u \"%s\": %u\n", entry.pid,
                           entry.desc.name, static_cast<uint32_t>(entry.desc.vm_rss_kb));
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
  }
  return true;
}
