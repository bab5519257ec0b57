#include "support/fresh_table.h"

#include <stdexcept>
#include <string>

#include "audit/audit_event_manager.h"
#include "audit/audit_initialize.h"
#include "audit/entry_blocks.h"
#include "audit/process_collector.h"
#include "proctable/storage.h"
#include "proctable/zygote.h"

tw_process_list* fresh_table() {
  if (AuditEventManager::getInstance()->hubs.empty()) tw_audit_initialize();
  tw_process_list* list = tw_process_list_create();
  while (tw_process_entry* entry = list->head) {
    list->head = entry->next;
    tw_release_entry_blocks(entry);
    *tw_fd_listing_of(entry->pid) = {};
    *entry = {};
  }
  for (ProcessCollector* ranking : {list->runtime_collector, list->native_collector}) {
    *ranking = ProcessCollector(ranking->name);
  }
  *list = {list->entries, 0, 0, 0, 0, 0, list->runtime_collector, list->native_collector, nullptr};
  pid_of_zygote = pid_of_zygote64 = 0;
  return list;
}

std::vector<uint32_t> linked_pids(const tw_process_list* list) {
  std::vector<uint32_t> pids;
  for (auto* e = list->head; e != nullptr && pids.size() <= list->count; e = e->next) {
    pids.push_back(e->pid);
    if (e != &list->entries[e->pid] || (e->next != nullptr && e->next->prev != e)) {
      throw std::logic_error("broken at pid " + std::to_string(e->pid));
    }
  }
  if (pids.size() != list->count) throw std::logic_error("not as many linked as counted");
  return pids;
}
