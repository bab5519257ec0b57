#include "audit/proc_list_event_hub.h"

#include "audit/level_checks.h"

std::vector<int32_t> ProcListEventHub::retrieve(void* data) {
  return tw_check_levels(AUDIT_SOURCE_PROCLIST, data);
}
