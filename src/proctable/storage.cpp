#include "proctable/storage.h"

#include "audit/process_collector.h"
#include "proctable/pool.h"

namespace {

tw_process_list __proclist;
tw_process_list* __g_proclist = nullptr;
tw_process_pool pool;

}  // namespace

tw_process_list* tw_process_list_create() {
  static bool initialized = false;
  if (initialized) {
    return __g_proclist;
  }
  initialized = true;
  pool = tw_process_pool_reserve(tw_kernel_pid_limit());
  __proclist = {};
  __proclist.entries = pool.entries;
  __proclist.runtime_collector = new ProcessCollector("Runtime");
  __proclist.native_collector = new ProcessCollector("Non-runtime");
  __g_proclist = &__proclist;
  return __g_proclist;
}

uint32_t tw_process_slots() {
  return pool.slots;
}

tw_fd_listing* tw_fd_listing_of(uint32_t pid) {
  return &pool.listings[pid];
}
