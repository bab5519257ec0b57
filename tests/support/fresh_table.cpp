#include "support/fresh_table.h"

#include <gtest/gtest.h>

#include "audit/audit_initialize.h"
#include "audit/entry_blocks.h"
#include "audit/process_collector.h"
#include "proctable/storage.h"
#include "proctable/zygote.h"

tw_process_list* fresh_table() {
  static const bool wired = (tw_audit_initialize(), true);
  static_cast<void>(wired);
  tw_process_list* list = tw_process_list_create();
  while (list->head != nullptr) {
    tw_process_entry* entry = list->head;
    list->head = entry->next;
    tw_release_entry_blocks(entry);
    *entry = {};
  }
  list->count = list->remaining = 0;
  list->native_count = list->runtime_count = list->kthread_count = 0;
  for (ProcessCollector* collector : {list->runtime_collector, list->native_collector}) {
    collector->members.clear();
    collector->changes.clear();
  }
  pid_of_zygote = pid_of_zygote64 = 0;
  return list;
}

std::vector<uint32_t> linked_pids(const tw_process_list* list) {
  std::vector<uint32_t> pids;
  for (const tw_process_entry* e = list->head; e != nullptr; e = e->next) {
    pids.push_back(e->pid);
    EXPECT_EQ(e, &list->entries[e->pid]);
    EXPECT_TRUE(e->next == nullptr || e->next->prev == e);
    if (pids.size() > list->count) {
      break;
    }
  }
  EXPECT_EQ(pids.size(), list->count);
  return pids;
}
