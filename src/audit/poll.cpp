#include "audit/poll.h"

#include <string.h>

#include "audit/audit_event_manager.h"
#include "audit/poll_entry.h"
#include "audit/process_collector.h"
#include "inspect/system/meminfo_record.h"
#include "proctable/process_records.h"
#include "proctable/zygote.h"

namespace {

void announce(tw_process_list* list, ProcessCollector* collector, int32_t id) {
  if (collector != nullptr && !collector->changes.empty() &&
      AuditEventManager::getInstance()->deliverEvent(AUDIT_SOURCE_PROCLIST, id, list)) {
    collector->changes.clear();
  }
}

}  // namespace

int32_t tw_event_poll_meminfo(tw_meminfo_t* meminfo) {
  AuditEventManager::getInstance()->pollEvents(AUDIT_SOURCE_MEMINFO, meminfo);
  return 0;
}

bool tw_poll_process_entry(tw_process_list* list, tw_process_entry* entry) {
  const bool raised =
      AuditEventManager::getInstance()->pollEvents(AUDIT_SOURCE_PROCENTRY, entry) > 0;
  // "zygote64" begins with it as well.
  if (strncmp(entry->desc.name, "zygote", 6) != 0) {
    const bool runtime = is_runtime_proc(entry->desc.ppid);
    ProcessCollector* const collector = runtime ? list->runtime_collector : list->native_collector;
    if (collector != nullptr) {
      collector->collect(entry);
    }
  }
  return raised;
}

int32_t tw_event_poll_process_entry(tw_process_list* list, tw_process_entry* entry) {
  tw_poll_process_entry(list, entry);
  return 0;
}

int32_t tw_event_poll_process_list(tw_process_list* list) {
  AuditEventManager::getInstance()->pollEvents(AUDIT_SOURCE_PROCLIST, list);
  announce(list, list->runtime_collector, Event_ProcRankRuntime);
  announce(list, list->native_collector, Event_ProcRankNative);
  return 0;
}

int32_t tw_event_poll_proc2exit(tw_process_entry* entry, int32_t id) {
  AuditEventManager::getInstance()->deliverEvent(AUDIT_SOURCE_PROCENTRY, id, entry);
  return 0;
}

int32_t tw_event_poll_newproc(tw_process_entry* entry) {
  AuditEventManager::getInstance()->deliverEvent(AUDIT_SOURCE_PROCENTRY, Event_ProcCreated, entry);
  return 0;
}
