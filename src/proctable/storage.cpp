#include "proctable/storage.h"

#include "audit/process_collector.h"
#include "proctable/pool.h"

namespace {

tw_process_list __proclist;
tw_process_list* __g_proclist = nullptr;
uint32_t slots = 0;

}  // namespace

tw_process_list* tw_process_list_create() {
  static bool initialized = false;
  if (initialized) {
    return __g_proclist;
  }
  initialized = true;
  const tw_process_pool pool = tw_process_pool_reserve(tw_kernel_pid_limit());
  slots = pool.slots;
  __proclist = {};
  __proclist.entries = pool.entries;
  __proclist.runtime_collector = new ProcessCollector("Runtime");
  __proclist.native_collector = new ProcessCollector("Non-runtime");
  __g_proclist = &__proclist;
  return __g_proclist;
}

uint32_t tw_process_slots() {
  return slots;
}
