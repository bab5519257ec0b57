#include "proctable/storage.h"

#include <errno.h>
#include <string.h>

#include "audit/process_collector.h"
#include "platform/progress.h"
#include "proctable/pool.h"
#include "proctable/table_notes.h"
#include "report/log.h"

namespace {

tw_process_list __proclist;
tw_process_list* __g_proclist = nullptr;
tw_process_pool pool;
uint32_t unreadable = 0;

}  // namespace

tw_process_list* tw_process_list_create() {
  static bool initialized = false;
  if (initialized) {
    return __g_proclist;
  }
  initialized = true;
  pool = tw_process_pool_reserve(tw_kernel_pid_limit());
  if (pool.refused) {
    TW_LOG(TW_TAG_STATS, ">> failed to reserve slots, pids of %u and above are not watched: %s\n",
           pool.slots, strerror(errno));
  }
  tw_note_slots(pool.slots, pool.refused);
  __proclist = {};
  __proclist.entries = pool.entries;
  __proclist.runtime_collector = new ProcessCollector("Runtime");
  __proclist.native_collector = new ProcessCollector("Non-runtime");
  __g_proclist = &__proclist;
  return __g_proclist;
}

uint32_t tw_process_slots(const tw_process_list* list) {
  return list == __g_proclist ? pool.slots : TW_PROCESS_SLOTS;
}

tw_process_note* tw_process_note_of(const tw_process_list* list, uint32_t pid) {
  return list == __g_proclist ? &pool.notes[pid] : nullptr;
}

void tw_give_back_slot(const tw_process_list* list, uint32_t pid) {
  if (list == __g_proclist) {
    tw_process_pool_give_back(pool, pid);
  }
}

uint32_t tw_unreadable_count(const tw_process_list* list) {
  return list == __g_proclist ? unreadable : 0;
}

void tw_reset_unreadable_count(const tw_process_list* list) {
  unreadable = list == __g_proclist ? 0 : unreadable;
}

void tw_count_unreadable(const tw_process_list* list) {
  unreadable += list == __g_proclist ? 1 : 0;
}

const tw_process_note* tw_process_note_of(uint32_t pid) {
  return pid < pool.slots && pool.entries[pid].pid == pid ? &pool.notes[pid] : nullptr;
}
