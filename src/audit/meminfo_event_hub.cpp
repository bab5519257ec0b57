#include "audit/meminfo_event_hub.h"

#include "audit/level_checks.h"

std::vector<int32_t> MemInfoEventHub::retrieve(void* data) {
  return tw_check_levels(AUDIT_SOURCE_MEMINFO, data);
}
